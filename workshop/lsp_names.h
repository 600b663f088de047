// What the names in a text are: which function is called where and which variables are one. The
// text may have any faults.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/names.h"
#include "frontend/scoped.h"
#include "workshop/outline.h"

enum class role : UCH {
    INSTRUCTION,
    DEFINED,  // a function, where its name is given
    CALLED,   // a function
    READ,     // a variable
    ASSIGNED, // a variable
    ARGUMENT  // $1 and its kind
};

using function_index = std::uint32_t;
constexpr function_index PROGRAM = 0; // the text itself is the first of its functions
constexpr function_index NO_FUNCTION = UINT32_MAX;

struct name_use {
    ULO from, size; // bytes of the text
    role what;
    name_id name;                       // folded
    function_index inside;              // whose variables and arguments these are
    function_index meant = NO_FUNCTION; // that is defined or called; none: it is not in the text
};

struct function_text {
    std::string_view name; // as its definition spells it; empty for the program
    ULO name_from;
    piece_index form; // of the definition
    ULO from, to;     // bytes of the form
    function_index around;
    name_id folded;
    ULO arguments = 0;
};

// Whether a token may be the name of a function; of a variable.
bool is_function_name(std::string_view token);
bool is_variable_name(std::string_view token);

class text_names {
public:
    // The text has to live as long.
    explicit text_names(std::string_view text);

    const outline &pieces() const { return pieces_; }
    bool is_balanced() const { return is_balanced_; }
    ULO from(const piece &p) const { return static_cast<ULO>(p.text.data() - text_.data()); }
    ULO to(const piece &p) const { return from(p) + p.text.size(); }
    // In the order of the text.
    const std::vector<name_use> &uses() const { return uses_; }
    const std::vector<function_text> &functions() const { return functions_; }
    // The folded name.
    std::string_view text_of(name_id name) const { return names_.text(name); }

    // The name that touches a byte; NULL if there is none.
    const name_use *use_at(ULO byte) const;
    // The innermost function around a byte.
    function_index function_at(ULO byte) const;
    // Whether a byte stands in a string or a comment.
    bool is_in_text(ULO byte) const;
    // The piece that begins at a byte.
    piece_index piece_from(ULO byte) const;
    // The innermost form around a byte; the whole text, 0, if there is none.
    piece_index form_at(ULO byte) const;
    // Whether both are the same function, variable, argument or instruction.
    bool are_one(const name_use &a, const name_use &b) const;
    // A function of the text's own level by its folded name.
    function_index find(std::string_view folded) const;
    bool is_within(function_index inner, function_index outer) const;
    // The first word of a form; NO_PIECE if it has none.
    piece_index word_of_form(piece_index form) const;

    // The code that follows in the same form, or is there.
    piece_index next_code(piece_index n) const;

private:
    struct open_form {
        piece_index next; // piece to be looked at
        bool is_definition;
        ULO mark; // of the functions known ahead of it
    };
    void walk();
    void enter_form(piece_index form);
    void define(piece_index form, piece_index name);
    void leave_form(const open_form &left);
    void add_word(piece_index word);
    void add_value(piece_index token, role what);
    name_use &add(piece_index token, role what, name_id name);
    name_id fold(std::string_view token);
    void find_missing();

    std::string_view text_;
    bool is_balanced_ = true;
    outline pieces_;
    name_table names_;
    std::vector<name_use> uses_;
    std::vector<function_text> functions_;
    std::vector<open_form> open_;
    function_index inside_ = PROGRAM;
    scoped<function_index> known_; // functions by name, plus one
};
