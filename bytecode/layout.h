// Reading compiled bytecode that may be anything: words, references and headers of images, never
// outside the code. The verifier and the decompiler stand on it; both claim the words that they
// have made sense of, so that work is bounded by the size of the code however its references run.
#pragma once

#include <cstring>
#include <string_view>
#include <vector>

#include "kestrin/types.h"

// Code as words; what does not fill a word at its end is not seen. Needs no alignment.
class code_words {
public:
    explicit code_words(std::string_view code) : code_(code) {}
    ULO size() const { return code_.size() / sizeof(ULO); }
    ULO operator[](ULO i) const // i < size()
    {
        ULO word = 0;
        memcpy(&word, code_.data() + i * sizeof word, sizeof word);
        return word;
    }
    // `bytes` bytes from word `i` on; they must lie in the code.
    std::string_view text(ULO i, ULO bytes) const { return code_.substr(i * sizeof(ULO), bytes); }
    // Follows the reference in word `i` to a later word below `limit`, which is size() at most.
    bool follow(ULO i, ULO limit, ULO *target) const
    {
        if (i >= limit) return false;
        const ULO distance = (*this)[i];
        *target = i + distance;
        return distance > 0 && distance < limit - i;
    }

private:
    std::string_view code_;
};

// Words that belong to something.
class word_claims {
public:
    explicit word_claims(ULO words) : taken_(words) {}
    bool is_free(ULO word) const { return word < taken_.size() && !taken_[word]; }
    // Takes a run of words. False, with some of them perhaps taken, if not all are free.
    bool take(ULO from, ULO count)
    {
        if (from > taken_.size() || count > taken_.size() - from) return false;
        for (ULO i = from; i < from + count; i++) {
            if (taken_[i]) return false;
            taken_[i] = true;
        }
        return true;
    }

private:
    std::vector<bool> taken_;
};

// A function image whose header, table of UDFs, debug text and main node stand in this order.
struct image_layout {
    ULO start = 0, slots = 0, arguments = 0, udfs = 0;
    ULO table_end = 0, debug_end = 0; // debug text: the words from the one to the other
    ULO main_node = 0;
};

// Reads the image at word `start`, all of which lies below word `end`.
bool read_layout(const code_words &code, ULO start, ULO end, image_layout *image);

// The debug text up to its NUL; empty if there is none.
std::string_view debug_text(const code_words &code, const image_layout &image);

// Words behind word `at` that a string constant's length word there asks for; 0 if it runs out of
// the code below `end`.
ULO words_of_string(const code_words &code, ULO at, ULO end);
