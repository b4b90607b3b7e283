// Writes the tar stream of a large Linux package on stdout, to be compressed by the caller
// (gzip -1): half of the payload is log-like text, half random bytes from the kernel, spread
// over many files, with the package's "Install.sh" as the last entry, as real packages have it.
//
//   BenchMakePackage --size-mib N [--files F] | gzip -1 > Vidorama_12.05.01.1.tar.gz
//   BenchMakePackage --print-installer     the exact "Install.sh" the stream carries
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/random.h>
#include <unistd.h>

namespace
{

constexpr size_t TarBlock = 512;
constexpr size_t TarRecord = 10240;
constexpr size_t ChunkSize = 1 << 20;

const char* const InstallerText = "#!/bin/sh\n"
                                  "# Benchmark package: the payload is not meant to be installed.\n"
                                  "echo \"$2 $3: nothing to install\"\n"
                                  "exit 0\n";

// Small and fast; the quality only has to vary the text a little.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state(seed ? seed : 0x9E3779B97F4A7C15ull) {}
    std::uint64_t Next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    unsigned Below(unsigned limit) { return static_cast<unsigned>(Next() % limit); }

private:
    std::uint64_t state;
};

class Output
{
public:
    ~Output() { Flush(); }

    void Write(const void* data, size_t size)
    {
        const char* bytes = static_cast<const char*>(data);
        buffer.insert(buffer.end(), bytes, bytes + size);
        written += size;
        if (buffer.size() >= ChunkSize)
        {
            Flush();
        }
    }

    void Zeros(size_t size)
    {
        buffer.insert(buffer.end(), size, '\0');
        written += size;
    }

    void PadTo(size_t multiple)
    {
        const size_t rest = written % multiple;
        if (rest != 0)
        {
            Zeros(multiple - rest);
        }
    }

    void Flush()
    {
        size_t done = 0;
        while (done < buffer.size())
        {
            const ssize_t n = ::write(STDOUT_FILENO, buffer.data() + done, buffer.size() - done);
            if (n < 0 && errno == EINTR)
            {
                continue;
            }
            if (n <= 0)
            {
                std::perror("BenchMakePackage: write");
                std::exit(1);
            }
            done += static_cast<size_t>(n);
        }
        buffer.clear();
    }

private:
    std::vector<char> buffer;
    std::uint64_t written = 0;
};

void Octal(char* field, size_t width, std::uint64_t value)
{
    // width - 1 digits and a terminating NUL, as ustar writes them.
    std::snprintf(field, width, "%0*llo", static_cast<int>(width - 1),
                  static_cast<unsigned long long>(value));
}

void WriteHeader(Output& out, const std::string& name, std::uint64_t size, bool directory)
{
    char header[TarBlock];
    std::memset(header, 0, sizeof header);
    if (name.size() >= 100)
    {
        std::fprintf(stderr, "BenchMakePackage: name too long: %s\n", name.c_str());
        std::exit(1);
    }
    std::memcpy(header, name.data(), name.size());
    Octal(header + 100, 8, directory ? 0755 : 0644);
    Octal(header + 108, 8, 0);
    Octal(header + 116, 8, 0);
    Octal(header + 124, 12, size);
    Octal(header + 136, 12, 1335830400); // 2012-05-01 00:00 UTC
    header[156] = directory ? '5' : '0';
    std::memcpy(header + 257, "ustar", 6);
    std::memcpy(header + 263, "00", 2);
    std::memcpy(header + 265, "root", 4);
    std::memcpy(header + 297, "root", 4);
    std::memset(header + 148, ' ', 8);
    unsigned sum = 0;
    for (unsigned char c : header)
    {
        sum += c;
    }
    std::snprintf(header + 148, 8, "%06o", sum);
    out.Write(header, sizeof header);
}

void WriteFile(Output& out, const std::string& name, const std::string& content)
{
    WriteHeader(out, name, content.size(), false);
    out.Write(content.data(), content.size());
    out.PadTo(TarBlock);
}

// Lines like those a video server writes all day: same words, changing numbers.
void WriteText(Output& out, std::uint64_t size, Random& random)
{
    static const char* const levels[] = {"INFO ", "INFO ", "INFO ", "DEBUG", "WARN "};
    static const char* const events[] = {"segment written", "segment read",  "stream opened",
                                         "stream closed",   "index updated", "client connected"};
    std::string block;
    block.reserve(ChunkSize + 256);
    char line[256];
    std::uint64_t left = size;
    std::uint64_t seconds = 1336003200 + random.Below(86400 * 30);
    while (left > 0)
    {
        block.clear();
        while (block.size() < ChunkSize && block.size() < left)
        {
            seconds += random.Below(3);
            const int n = std::snprintf(
                line, sizeof line,
                "2012-05-%02u %02u:%02u:%02u.%03u %s [worker-%02u] %s channel=%u id=%u "
                "bytes=%u elapsed=%ums\n",
                static_cast<unsigned>(1 + (seconds / 86400) % 30),
                static_cast<unsigned>((seconds / 3600) % 24),
                static_cast<unsigned>((seconds / 60) % 60), static_cast<unsigned>(seconds % 60),
                random.Below(1000), levels[random.Below(5)], random.Below(16),
                events[random.Below(6)], random.Below(64), random.Below(1000000),
                188 * 1024 + random.Below(4096), random.Below(40));
            block.append(line, static_cast<size_t>(n));
        }
        const size_t take = static_cast<size_t>(std::min<std::uint64_t>(block.size(), left));
        out.Write(block.data(), take);
        left -= take;
    }
}

void WriteRandom(Output& out, std::uint64_t size)
{
    std::vector<char> block(ChunkSize);
    std::uint64_t left = size;
    while (left > 0)
    {
        const size_t take = static_cast<size_t>(std::min<std::uint64_t>(block.size(), left));
        size_t done = 0;
        while (done < take)
        {
            const ssize_t n = ::getrandom(block.data() + done, take - done, 0);
            if (n < 0 && errno == EINTR)
            {
                continue;
            }
            if (n <= 0)
            {
                std::perror("BenchMakePackage: getrandom");
                std::exit(1);
            }
            done += static_cast<size_t>(n);
        }
        out.Write(block.data(), take);
        left -= take;
    }
}

int Usage()
{
    std::fprintf(stderr, "usage: BenchMakePackage --size-mib N [--files F] [--seed S]\n"
                         "       BenchMakePackage --print-installer\n");
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    std::uint64_t sizeMib = 0;
    unsigned files = 3000;
    std::uint64_t seed = 1;
    for (int i = 1; i < argc; ++i)
    {
        const std::string option = argv[i];
        if (option == "--print-installer")
        {
            std::fputs(InstallerText, stdout);
            return 0;
        }
        if (i + 1 >= argc)
        {
            return Usage();
        }
        const char* value = argv[++i];
        if (option == "--size-mib")
        {
            sizeMib = std::strtoull(value, nullptr, 10);
        }
        else if (option == "--files")
        {
            files = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
        }
        else if (option == "--seed")
        {
            seed = std::strtoull(value, nullptr, 10);
        }
        else
        {
            return Usage();
        }
    }
    if (sizeMib == 0 || files < 2)
    {
        return Usage();
    }
    if (isatty(STDOUT_FILENO))
    {
        std::fprintf(stderr, "BenchMakePackage: refusing to write a tar stream to a terminal\n");
        return 2;
    }

    // File sizes vary between a quarter and seven quarters of the mean. A text file and the
    // random one after it have the same size, so each kind is half of the payload; the last
    // file absorbs the rounding, so the payload is exactly the size asked for.
    const std::uint64_t total = sizeMib << 20;
    Random random(seed);
    std::vector<std::uint64_t> weights(files);
    std::uint64_t weightSum = 0;
    for (unsigned i = 0; i < files; ++i)
    {
        weights[i] = i % 2 == 0 ? 250 + random.Below(1501) : weights[i - 1];
        weightSum += weights[i];
    }
    std::vector<std::uint64_t> sizes(files);
    std::uint64_t sum = 0;
    for (unsigned i = 0; i + 1 < files; ++i)
    {
        sizes[i] =
            static_cast<std::uint64_t>(static_cast<long double>(total) * weights[i] / weightSum);
        sum += sizes[i];
    }
    sizes[files - 1] = total - sum;

    Output out;
    WriteHeader(out, "payload/", 0, true);
    WriteFile(out, "payload/Version.json",
              "{\"name\": \"Vidorama\", \"version\": \"12.05.01\", \"revision\": \"1\"}\n");
    const unsigned perDirectory = 100;
    for (unsigned i = 0; i < files; ++i)
    {
        char directory[32];
        std::snprintf(directory, sizeof directory, "payload/data/d%03u/", i / perDirectory);
        if (i % perDirectory == 0)
        {
            if (i == 0)
            {
                WriteHeader(out, "payload/data/", 0, true);
            }
            WriteHeader(out, directory, 0, true);
        }
        // Text and random files alternate, so that neither half sits in one block.
        const bool text = i % 2 == 0;
        char name[64];
        std::snprintf(name, sizeof name, "%sf%05u.%s", directory, i, text ? "log" : "bin");
        WriteHeader(out, name, sizes[i], false);
        if (text)
        {
            WriteText(out, sizes[i], random);
        }
        else
        {
            WriteRandom(out, sizes[i]);
        }
        out.PadTo(TarBlock);
    }
    WriteFile(out, "Install.sh", InstallerText);
    out.Zeros(2 * TarBlock);
    out.PadTo(TarRecord);
    return 0;
}
