#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace TestSupport
{

// One member of a package a test builds in memory.
struct ArchiveMember
{
    enum Kind
    {
        File,
        Directory,
        Link
    };

    std::string name;
    std::string content; // file data, or the link target
    mode_t mode = 0644;
    Kind kind = File;
};

// Writes a package the way vendors build them: a gzip-compressed tar (pax), or
// a zip; every member dated the same, so two runs give the same bytes.
bool WriteArchive(const std::string& path, const std::vector<ArchiveMember>& members, bool zip);

// The same bytes on every run for the same seed; deflate cannot shrink them, so a package
// member made of them is stored as it is, and its size on the key is known.
std::string NoiseBytes(std::size_t count, std::uint32_t seed);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

} // namespace TestSupport
