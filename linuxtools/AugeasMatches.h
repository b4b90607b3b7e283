#pragma once

#include <augeas.h>

#include <cstdlib>

namespace Kel
{
namespace ZarnLinuxTools
{

// The paths found by one aug_match, freed with the object: augeas hands back a
// malloc'ed array of malloc'ed strings that the caller must release whatever
// it does with them. A null handle or a failed match gives no path.
class AugeasMatches
{
public:
    AugeasMatches(const augeas* handle, const char* pattern)
    {
        if (handle != nullptr && pattern != nullptr)
        {
            char** paths = nullptr;
            const int found = aug_match(handle, pattern, &paths);
            if (found >= 0)
            {
                // Even an empty result may come with an array to free; a
                // failed match has already released what it had.
                paths_ = paths;
                count_ = found;
            }
        }
    }
    ~AugeasMatches()
    {
        if (paths_ != nullptr)
        {
            for (int i = 0; i < count_; ++i)
            {
                std::free(paths_[i]);
            }
            std::free(paths_);
        }
    }
    AugeasMatches(const AugeasMatches&) = delete;
    AugeasMatches& operator=(const AugeasMatches&) = delete;

    int Count() const { return count_; }
    // The index-th path, 0 <= index < Count().
    const char* operator[](int index) const { return paths_[index]; }

private:
    char** paths_ = nullptr;
    int count_ = 0;
};

} // namespace ZarnLinuxTools
} // namespace Kel
