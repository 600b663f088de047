// Instructions of x86-64. An instruction is a row of the table below with its operands:
//
//   prefix  REX  0F  opcode  mod/rm  SIB  offset  immediate
//
// of which the row says prefix, the bit of REX for 64 bits, 0F, opcode and the size of what stands
// last; registers and memory give the other bits of REX, mod/rm, SIB and offset. A register has
// four bits: three in the opcode, mod/rm or SIB, the fourth in REX.

#include "native/x86_64.h"

#include <bit>
#include <cstring>

namespace native {

struct form {
    UCH prefix;    // or 0
    UCH wide;      // the bit of REX for 64 bits, or 0
    UCH map;       // 0F before the opcode, or 0
    UCH opcode;    // with room for a register or a condition in its low bits where it has one
    UCH digit;     // what stands in mod/rm where only one operand does
    UCH immediate; // bytes of it
};

struct number {
    constexpr number(reg r) : value(static_cast<UCH>(r)) {}
    constexpr number(freg r) : value(static_cast<UCH>(r)) {}
    constexpr number(int plain) : value(static_cast<UCH>(plain)) {}
    constexpr unsigned low() const { return value & 7; }
    constexpr unsigned high() const { return value >> 3 & 1; }
    UCH value;
};

namespace {

constexpr UCH W = 8;

// clang-format off
//                             prefix  W   0F    opcode  digit  immediate
constexpr form LOAD         = {0,      W,  0,    0x8B,   0,     0};
constexpr form STORE        = {0,      W,  0,    0x89,   0,     0};
constexpr form STORE_VALUE  = {0,      W,  0,    0xC7,   0,     4};
constexpr form STORE_BYTE   = {0,      0,  0,    0xC6,   0,     1};
constexpr form STORE_PAIR   = {0x66,   0,  0,    0xC7,   0,     2};
constexpr form LOAD_BYTE    = {0,      0,  0x0F, 0xB6,   0,     0};
constexpr form ADDRESS      = {0,      W,  0,    0x8D,   0,     0};
constexpr form SET          = {0,      0,  0,    0xB8,   0,     4};
constexpr form SET_WIDE     = {0,      W,  0,    0xB8,   0,     8};
constexpr form SET_ZERO     = {0,      0,  0,    0x33,   0,     0};
constexpr form PUSH         = {0,      0,  0,    0x50,   0,     0};
constexpr form POP          = {0,      0,  0,    0x58,   0,     0};

// Bits 3 to 5 of the opcode are the digit of the same operation with an immediate,
constexpr form ADD          = {0,      W,  0,    0x03,   0,     0};
constexpr form OR           = {0,      W,  0,    0x0B,   0,     0};
constexpr form AND          = {0,      W,  0,    0x23,   0,     0};
constexpr form SUB          = {0,      W,  0,    0x2B,   0,     0};
constexpr form XOR          = {0,      W,  0,    0x33,   0,     0};
constexpr form COMPARE      = {0,      W,  0,    0x3B,   0,     0};
constexpr form APPLY_BYTE   = {0,      W,  0,    0x83,   0,     1};
constexpr form APPLY_LONG   = {0,      W,  0,    0x81,   0,     4};
// but multiplication has forms of its own.
constexpr form MUL          = {0,      W,  0x0F, 0xAF,   0,     0};
constexpr form MUL_BYTE     = {0,      W,  0,    0x6B,   0,     1};
constexpr form MUL_LONG     = {0,      W,  0,    0x69,   0,     4};

constexpr form NOT          = {0,      W,  0,    0xF7,   2,     0};
constexpr form NEGATE       = {0,      W,  0,    0xF7,   3,     0};
constexpr form MUL_WIDE     = {0,      W,  0,    0xF7,   5,     0}; // by AX, to DX and AX
constexpr form INCREMENT    = {0,      W,  0,    0xFF,   0,     0};
constexpr form WIDEN        = {0,      W,  0,    0x99,   0,     0}; // AX to DX and AX
constexpr form DIVIDE       = {0,      W,  0,    0xF7,   7,     0};
constexpr form LEFT         = {0,      W,  0,    0xC1,   4,     1};
constexpr form RIGHT        = {0,      W,  0,    0xC1,   7,     1};
constexpr form LEFT_BY_CX   = {0,      W,  0,    0xD3,   4,     0};
constexpr form RIGHT_BY_CX  = {0,      W,  0,    0xD3,   7,     0};

constexpr form TEST         = {0,      W,  0,    0x85,   0,     0};
constexpr form COMPARE_BYTE = {0,      0,  0,    0x80,   7,     1};
constexpr form COMPARE_PAIR = {0x66,   0,  0,    0x81,   7,     2};
constexpr form ADD_CARRY    = {0,      0,  0,    0x80,   2,     1}; // to a byte
constexpr form SUB_CARRY    = {0,      0,  0,    0x80,   3,     1};
constexpr form SET_IF       = {0,      0,  0x0F, 0x90,   0,     0};

constexpr form JUMP_NEAR    = {0,      0,  0,    0xEB,   0,     1};
constexpr form JUMP         = {0,      0,  0,    0xE9,   0,     4};
constexpr form JUMP_FAR     = {0,      0,  0,    0xFF,   4,     0};
constexpr form BRANCH_NEAR  = {0,      0,  0,    0x70,   0,     1};
constexpr form BRANCH       = {0,      0,  0x0F, 0x80,   0,     4};
constexpr form CALL         = {0,      0,  0,    0xE8,   0,     4};
constexpr form CALL_FAR     = {0,      0,  0,    0xFF,   2,     0};
constexpr form RETURN       = {0,      0,  0,    0xC3,   0,     0};

constexpr form REAL_MOVE    = {0,      0,  0x0F, 0x28,   0,     0};
constexpr form REAL_LOAD    = {0xF2,   0,  0x0F, 0x10,   0,     0};
constexpr form REAL_STORE   = {0xF2,   0,  0x0F, 0x11,   0,     0};
constexpr form REAL_BITS    = {0x66,   W,  0x0F, 0x6E,   0,     0}; // from a register of the others
constexpr form REAL_ZERO    = {0,      0,  0x0F, 0x57,   0,     0};
constexpr form REAL_ADD     = {0xF2,   0,  0x0F, 0x58,   0,     0};
constexpr form REAL_MUL     = {0xF2,   0,  0x0F, 0x59,   0,     0};
constexpr form REAL_SUB     = {0xF2,   0,  0x0F, 0x5C,   0,     0};
constexpr form REAL_DIV     = {0xF2,   0,  0x0F, 0x5E,   0,     0};
constexpr form REAL_ROOT    = {0xF2,   0,  0x0F, 0x51,   0,     0};
constexpr form REAL_COMPARE = {0x66,   0,  0x0F, 0x2E,   0,     0};
constexpr form BITS_RIGHT   = {0x66,   0,  0x0F, 0x73,   2,     1}; // of a float's register
constexpr form BITS_LEFT    = {0x66,   0,  0x0F, 0x73,   6,     1};
constexpr form FROM_WHOLE   = {0xF2,   W,  0x0F, 0x2A,   0,     0};
constexpr form TO_WHOLE     = {0xF2,   W,  0x0F, 0x2C,   0,     0};
// clang-format on

// In the order of `whole` and of `real`.
constexpr form whole_forms[] = {ADD, SUB, AND, OR, XOR, MUL};
constexpr form real_forms[] = {REAL_ADD, REAL_SUB, REAL_MUL, REAL_DIV};
const form &form_of(whole op) { return whole_forms[static_cast<unsigned>(op)]; }
const form &form_of(real op) { return real_forms[static_cast<unsigned>(op)]; }

// What branches and SET_IF add to their opcodes; each is the opposite of its neighbour.
enum condition : UCH {
    IF_BELOW = 2,
    IF_ABOVE_OR_EQUAL = 3,
    IF_EQUAL = 4,
    IF_NOT_EQUAL = 5,
    IF_BELOW_OR_EQUAL = 6,
    IF_ABOVE = 7,
    IF_UNORDERED = 10,
    IF_LESS = 12,
    IF_GREATER_OR_EQUAL = 13,
    IF_LESS_OR_EQUAL = 14,
    IF_GREATER = 15,
};

// How a relation is asked for. A comparison of floats sets the flags of one without signs, and
// those of `equal` and `below` both for a NaN: `above` is false for it, so `less` is `above` with
// the operands in the other order.
struct machine_form {
    condition whole, real;
    bool swapped; // of floats
};
constexpr machine_form relations[] = {
    {IF_EQUAL, IF_EQUAL, false},
    {IF_NOT_EQUAL, IF_NOT_EQUAL, false},
    {IF_LESS, IF_ABOVE, true},
    {IF_GREATER_OR_EQUAL, IF_ABOVE_OR_EQUAL, false},
    {IF_LESS_OR_EQUAL, IF_ABOVE_OR_EQUAL, true},
    {IF_GREATER, IF_ABOVE, false},
    {IF_BELOW, IF_ABOVE, true},
    {IF_ABOVE_OR_EQUAL, IF_ABOVE_OR_EQUAL, false},
    {IF_BELOW_OR_EQUAL, IF_ABOVE_OR_EQUAL, true},
    {IF_ABOVE, IF_ABOVE, false},
};

const machine_form &machine_relation(relation r) { return relations[static_cast<unsigned>(r)]; }
constexpr UCH opposite(UCH condition) { return condition ^ 1; }

constexpr ULO UNBOUND = ~ULO(0);
constexpr unsigned LONGEST = 32; // more than an instruction and what put() spoils behind it

template <class T> constexpr bool fits(SLO value) { return value == static_cast<T>(value); }

// Writes the lowest bytes of a value and gives the place behind them; what stands behind is lost.
inline UCH *put(UCH *code, ULO value, unsigned size)
{
    std::memcpy(code, &value, sizeof value);
    return code + size;
}

constexpr form with_low_bits(form f, unsigned bits)
{
    f.opcode |= bits;
    return f;
}

} // namespace

// -- Bytes

UCH *assembler::room()
{
    if (bytes_.size() < size_ + LONGEST) bytes_.resize(2 * bytes_.size() + 512);
    return &bytes_[size_];
}

void assembler::end(const UCH *code) { size_ = code - bytes_.data(); }

UCH *assembler::head(const form &f, number field, number index, number base)
{
    const unsigned rex = f.wide | field.high() << 2 | index.high() << 1 | base.high();
    UCH *code = room();
    code = put(code, f.prefix, f.prefix != 0);
    code = put(code, 0x40 | rex, rex != 0);
    code = put(code, f.map, f.map != 0);
    return put(code, f.opcode, 1);
}

void assembler::plain(const form &f, SLO immediate)
{
    end(put(head(f, 0, 0, 0), immediate, f.immediate));
}

void assembler::with_register(const form &f, number of, SLO immediate)
{
    end(put(head(with_low_bits(f, of.low()), 0, 0, of), immediate, f.immediate));
}

void assembler::emit(const form &f, number field, number operand, SLO immediate)
{
    UCH *code = head(f, field, 0, operand);
    code = put(code, 0xC0 | (f.digit | field.low()) << 3 | operand.low(), 1);
    end(put(code, immediate, f.immediate));
}

// In mod/rm, the number of SP says that a SIB follows, in which as an index it says that there is
// none; and the number of BP without an offset has another meaning. R12 and R13 have the same bits.
void assembler::emit(const form &f, number field, const memory &operand, SLO immediate)
{
    const number base = operand.base;
    const number index = operand.index == reg::NONE ? reg::SP : operand.index;
    const bool bare = operand.offset == 0 && base.low() != number(reg::BP).low();
    const unsigned mode = bare ? 0 : fits<SCH>(operand.offset) ? 1 : 2;
    const bool sib = operand.index != reg::NONE || base.low() == number(reg::SP).low();
    const unsigned first = mode << 6 | (f.digit | field.low()) << 3;

    UCH *code = head(f, field, index, base);
    code = put(code, first | (sib ? number(reg::SP) : base).low(), 1);
    code = put(code, std::countr_zero(operand.scale) << 6 | index.low() << 3 | base.low(), sib);
    code = put(code, operand.offset, mode * mode); // 0, 1 or 4 bytes
    end(put(code, immediate, f.immediate));
}

// -- Places in the code

label assembler::make_label()
{
    labels_.push_back(UNBOUND);
    return static_cast<label>(labels_.size() - 1);
}

void assembler::align()
{
    constexpr UCH TRAP = 0xCC;
    constexpr ULO BLOCK = 32;
    while (size_ % BLOCK != 0) {
        UCH *code = room();
        *code++ = TRAP;
        end(code);
    }
}

void assembler::bind(label place) { labels_[place] = size_; }

std::span<const UCH> assembler::finish()
{
    for (const use &u : uses_) {
        const int distance = static_cast<int>(labels_[u.place] - u.end);
        std::memcpy(&bytes_[u.end - sizeof distance], &distance, sizeof distance);
    }
    uses_.clear();
    return {bytes_.data(), size_};
}

void assembler::aim(const form &f, label place)
{
    plain(f);
    uses_.push_back({size_, place});
}

// A place that is known and not far takes one byte.
void assembler::aim(const form &near, const form &f, label place)
{
    const ULO end_of_near = size_ + 2;
    const SLO distance = static_cast<SLO>(labels_[place] - end_of_near);
    if (labels_[place] != UNBOUND && fits<SCH>(distance))
        plain(near, distance);
    else
        aim(f, place);
}

void assembler::branch(UCH condition, label place)
{
    aim(with_low_bits(BRANCH_NEAR, condition), with_low_bits(BRANCH, condition), place);
}

// -- Values of 64 bits

void assembler::move(reg to, reg from)
{
    if (to != from) emit(LOAD, to, from);
}

void assembler::move(freg to, freg from)
{
    if (to != from) emit(REAL_MOVE, to, from);
}

void assembler::set(reg to, SLO value)
{
    if (value == 0)
        emit(SET_ZERO, to, to);
    else if (fits<std::uint32_t>(value))
        with_register(SET, to, value);
    else if (fits<std::int32_t>(value))
        emit(STORE_VALUE, 0, to, value);
    else
        with_register(SET_WIDE, to, value);
}

void assembler::set(freg to, DFL value)
{
    const SLO bits = std::bit_cast<SLO>(value);
    if (bits == 0) return emit(REAL_ZERO, to, to);
    set(scratch[0], bits);
    emit(REAL_BITS, to, scratch[0]);
}

void assembler::load(reg to, const memory &from) { emit(LOAD, to, from); }
void assembler::load(freg to, const memory &from) { emit(REAL_LOAD, to, from); }
void assembler::store(const memory &to, reg from) { emit(STORE, from, to); }
void assembler::store(const memory &to, freg from) { emit(REAL_STORE, from, to); }

void assembler::store(const memory &to, SLO value)
{
    if (fits<std::int32_t>(value)) return emit(STORE_VALUE, 0, to, value);
    set(scratch[0], value);
    store(to, scratch[0]);
}

void assembler::address(reg to, const memory &of) { emit(ADDRESS, to, of); }

// -- Bytes and pairs of bytes

void assembler::load_byte(reg to, const memory &from) { emit(LOAD_BYTE, to, from); }
void assembler::store_byte(const memory &to, UCH value) { emit(STORE_BYTE, 0, to, value); }
void assembler::store_pair(const memory &to, USH value) { emit(STORE_PAIR, 0, to, value); }

// -- Whole numbers

void assembler::compute(whole op, reg to, reg by) { emit(form_of(op), to, by); }
void assembler::compute(whole op, reg to, const memory &by) { emit(form_of(op), to, by); }

void assembler::compute(whole op, reg to, SLO by)
{
    if (!fits<std::int32_t>(by)) {
        set(scratch[2], by);
        compute(op, to, scratch[2]);
    } else if (op == whole::MUL) {
        emit(fits<SCH>(by) ? MUL_BYTE : MUL_LONG, to, to, by);
    } else {
        apply(form_of(op), to, by);
    }
}

void assembler::apply(const form &f, reg to, SLO by)
{
    emit(fits<SCH>(by) ? APPLY_BYTE : APPLY_LONG, f.opcode >> 3, to, by);
}

void assembler::multiply_high(reg to, reg from, SLO by)
{
    set(scratch[0], by);
    emit(MUL_WIDE, 0, from);
    move(to, scratch[2]);
}

void assembler::increment(const memory &of) { emit(INCREMENT, 0, of); }
void assembler::negate(reg to) { emit(NEGATE, 0, to); }
void assembler::invert(reg to) { emit(NOT, 0, to); }

void assembler::shift_by(shift op, reg to, reg by)
{
    move(scratch[1], by);
    emit(op == shift::LEFT ? LEFT_BY_CX : RIGHT_BY_CX, 0, to);
}

void assembler::shift_by(shift op, reg to, unsigned by)
{
    emit(op == shift::LEFT ? LEFT : RIGHT, 0, to, by & 63);
}

void assembler::divide(reg to, reg by) { divide(to, by, scratch[0]); }
void assembler::remainder(reg to, reg by) { divide(to, by, scratch[2]); }

void assembler::divide(reg to, reg by, reg from)
{
    move(scratch[0], to);
    plain(WIDEN);
    emit(DIVIDE, 0, by);
    move(to, from);
}

// -- Floats

void assembler::compute(real op, freg to, freg by) { emit(form_of(op), to, by); }
void assembler::compute(real op, freg to, const memory &by) { emit(form_of(op), to, by); }

// Here and below, a register that is only half written is cleared first: nothing has to wait for
// what was in it.
void assembler::square_root(freg to, freg from)
{
    if (to != from) emit(REAL_ZERO, to, to);
    emit(REAL_ROOT, to, from);
}

void assembler::absolute(freg to)
{
    emit(BITS_LEFT, 0, to, 1);
    emit(BITS_RIGHT, 0, to, 1);
}

void assembler::from_whole(freg to, reg from)
{
    emit(REAL_ZERO, to, to);
    emit(FROM_WHOLE, to, from);
}

void assembler::from_whole(freg to, const memory &from)
{
    emit(REAL_ZERO, to, to);
    emit(FROM_WHOLE, to, from);
}

void assembler::to_whole(reg to, freg from) { emit(TO_WHOLE, to, from); }

// -- Comparisons

void assembler::compare_with(reg a, reg b) { emit(COMPARE, a, b); }
void assembler::compare_with(reg a, const memory &b) { emit(COMPARE, a, b); }

void assembler::compare_with(reg a, SLO b)
{
    if (b == 0) return emit(TEST, a, a);
    if (fits<std::int32_t>(b)) return apply(COMPARE, a, b);
    set(scratch[2], b);
    compare_with(a, scratch[2]);
}

template <class T> UCH assembler::compare(relation r, reg a, const T &b)
{
    compare_with(a, b);
    return machine_relation(r).whole;
}

UCH assembler::compare(relation r, freg a, freg b)
{
    const machine_form &way = machine_relation(r);
    emit(REAL_COMPARE, way.swapped ? b : a, way.swapped ? a : b);
    return way.real;
}

void assembler::branch_if(relation r, reg a, reg b, label place)
{
    branch(compare(r, a, b), place);
}

void assembler::branch_if(relation r, reg a, SLO b, label place)
{
    branch(compare(r, a, b), place);
}

void assembler::branch_if(relation r, reg a, const memory &b, label place)
{
    branch(compare(r, a, b), place);
}

void assembler::branch_unless(relation r, reg a, reg b, label place)
{
    branch(opposite(compare(r, a, b)), place);
}

void assembler::branch_unless(relation r, reg a, SLO b, label place)
{
    branch(opposite(compare(r, a, b)), place);
}

void assembler::branch_unless(relation r, reg a, const memory &b, label place)
{
    branch(opposite(compare(r, a, b)), place);
}

// A NaN counts as equal in the flags: the branch on `unordered` comes in front of that on `equal`,
// and leads over it.
void assembler::branch_if(relation r, freg a, freg b, label place)
{
    const UCH condition = compare(r, a, b);
    if (r == relation::NOT_EQUAL) branch(IF_UNORDERED, place);
    if (r != relation::EQUAL) return branch(condition, place);
    plain(with_low_bits(BRANCH_NEAR, IF_UNORDERED));
    const ULO from = size_;
    branch(condition, place);
    bytes_[from - 1] = static_cast<UCH>(size_ - from);
}

void assembler::branch_unless(relation r, freg a, freg b, label place)
{
    if (r == relation::EQUAL) return branch_if(relation::NOT_EQUAL, a, b, place);
    if (r == relation::NOT_EQUAL) return branch_if(relation::EQUAL, a, b, place);
    branch(opposite(compare(r, a, b)), place);
}

void assembler::answer(UCH condition, reg to)
{
    emit(with_low_bits(SET_IF, condition), 0, scratch[0]);
    emit(LOAD_BYTE, to, scratch[0]);
}

void assembler::set_if(relation r, reg to, reg a, reg b) { answer(compare(r, a, b), to); }
void assembler::set_if(relation r, reg to, reg a, SLO b) { answer(compare(r, a, b), to); }
void assembler::set_if(relation r, reg to, reg a, const memory &b) { answer(compare(r, a, b), to); }

// The carry stands for less and for a NaN: `below or equal` without it is equal, and `above` with
// it is not equal.
void assembler::set_if(relation r, reg to, freg a, freg b)
{
    const UCH condition = compare(r, a, b);
    if (r != relation::EQUAL && r != relation::NOT_EQUAL) return answer(condition, to);
    const bool equal = r == relation::EQUAL;
    emit(with_low_bits(SET_IF, equal ? IF_BELOW_OR_EQUAL : IF_ABOVE), 0, scratch[0]);
    emit(equal ? SUB_CARRY : ADD_CARRY, 0, scratch[0], 0);
    emit(LOAD_BYTE, to, scratch[0]);
}

void assembler::branch_if_byte(relation r, const memory &a, UCH b, label place)
{
    emit(COMPARE_BYTE, 0, a, b);
    branch(machine_relation(r).whole, place);
}

void assembler::branch_if_pair(relation r, const memory &a, USH b, label place)
{
    emit(COMPARE_PAIR, 0, a, b);
    branch(machine_relation(r).whole, place);
}

// -- Ways through the code

void assembler::jump(label place) { aim(JUMP_NEAR, JUMP, place); }

// Through the word behind it, so that no register is taken.
void assembler::jump(const void *function)
{
    constexpr unsigned behind = 5; // as mod/rm, with the distance that follows
    UCH *code = head(JUMP_FAR, 0, 0, 0);
    code = put(code, JUMP_FAR.digit << 3 | behind, 1);
    code = put(code, 0, 4);
    end(put(code, std::bit_cast<ULO>(function), 8));
}

void assembler::call(label place) { aim(CALL, place); }

void assembler::call(const void *function)
{
    set(scratch[0], std::bit_cast<SLO>(function));
    emit(CALL_FAR, 0, scratch[0]);
}

void assembler::leave() { plain(RETURN); }
void assembler::push(reg from) { with_register(PUSH, from); }
void assembler::pop(reg to) { with_register(POP, to); }
void assembler::move_stack(int bytes) { compute(whole::ADD, STACK, bytes); }

} // namespace native
