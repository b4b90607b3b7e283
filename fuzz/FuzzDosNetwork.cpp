// "cecfg.bat", the DOS side's network batch file, as it is read back into the
// network form; what is read must come back the same through a written file.
#include "FuzzCheck.h"
#include "FuzzScratchDirectory.h"
#include "MsDos.h"
#include "NetworkInterface.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

using Kel::Vidorama::Fuzz::FuzzScratchDirectory;
using Kel::Vidorama::InstallerLib::MsDos;
using Kel::ZarnLinuxTools::NetworkInterface;

namespace
{

// Empty, or one to fifteen characters without white space.
bool IsBatchValue(const std::string& value)
{
    if (value.size() > 15)
        return false;
    for (const char character : value)
    {
        if (character == '\0' || std::isspace(static_cast<unsigned char>(character)) != 0)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string file = FuzzScratchDirectory::Get().GetPath() + "/cecfg.bat";
    const std::string contents(reinterpret_cast<const char*>(data), size);

    NetworkInterface read;
    read.method = "static";
    std::istringstream in(contents);
    MsDos::ParseNetworkDosConfiguration(in, read);
    FUZZ_CHECK(IsBatchValue(read.address));
    FUZZ_CHECK(IsBatchValue(read.netmask));
    FUZZ_CHECK(IsBatchValue(read.gateway));
    FUZZ_CHECK(read.method == "static");

    FUZZ_CHECK(MsDos::SaveNetworkDosConfiguration(read, file.c_str()));
    NetworkInterface again;
    std::ifstream written(file, std::ios::binary);
    MsDos::ParseNetworkDosConfiguration(written, again);
    FUZZ_CHECK(again.address == read.address);
    FUZZ_CHECK(again.netmask == read.netmask);
    FUZZ_CHECK(again.gateway == read.gateway);
    return 0;
}
