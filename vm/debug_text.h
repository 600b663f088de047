// Reading the debug text of an image: in a root the three lists of used names, then the function's
// scoped name, then the names of its variables, separated by blanks.
#pragma once

#include <algorithm>
#include <string_view>

// Cuts the text up to `end` off, and the end itself.
inline std::string_view take_until(std::string_view *text, char end)
{
    const std::string_view field = text->substr(0, text->find(end));
    text->remove_prefix(std::min(field.size() + 1, text->size()));
    return field;
}

// Cuts the first word off `*text`; empty when there is none left.
inline std::string_view take_word(std::string_view *text)
{
    text->remove_prefix(std::min(text->find_first_not_of(' '), text->size()));
    return take_until(text, ' ');
}
