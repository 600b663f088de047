// A document of an editor: its text, and places in it as the protocol tells them.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kestrin/types.h"
#include "workshop/lsp_names.h"

// What the characters of a place are counted in.
enum class units { UTF16, UTF8 };

// Lines and characters from 0. Lines end with "\n", "\r\n" or "\r".
struct text_place {
    ULO line = 0, character = 0;
};

class document {
public:
    document(std::string text, SLO number, units counted)
        : version(number), text_(std::move(text)), counted_(counted)
    {
    }

    SLO version; // as the editor counts

    // UTF-8, with any line ends.
    const std::string &text() const { return text_; }
    void replace(std::string text);
    void count_in(units counted) { counted_ = counted; }
    // Puts a text in the place of the bytes from one place to another.
    void change(text_place from, text_place to, std::string_view text);

    // A place beyond the end of its line is that end, one beyond the last line the text's; one in a
    // character is its begin.
    ULO byte_at(text_place place) const;
    text_place place_at(ULO byte) const;
    // The end of the line in which a byte stands.
    ULO line_end(ULO byte) const;

    // What the names in the text are. Valid up to the next change.
    const text_names &names() const;

private:
    void forget();
    void index() const;
    ULO line_of(ULO byte) const;
    ULO end_of_line(ULO line) const;
    ULO units_ahead_of(ULO byte) const;
    ULO byte_of_units(ULO wanted, ULO begin, ULO end) const;

    std::string text_;
    units counted_;
    mutable std::vector<ULO> lines_;  // where they begin; empty: not known yet
    mutable std::vector<ULO> blocks_; // units ahead of each block of the text
    mutable std::unique_ptr<text_names> names_;
};
