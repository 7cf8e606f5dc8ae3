// A property that every input must keep.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process, so that the fuzzer keeps the input.
inline void MustHold(bool Holds, const char* What) {
    if (!Holds) {
        std::fprintf(stderr, "property broken: %s\n", What);
        std::abort();
    }
}
