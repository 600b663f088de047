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

// Registers by their numbers in the machine: those of whole numbers, then those of floats.
enum class reg : UCH {
    // clang-format off
    AX, CX, DX, BX, SP, BP, SI, DI, R8, R9, R10, R11, R12, R13, R14, R15,
    X0, X1, X2, X3, X4, X5, X6, X7, X8, X9, X10, X11, X12, X13, X14, X15,
    // clang-format on
    NONE
};
constexpr bool is_real(reg r) { return r >= reg::X0 && r != reg::NONE; }

constexpr reg STACK = reg::SP;
constexpr reg MACHINE = reg::BX; // the thread's record, and
constexpr reg FRAME = reg::R12;  // where variables have their homes: both survive calls
constexpr reg RESULT = reg::AX;  // of a call
constexpr reg REAL_RESULT = reg::X0;
inline constexpr reg scratch[] = {reg::AX, reg::CX, reg::DX};
constexpr reg REAL_SCRATCH = reg::X6;
inline constexpr reg arguments[] = {reg::DI, reg::SI, reg::DX, reg::CX, reg::R8, reg::R9};
// For variables: a call keeps these.
inline constexpr reg kept[] = {reg::BP, reg::R13, reg::R14, reg::R15};
// For what is in the middle of an expression: a call loses these.
inline constexpr reg temporaries[] = {reg::SI, reg::DI, reg::R8, reg::R9, reg::R10};
inline constexpr reg real_temporaries[] = {reg::X0, reg::X1, reg::X2, reg::X3, reg::X4};
// For variables: a call loses these.
constexpr reg LOST = reg::R11;
inline constexpr reg real_variables[] = {reg::X8,  reg::X9,  reg::X10, reg::X11,
                                         reg::X12, reg::X13, reg::X14, reg::X15};

// A word, or what stands there: base + index * scale + offset. Scale 1, 2, 4 or 8; the index is
// not STACK.
struct memory {
    reg base;
    int offset = 0;
    reg index = reg::NONE;
    UCH scale = 1;
};

// What an instruction takes besides its first register: a number, a register, or 64 bits in memory.
// The number of a float is its bits.
struct operand {
    operand(SLO given) : number(given) {}
    operand(reg r) : kind(REGISTER), in(r) {}
    operand(const memory &m) : kind(MEMORY), at(m) {}

    enum { NUMBER, REGISTER, MEMORY } kind = NUMBER;
    SLO number = 0;
    reg in = reg::NONE;
    memory at = {STACK};
};

enum class operation : UCH { ADD, SUB, MUL, AND, OR, XOR, DIV };
enum class shift : UCH { LEFT, RIGHT }; // to the right with the sign
// By their numbers in the machine: each is the opposite of its neighbour. BELOW and so on compare
// without signs, and are not for floats.
enum class relation : UCH {
    // clang-format off
    BELOW = 2, ABOVE_OR_EQUAL, EQUAL, NOT_EQUAL, BELOW_OR_EQUAL, ABOVE, UNORDERED = 10,
    LESS = 12, GREATER_OR_EQUAL, LESS_OR_EQUAL, GREATER,
    // clang-format on
};

using label = unsigned;

struct form; // of an instruction: a row of the encoder's table

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

    // -- Values of 64 bits. From a register of whole numbers to one of floats they go as they are.
    void move(reg to, const operand &from);            // a number for a float takes scratch[0]
    void store(const memory &to, const operand &from); // a number has at most 32 bits
    void address(reg to, const memory &of);
    // Between a whole number and a float: toward zero; the smallest integer for what does not fit.
    void convert(reg to, reg from);

    // -- Bytes and pairs of bytes
    void store_byte(const memory &to, UCH value);
    void store_pair(const memory &to, USH value);

    // -- `to` = `to` op `by`, whole numbers wrapping at 64 bits. A large number takes scratch[2],
    // that of a float REAL_SCRATCH and scratch[0]. Floats have no OR and XOR, whole numbers no DIV.
    void compute(operation op, reg to, const operand &by);
    void negate(reg to);
    void square_root(reg to);
    // By the low six bits. A register takes scratch[1], and `to` is not it.
    void shift_by(shift op, reg to, const operand &by);
    // The upper 64 bits of a product of 128. `from` is not in scratch; takes scratch[0] and [2].
    void multiply_high(reg to, reg from, SLO by);
    // Cut toward zero; the divisor is not 0 and not in scratch. Take scratch[0] and [2]. The
    // smallest integer by -1 ends in the processor's trap.
    void divide(reg to, reg by);
    void remainder(reg to, reg by);

    // -- Goes on at `place` where `a` relates so to `b`, or with `when` false where it does not.
    // For floats a relation with a NaN is false, but NOT_EQUAL is true. A large number takes
    // scratch[2], what is no register for a float REAL_SCRATCH and scratch[0].
    void branch_if(relation r, reg a, const operand &b, label place, bool when = true);
    // For EQUAL and NOT_EQUAL.
    void branch_if_byte(relation r, const memory &a, UCH b, label place);
    void branch_if_pair(relation r, const memory &a, USH b, label place);

    // -- Ways through the code
    void jump(label place);
    void jump(const void *function); // takes scratch[0]
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
    UCH *head(const form &f, reg field, reg index, reg base);
    void plain(const form &f, SLO immediate = 0);
    void with_register(const form &f, reg of, SLO immediate = 0);
    void emit(const form &f, reg field, const operand &second, SLO immediate = 0);

    void set(reg to, SLO value);               // the shortest form; no flags are held over it
    void apply(const form &f, reg to, SLO by); // of at most 32 bits
    void divide(reg to, reg by, reg from);
    void compare(reg a, const operand &b);
    void aim(const form &f, label place);
    void aim(const form &near, const form &f, label place);
    void branch(relation r, label place);
    void branch_real(relation r, reg a, reg b, label place, bool when);

    std::vector<UCH> bytes_;  // with room behind the code
    ULO size_ = 0;            // of the code
    std::vector<ULO> labels_; // where each stands
    std::vector<use> uses_;
};

} // namespace native
