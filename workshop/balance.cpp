// One scan of the text, line by line as the reader sees it.

#include "workshop/balance.h"

namespace {

struct bracket {
    file_place at;
    CHR letter;
};

// The parentheses outside strings and comments.
std::vector<bracket> brackets_of(std::string_view text)
{
    std::vector<bracket> found;
    ULO line = 1, begin = 0;
    bool in_string = false;
    for (ULO i = 0; i < text.size(); i++) {
        const CHR c = text[i];
        if (c == '\n') {
            line++;
            begin = i + 1;
        } else if (c == '"')
            in_string = !in_string;
        else if (in_string)
            i += c == '\\';
        else if (c == '#') {
            while (i + 1 < text.size() && text[i + 1] != '\n') i++;
        } else if (c == '(' || c == ')')
            found.push_back({{line, i - begin + 1}, c});
    }
    return found;
}

} // namespace

std::vector<fault> find_unbalanced(std::string_view text)
{
    std::vector<fault> faults;
    std::vector<file_place> open;
    for (const bracket &b : brackets_of(text)) {
        if (b.letter == '(')
            open.push_back(b.at);
        else if (open.empty())
            faults.push_back({b.at, "`)' closes nothing"});
        else
            open.pop_back();
    }
    for (const file_place &at : open) faults.push_back({at, "`(' is never closed"});
    return faults;
}
