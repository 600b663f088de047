// A region: the loop or the function that becomes native code, as a tree of what its nodes do.
//
// The items stand in the order of the text, each in front of its operands, in one vector. What the
// lowering has no code for is OTHER: such a node is evaluated by its handler, and its operands are
// items only so that it is known which variables they read and assign.
#pragma once

#include <vector>

#include "kestrin/value.h"
#include "native/x86_64.h"
#include "vm/handler.h"
#include "vm/text.h"

namespace native {

enum class work : UCH {
    CONSTANT,
    READ,
    NUMERIC,
    COMPARE,
    BOTH,   // AND
    EITHER, // OR
    CAST,
    SETQ,
    INDEX,
    ARSETQ,
    IF,
    WHILE,
    FOR, // operands: start, increment, end, body
    PROGN,
    BREAK,
    CALL,
    OTHER
};

// What an operation on numbers becomes.
enum class way : UCH {
    CALL,
    COMPUTE, // by one instruction
    WITH_NUMBER,
    SHIFT_LEFT,
    SHIFT_RIGHT,
    NEGATE,
    ABSOLUTE,
    NOT, // which turns a condition around
    QUOTIENT,
    REMAINDER,
    DIVIDE_REAL,
    SQUARE_ROOT
};

constexpr bool is_loop(work w) { return w == work::WHILE || w == work::FOR; }
// Its value is that of an operand.
constexpr bool is_branching(work w) { return w == work::IF || w == work::PROGN; }

// A set of the region's variables, as bits of their numbers in the region.
using variable_set = ULO;
constexpr ULO MOST_VARIABLES = 64;
// Arguments of a function that can be given as numbers.
constexpr ULO MOST_GIVEN = 12;

// In place of a type while none is known.
constexpr CHR OPEN = '?';
constexpr bool is_number(CHR letter) { return letter == 'I' || letter == 'F'; }

// The type of a value. `certain`: no other can come, but an error.
struct value_type {
    CHR letter = 0; // 'I' or 'F'; 0: anything
    bool certain = false;
    bool operator==(const value_type &) const = default;
};

struct direct_function;

struct item {
    work what = work::OTHER;
    CHR letter = 0; // of CONSTANT, CAST, a proved COMPARE; of what OTHER gives; of the member of
                    // INDEX or ARSETQ, most likely; 0 not known
    bool mixed = false;       // INDEX, ARSETQ: the array is most likely no typed one
    relation comparison = {}; // of COMPARE
    way how = way::CALL;      // of NUMERIC, and
    operation what_to_compute = {};
    SLO number = 0;          // with it
    UCH variable = 0;        // of READ, SETQ, INDEX, ARSETQ, FOR: its number in the region
    bool texts = false;      // COMPARE: of two texts that stand somewhere
    bool pure = false;       // may be evaluated again: it changes nothing and calls nobody
    bool framed = false;     // CALL: the function gets a frame, and numbers that are given
    bool by_handler = false; // the lowering leaves it to its handler, with all that is in it
    unsigned end = 0;        // of its subtree: where the next sibling stands
    unsigned parent = 0;
    ULO place = 0;      // among the parent's operands
    unsigned loops = 0; // around it, in the region
    const ULO *node = nullptr;
    const ULO *word = nullptr;               // the operand word that leads to it
    const numeric_row *row = nullptr;        // of NUMERIC
    const direct_function *callee = nullptr; // of CALL: native code that takes numbers in registers
    variable_set reads = 0, assigns = 0;
    value_type type = {}; // of its value
    UCH temporaries = 0;  // registers that its evaluation takes, at most

    bool calls_operation() const { return what == work::NUMERIC && how == way::CALL; }
};

// A function that takes numbers in registers and answers one.
struct direct_function {
    const ULO *image = nullptr;
    std::vector<CHR> arguments = {}; // their types, 'I' or 'F'
    CHR result = 0;
    const void *code = nullptr; // NULL while it is being made
    bool operator==(const direct_function &) const = default;
};

// A variable of the region.
struct local {
    ULO number = 0;        // in the frame
    CHR type = 0;          // 'I' or 'F' throughout the region; 0: its record tells; OPEN
    CHR observed = 0;      // type of what it holds when the code is made, 'A' for an array
    CHR guess = 0;         // type of a single value that it will hold, most likely
    CHR array = 0;         // class of the array that it holds or will hold
    CHR first = 0;         // type of its member 0, and
    CHR member = 0;        // of the others, most likely
    bool assigned = false; // in the region
    bool late = false;     // it is assigned before it is read
    reg in = reg::NONE;    // where it is kept, if not in its record
    ULO weight = 0;        // how often it is used, by estimate
    bool kept() const { return in != reg::NONE; }
};

// A loop; the body of a function in its frame; a function of numbers that needs no frame.
enum class shape : UCH { LOOP, BODY, DIRECT };

struct region {
    shape kind = shape::LOOP;
    const ULO *image = nullptr;          // of the function, or that the loop stands in
    const kestrin_data *frame = nullptr; // what the variables hold; NULL: not known
    direct_function *self = nullptr;     // of DIRECT
    std::vector<item> items = {};
    std::vector<local> locals = {};
    variable_set arguments = 0; // of a function

    item &operator[](unsigned i) { return items[i]; }
    const item &operator[](unsigned i) const { return items[i]; }
    // The k-th operand of an item.
    unsigned operand(unsigned i, unsigned k) const
    {
        unsigned at = i + 1;
        while (k-- > 0) at = items[at].end;
        return at;
    }
};

// Whether INDEX or ARSETQ is for member 0, the record's own value.
inline bool is_first(const region &r, unsigned i)
{
    return r[i + 1].what == work::CONSTANT && r[i + 1].letter == 'I' && r[i + 1].node[1] == 0;
}

// Whether an equality of texts asks a variable for its type, as (== (type x) "S") does.
inline bool is_type_test(const region &r, unsigned i)
{
    const ULO *asked = r[i + 1].node, *letter = r[r.operand(i, 1)].node;
    return is_node(asked, func__type) && r[i + 2].what == work::READ &&
           is_node(letter, func__dummy_s) && letter[1] == 1;
}

constexpr variable_set bit(unsigned variable) { return variable_set(1) << variable; }

// Reads the tree at `root`, a linked node, by the types that stand in the frame. False if there is
// a node of which nothing is known, or too many nodes or variables.
bool read_region(region *r, const ULO *root);

// Guesses what the members of arrays are, for which the code asks before it relies on it.
void guess_members(region *r);

// Finds out the types of variables and values, and what is left to handlers. False if the region is
// not worth code of its own, or can't have its shape.
bool settle_types(region *r);

// The function that a CALL with operands of these types goes to without a frame; it may be made for
// that. NULL: to its handler.
const direct_function *find_callee(const region &r, unsigned i);

// The type of what a function answers, most likely; 0 not known.
CHR answer_of(const ULO *image);

// Gives variables their registers.
void allot_registers(region *r);

// The first word of a linked node as the linker has left it, whatever native code stands there.
fcall linked_handler(const ULO *node);

} // namespace native
