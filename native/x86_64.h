// The encoder for x86-64: instructions of the machine as bytes, and nothing about the language.
//
// What the lowering asks for is what most processors have: whole numbers of 64 bits and doubles in
// registers, a memory operand of a base, an index and an offset, comparisons with a branch. An
// encoder for another processor has the same class under the same names.
//
// A register of the lists below is free for its use; the encoder takes `scratch` ones where a
// comment says so. Nothing of a thread or of the time of the run is in the code but addresses of
// functions and constants.
#pragma once

#include <span>
#include <vector>

#include "kestrin/types.h"

namespace native {

// Registers of whole numbers and of floats by their numbers in the machine.
enum class reg : UCH { AX, CX, DX, BX, SP, BP, SI, DI, R8, R9, R10, R11, R12, R13, R14, R15, NONE };
enum class freg : UCH { X0, X1, X2, X3, X4, X5, X6, X7, X8, X9, X10, X11, X12, X13, X14, X15 };

constexpr reg STACK = reg::SP;
constexpr reg MACHINE = reg::BX; // the thread's record, and
constexpr reg FRAME = reg::R12;  // where variables have their homes: both survive calls
constexpr reg RESULT = reg::AX;  // of a call
constexpr freg REAL_RESULT = freg::X0;
inline constexpr reg scratch[] = {reg::AX, reg::CX, reg::DX};
inline constexpr freg real_scratch[] = {freg::X6, freg::X7};
inline constexpr reg arguments[] = {reg::DI, reg::SI, reg::DX, reg::CX, reg::R8, reg::R9};
// For variables: a call keeps these.
inline constexpr reg kept[] = {reg::BP, reg::R13, reg::R14, reg::R15};
// For what is in the middle of an expression: a call loses these.
inline constexpr reg temporaries[] = {reg::SI, reg::DI, reg::R8, reg::R9, reg::R10, reg::R11};
inline constexpr freg real_temporaries[] = {freg::X0, freg::X1, freg::X2,
                                            freg::X3, freg::X4, freg::X5};
// For variables: a call loses these.
inline constexpr freg real_variables[] = {freg::X8,  freg::X9,  freg::X10, freg::X11,
                                          freg::X12, freg::X13, freg::X14, freg::X15};

// A word, or what stands there: base + index * scale + offset. Scale 1, 2, 4 or 8; the index is
// not STACK.
struct memory {
    reg base;
    int offset = 0;
    reg index = reg::NONE;
    UCH scale = 1;
};

enum class whole : UCH { ADD, SUB, AND, OR, XOR, MUL };
enum class real : UCH { ADD, SUB, MUL, DIV };
enum class shift : UCH { LEFT, RIGHT }; // to the right with the sign
enum class relation : UCH {
    EQUAL,
    NOT_EQUAL,
    LESS,
    GREATER_OR_EQUAL,
    LESS_OR_EQUAL,
    GREATER,
    BELOW, // without signs; not for floats
    ABOVE_OR_EQUAL,
    BELOW_OR_EQUAL,
    ABOVE,
};

using label = unsigned;

struct form;   // of an instruction: a row of the encoder's table
struct number; // of a register of either kind

class assembler {
public:
    // -- Places in the code. A label is bound once, before or behind its uses.
    label make_label();
    void bind(label place);
    // Goes on at a multiple of 32 bytes, behind bytes that must not be reached: a short loop that
    // lies across such a bound takes twice its time.
    void align();
    // Ends the code: every use of a label gets its distance. The bytes stay until the assembler
    // ends. The code can stand at any address.
    std::span<const UCH> finish();
    ULO size() const { return size_; }
    ULO offset_of(label place) const { return labels_[place]; }

    // -- Values of 64 bits
    void move(reg to, reg from);
    void move(freg to, freg from);
    void set(reg to, SLO value);  // the shortest form; no flags are held over calls
    void set(freg to, DFL value); // takes scratch[0]
    void load(reg to, const memory &from);
    void load(freg to, const memory &from);
    void store(const memory &to, reg from);
    void store(const memory &to, freg from);
    void store(const memory &to, SLO value); // takes scratch[0] where it has more than 32 bits
    void address(reg to, const memory &of);

    // -- Bytes and pairs of bytes
    void load_byte(reg to, const memory &from); // the rest of the register is zero
    void store_byte(const memory &to, UCH value);
    void store_pair(const memory &to, unsigned short value);

    // -- Whole numbers: `to` = `to` op `by`, wrapping at 64 bits
    void compute(whole op, reg to, reg by);
    void compute(whole op, reg to, const memory &by);
    void compute(whole op, reg to, SLO by); // takes scratch[2] where it has more than 32 bits
    // The upper 64 bits of a product of 128. `from` is not in scratch; takes scratch[0] and [2].
    void multiply_high(reg to, reg from, SLO by);
    void increment(const memory &of);
    void negate(reg to);
    void invert(reg to);
    // By the low six bits of `by`. The first takes scratch[1], and `to` is not it.
    void shift_by(shift op, reg to, reg by);
    void shift_by(shift op, reg to, unsigned by);
    // Cut toward zero; the divisor is not 0 and not in scratch. Take scratch[0] and [2]. The
    // smallest integer by -1 ends in the processor's trap.
    void divide(reg to, reg by);
    void remainder(reg to, reg by);

    // -- Floats: `to` = `to` op `by`
    void compute(real op, freg to, freg by);
    void compute(real op, freg to, const memory &by);
    void square_root(freg to, freg from);
    void absolute(freg to); // without its sign; a NaN too
    void from_whole(freg to, reg from);
    void from_whole(freg to, const memory &from);
    void to_whole(reg to, freg from); // toward zero; the smallest integer for what does not fit

    // -- Comparisons. For floats a relation with a NaN is false, but NOT_EQUAL is true.
    // Go on at `place` where `a` relates so to `b`,
    void branch_if(relation r, reg a, reg b, label place);
    void branch_if(relation r, reg a, SLO b, label place); // takes scratch[2] for large numbers
    void branch_if(relation r, reg a, const memory &b, label place);
    void branch_if(relation r, freg a, freg b, label place);
    // or where it does not (with a NaN too, unless r is NOT_EQUAL).
    void branch_unless(relation r, reg a, reg b, label place);
    void branch_unless(relation r, reg a, SLO b, label place);
    void branch_unless(relation r, reg a, const memory &b, label place);
    void branch_unless(relation r, freg a, freg b, label place);
    // 1 where it does, else 0. Takes scratch[0]; `to` may be a or b.
    void set_if(relation r, reg to, reg a, reg b);
    void set_if(relation r, reg to, reg a, SLO b);
    void set_if(relation r, reg to, reg a, const memory &b);
    void set_if(relation r, reg to, freg a, freg b);
    // For EQUAL and NOT_EQUAL.
    void branch_if_byte(relation r, const memory &a, UCH b, label place);
    void branch_if_pair(relation r, const memory &a, unsigned short b, label place);

    // -- Ways through the code
    void jump(label place);
    void jump(const void *function); // takes no register
    void call(label place);
    void call(const void *function); // takes scratch[0]
    void leave();                    // returns to the caller
    void push(reg from);
    void pop(reg to);
    void move_stack(int bytes); // down for a negative number

private:
    struct use {
        ULO end; // behind the distance, which is counted from there
        label place;
    };

    UCH *room(); // the end of the code, with space for an instruction
    void end(const UCH *code);

    // An instruction: what stands before its operands; all of it without a register, with one in
    // its opcode, and with two operands, the first a register or 0, the second also memory.
    UCH *head(const form &f, number field, number index, number base);
    void plain(const form &f, SLO immediate = 0);
    void with_register(const form &f, number of, SLO immediate = 0);
    void emit(const form &f, number field, number operand, SLO immediate = 0);
    void emit(const form &f, number field, const memory &operand, SLO immediate = 0);

    void apply(const form &f, reg to, SLO by); // of at most 32 bits
    void divide(reg to, reg by, reg from);
    void aim(const form &f, label place);
    void aim(const form &near, const form &f, label place);
    void branch(UCH condition, label place);
    void answer(UCH condition, reg to);

    // Set the flags; the second ones give the condition that the relation then is.
    void compare_with(reg a, reg b);
    void compare_with(reg a, SLO b);
    void compare_with(reg a, const memory &b);
    template <class T> UCH compare(relation r, reg a, const T &b);
    UCH compare(relation r, freg a, freg b);

    std::vector<UCH> bytes_;  // with room behind the code
    ULO size_ = 0;            // of the code
    std::vector<ULO> labels_; // where each stands
    std::vector<use> uses_;
};

} // namespace native
