// Where the bytes of a joined text stand in the file that it was read from.
#pragma once

#include <string>
#include <vector>

#include "kestrin/types.h"

struct file_place {
    ULO line, column; // from 1; columns count bytes
};

class file_places {
public:
    // The next line begins at byte `joined` of the joined text, with its byte `column` from 0.
    void add_line(ULO joined, ULO column)
    {
        lines_.push_back({static_cast<std::uint32_t>(joined), static_cast<std::uint32_t>(column)});
    }
    void clear() { lines_.clear(); }
    // The place of byte `joined`; line 0 if no line is known.
    file_place find(ULO joined) const;

    // Where that place of a line that is known stands in the joined text, find() the other way.
    ULO joined_at(file_place place) const
    {
        const line &known = lines_[place.line - 1];
        return known.joined + place.column - 1 - known.column;
    }

private:
    struct line {
        std::uint32_t joined, column;
    };
    std::vector<line> lines_;
};
