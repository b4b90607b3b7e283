// The network form's field texts, trimmed in place before validation: the
// buffer is exactly as long as the text, so any write past its end is seen.
#include "FuzzCheck.h"
#include "NetworkStep.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

using Kel::Vidorama::InstallerWizard::NetworkStep;

namespace
{

std::unique_ptr<char[]> CopyOf(const std::string& text)
{
    std::unique_ptr<char[]> buffer(new char[text.size() + 1]);
    std::memcpy(buffer.get(), text.c_str(), text.size() + 1);
    return buffer;
}

bool IsSpace(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    text = text.substr(0, text.find('\0'));

    // The trimmed text is the middle of the typed one, without white space at
    // either end.
    std::unique_ptr<char[]> trimmed = CopyOf(text);
    NetworkStep::TrimValue(trimmed.get());
    const std::string value = trimmed.get();
    FUZZ_CHECK(value.empty() || (!IsSpace(value.front()) && !IsSpace(value.back())));
    FUZZ_CHECK(text.find(value) != std::string::npos);
    if (value.empty())
    {
        for (const char character : text)
            FUZZ_CHECK(IsSpace(character));
    }

    // An address is never longer once rewritten.
    std::unique_ptr<char[]> address = CopyOf(text);
    NetworkStep::TrimIpAddress(address.get());
    FUZZ_CHECK(std::strlen(address.get()) <= text.size());

    NetworkStep::TrimValue(nullptr);
    NetworkStep::TrimIpAddress(nullptr);
    return 0;
}
