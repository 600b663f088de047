#include "workshop/completion.h"

#include <algorithm>
#include <cctype>

#include "frontend/isa.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"

std::string lower_case(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return lower;
}

std::vector<std::string> instruction_names()
{
    std::vector<std::string> all;
    for (ULO i = 0; i < isa_count; i++) all.emplace_back(view(*isa_table[i].mnemonic));
    return all;
}

std::string completed(std::string_view typed, std::string_view name)
{
    const bool in_capitals = lower_case(typed) != typed;
    const std::string shown = in_capitals ? std::string(name) : lower_case(name);
    return shown.starts_with(typed) ? shown : std::string();
}
