#pragma once

// The PC's CMOS as the kernel's nvram driver shows it in /dev/nvram: CMOS
// bytes 14 to 127, 114 bytes. The driver refuses every read and write (EIO)
// unless bytes 2 to 31 add up to the big-endian checksum in bytes 32 and 33,
// and after every write it sets that checksum anew from what is in CMOS. So
// an image reads back unchanged only when its own checksum is right. In the
// sandbox guest the CMOS is qemu's, whose clock also owns bytes 36 and 41 (the
// century, CMOS 0x32 and 0x37): they read back as the clock's century (0x20),
// and a write there sets the guest's date. Images made here carry both.

#include "Guest.h"

#include <algorithm>
#include <string>

namespace Sandbox
{

constexpr size_t CmosSize = 114;
constexpr size_t CmosChecksumAt = 32;
constexpr unsigned char CmosCentury = 0x20;

// The image with its checksum bytes set from bytes 2 to 31.
inline std::string WithCmosChecksum(std::string image)
{
    if (image.size() < CmosChecksumAt + 2)
        return image;
    unsigned sum = 0;
    for (size_t i = 2; i < CmosChecksumAt; ++i)
        sum += static_cast<unsigned char>(image[i]);
    image[CmosChecksumAt] = static_cast<char>((sum >> 8) & 0xff);
    image[CmosChecksumAt + 1] = static_cast<char>(sum & 0xff);
    return image;
}

// A whole CMOS image that reads back as it is: a few bytes that tell it
// apart in the checked range, the century, and text (at most 66 bytes) from
// byte 48 on.
inline std::string CmosImage(const std::string& text, char mark = 0x5a)
{
    std::string image(CmosSize, '\0');
    image[2] = mark;
    image[17] = static_cast<char>(~mark);
    image[36] = static_cast<char>(CmosCentury);
    image[41] = static_cast<char>(CmosCentury);
    image.replace(48, std::min(text.size(), CmosSize - 48), text.substr(0, CmosSize - 48));
    return WithCmosChecksum(image);
}

// What the guest's /dev/nvram holds now, read in the guest; a text saying why
// when it cannot be read (no driver, say).
inline std::string GuestCmos(Guest& guest)
{
    const Guest::Result result = guest.Run("cat /dev/nvram > /io/cmos-now");
    if (result.rc != 0)
        return "(/dev/nvram cannot be read: " + result.output + ")";
    return guest.ReadIoFile("cmos-now");
}

} // namespace Sandbox
