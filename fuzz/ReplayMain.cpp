// Runs a fuzz target over saved inputs without libFuzzer, so that every build
// (gcc included) replays the seed corpus and the inputs of past crashes as an
// ordinary test. Usage: fuzz_replay_<name> PATH... where each PATH is a file or
// a directory whose regular files are all replayed (not recursively). A missing
// directory is skipped, since a target without past crashes has no regressions
// directory; finding no input at all is an error.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace
{

namespace fs = std::filesystem;

void CollectInputs(const fs::path& path, std::vector<fs::path>& inputs)
{
    std::error_code error;
    if (fs::is_regular_file(path, error))
    {
        inputs.push_back(path);
        return;
    }
    if (!fs::is_directory(path, error))
    {
        std::printf("replay: %s: not there, skipped\n", path.c_str());
        return;
    }
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, error))
    {
        if (entry.is_regular_file(error))
            found.push_back(entry.path());
    }
    // The same order on every machine, so that a failure reads the same.
    std::sort(found.begin(), found.end());
    inputs.insert(inputs.end(), found.begin(), found.end());
}

bool ReadInput(const fs::path& path, std::vector<uint8_t>& bytes)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

} // namespace

int main(int argc, char* argv[])
{
    std::vector<fs::path> inputs;
    for (int index = 1; index < argc; ++index)
        CollectInputs(argv[index], inputs);
    if (inputs.empty())
    {
        std::fprintf(stderr, "replay: no input found\n");
        return 1;
    }

    for (const fs::path& input : inputs)
    {
        std::vector<uint8_t> bytes;
        if (!ReadInput(input, bytes))
        {
            std::fprintf(stderr, "replay: cannot read %s\n", input.c_str());
            return 1;
        }
        // Named before the run: a crash then says which input it was.
        std::printf("replay: %s (%zu bytes)\n", input.c_str(), bytes.size());
        std::fflush(stdout);
        // libFuzzer never hands over a null pointer, even for an empty input.
        static const uint8_t empty = 0;
        LLVMFuzzerTestOneInput(bytes.empty() ? &empty : bytes.data(), bytes.size());
    }
    std::printf("replay: %zu inputs, no failure\n", inputs.size());
    return 0;
}
