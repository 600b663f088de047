// From words of linked code back to the nodes that they were compiled from.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "driver/session.h"
#include "workshop/fault.h"

// What a node is and where it came from. Without a file, or in line 0: nothing is known of that.
struct origin {
    const source *file = nullptr;
    file_place at = {0, 0};
    name_id name = NO_NAME;
    bool is_known() const { return file != nullptr && at.line != 0; }
    ULO line() const { return file->number_of(at.line); }
    std::string_view text() const { return name == NO_NAME ? "" : names().text(name); }
};

// A function of a program or of its global functions, by its linked image.
struct function_origin {
    const ULO *image;
    std::string name;
    const source *file;
    file_place at; // of its definition; line 0: not known
};

class origins {
public:
    // The session's places say what of the code comes from where. `set` is the source of the global
    // functions. All three outlive this.
    origins(const session &s, const source &from, const source &set)
        : session_(s), program_(from), set_(set)
    {
    }

    // Of the last node that begins at the word or in front of it: a handler tells the word behind
    // its own, which may be the first behind the code, or one of its operands.
    origin find(const ULO *word) const;
    std::vector<function_origin> functions() const;

private:
    struct compiled {
        const CHR *code;
        const std::vector<code_place> *places;
        const tree &parsed;
        const source &file;
    };
    compiled program() const;
    compiled set() const;
    static const code_place *place_in(const compiled &code, const ULO *word);

    const session &session_;
    const source &program_;
    const source &set_;
};
