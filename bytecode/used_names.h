// What the debug text of a root image says of the code's names: the lists in front of its own name.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "kestrin/types.h"

struct listed_cop {
    std::string_view mnemonic;
    SLO operands;
};

// Names by number, views into the text that they were read from.
struct used_names {
    std::unordered_map<ULO, std::string_view> global_udfs;
    std::unordered_map<ULO, listed_cop> isa,
        isaext; // by row; empty if the code was compiled without
};

// Splits the three lists off; `*text` is what follows them. A text without lists stays as it is.
used_names take_used_names(std::string_view *text);

// The last part of a scoped name: STEP of Main:FACT:STEP.
std::string_view own_name(std::string_view scoped);
