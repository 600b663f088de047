// What all fuzzers begin with.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "frontend/groups.h"
#include "vm/machine.h"

// Defined by each fuzzer: tries one input.
void try_input(std::string_view bytes);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool started = [] {
        setup_quarne_thread_safe_functionality_for_local_thread();
        build_groups();
        return true;
    }();
    // A block of its own: what is read behind it is found out.
    if (started) try_input(std::string(reinterpret_cast<const CHR *>(data), size));
    return 0;
}

inline void require(bool holds)
{
    if (!holds) abort();
}

// Takes bytes off the front of an input, zeros behind its end.
struct input {
    std::string_view rest;
    bool ended() const { return rest.empty(); }
    UCH byte()
    {
        if (rest.empty()) return 0;
        const UCH first = static_cast<UCH>(rest[0]);
        rest.remove_prefix(1);
        return first;
    }
    std::string_view text(ULO size)
    {
        const std::string_view taken = rest.substr(0, size);
        rest.remove_prefix(taken.size());
        return taken;
    }
};
