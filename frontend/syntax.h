// Syntax errors: the code and message that a pass leaves in the thread's record, for the driver to
// print or for mapcar to return.
#pragma once

#include <initializer_list>
#include <string_view>

#include "kestrin/types.h"

enum class syntax {
#define SYNTAX(id, code, text) id,
#include "frontend/syntax.def"
#undef SYNTAX
};

// Status of a pass that has left a syntax error.
constexpr SLO FAILED = -1;

struct syntax_row {
    UCH code;
    std::string_view text;
};
inline constexpr syntax_row syntax_rows[] = {
#define SYNTAX(id, code, text) {code, text},
#include "frontend/syntax.def"
#undef SYNTAX
};

constexpr std::size_t count_places(std::string_view text)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i + 1 < text.size(); i++) count += text[i] == '{' && text[i + 1] == '}';
    return count;
}

// Leaves the row's code and its text with the parts filled in. Returns FAILED.
SLO leave_syntax_error(const syntax_row &row, std::initializer_list<std::string_view> parts);

template <syntax id, class... Parts> SLO syntax_error(const Parts &...parts)
{
    constexpr const syntax_row &row = syntax_rows[static_cast<int>(id)];
    static_assert(count_places(row.text) == sizeof...(Parts));
    return leave_syntax_error(row, {std::string_view(parts)...});
}
