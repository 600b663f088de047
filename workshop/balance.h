// Parentheses without their partners: where one is missing or too much, judged by the layout of the
// lines and by what the checker would say of the text with that one change.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "workshop/fault.h"

// A text in which parentheses are put, or made blanks, so that it comes into balance.
struct mended_text {
    std::string text;
    std::vector<file_place> put_in; // each in the text as it was then
    std::vector<file_place> closed; // forms of the file that end where they were made to

    // Where the file has what now stands at this place.
    file_place in_file(file_place at) const;
};

// Mends the parentheses of a text, one by one, and adds a fault for each line where they were, at
// the place of the change in the file; none if they are in balance. Lines keep their numbers.
// Quotes have to be in balance in every line. `count_faults` says how much is wrong with a text in
// balance. Returns whether the text is in balance now: one with too many faults is left.
bool mend_balance(mended_text *file, std::vector<fault> *faults,
                  const std::function<ULO(const std::string &)> &count_faults);
