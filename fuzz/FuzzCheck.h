#pragma once

#include <cstdio>
#include <cstdlib>

// A broken property found while fuzzing is a crash like any other: the fuzzer
// keeps the input, and the replay test fails on it.
#define FUZZ_CHECK(condition)                                                                      \
    do                                                                                             \
    {                                                                                              \
        if (!(condition))                                                                          \
        {                                                                                          \
            std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition);  \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
