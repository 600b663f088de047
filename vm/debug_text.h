// Reading the debug text of an image: in a root the three lists of used names, then the function's
// scoped name, then the names of its variables, separated by blanks.
#pragma once

#include <string_view>

// Cuts the text up to `end` off, and the end itself.
inline std::string_view take_until(std::string_view *text, char end)
{
    const auto at = text->find(end);
    const std::string_view field = text->substr(0, at);
    *text = at == text->npos ? std::string_view() : text->substr(at + 1);
    return field;
}

// Cuts the first word off `*text`; empty when there is none left.
inline std::string_view take_word(std::string_view *text)
{
    while (text->starts_with(' ')) text->remove_prefix(1);
    return take_until(text, ' ');
}
