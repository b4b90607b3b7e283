// What the board identity tool prints with "--json": the serial number and
// the chassis name are taken from it when they are strings.
#include "EepromInfo.h"
#include "EepromReader.h"
#include "FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <string>

using Kel::Vidorama::InstallerLib::EepromInfo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string output(reinterpret_cast<const char*>(data), size);

    EepromInfo info;
    info.serialNumber = "earlier serial";
    info.chassis = "earlier chassis";
    const bool object = Kel::Vidorama::InstallerLib::detail::ParseIdentity(output, info);
    if (!object)
    {
        // Output that is not a JSON object changes nothing.
        FUZZ_CHECK(info.serialNumber == "earlier serial");
        FUZZ_CHECK(info.chassis == "earlier chassis");
    }
    // The chassis read decides which versions the server may run.
    if (info.chassis.empty())
        FUZZ_CHECK(info.IsVidorama14AndLessCompatible());
    else
        info.IsVidorama14AndLessCompatible();
    return 0;
}
