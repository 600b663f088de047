// The classes in which editors show the words of the language. What a word is, is told by its row
// of the instruction table; an editor's file says what each class looks like.
#pragma once

#include <string_view>

#include "frontend/words.h"

struct word_class {
    std::string_view name;
    group_set groups; // of the control instructions in it
};

// A word that is in none of these groups is an instruction, or an operator if it has no letter.
inline constexpr word_class word_classes[] = {
    {"control", in(GROUP_PROGN) | in(GROUP_IF) | in(GROUP_WHILE) | in(GROUP_FOR) | in(GROUP_BREAK) |
                    in(GROUP_EXIT)},
    {"definition", in(GROUP_DEFUN)},
    {"assignment", ASSIGNS},
    {"comment", in(GROUP_COMMENTS)},
    {"operator", 0},
    {"instruction", 0},
};

// The class of a mnemonic, or of a first word that is one in some case of letters.
inline std::string_view class_of_word(std::string_view word, group_set groups)
{
    for (const word_class &c : word_classes)
        if (c.groups & groups) return c.name;
    const CHR first = word.front();
    const bool is_letter = (first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z');
    return is_letter ? "instruction" : "operator";
}
