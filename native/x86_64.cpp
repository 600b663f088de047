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

namespace {

constexpr UCH W = 8;

constexpr unsigned low(reg r) { return static_cast<unsigned>(r) & 7; }
constexpr unsigned high(reg r) { return static_cast<unsigned>(r) >> 3 & 1; }
constexpr reg NO_FIELD = reg(0); // where only the digit stands in mod/rm

// clang-format off
//                             prefix  W   0F    opcode  digit  immediate
constexpr form LOAD         = {0,      W,  0,    0x8B,   0,     0};
constexpr form STORE        = {0,      W,  0,    0x89,   0,     0};
constexpr form STORE_VALUE  = {0,      W,  0,    0xC7,   0,     4};
constexpr form STORE_BYTE   = {0,      0,  0,    0xC6,   0,     1};
constexpr form STORE_PAIR   = {0x66,   0,  0,    0xC7,   0,     2};
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

constexpr form NEGATE       = {0,      W,  0,    0xF7,   3,     0};
constexpr form MUL_WIDE     = {0,      W,  0,    0xF7,   5,     0}; // by AX, to DX and AX
constexpr form WIDEN        = {0,      W,  0,    0x99,   0,     0}; // AX to DX and AX
constexpr form DIVIDE       = {0,      W,  0,    0xF7,   7,     0};
constexpr form LEFT         = {0,      W,  0,    0xC1,   4,     1};
constexpr form RIGHT        = {0,      W,  0,    0xC1,   7,     1};
constexpr form LEFT_BY_CX   = {0,      W,  0,    0xD3,   4,     0};
constexpr form RIGHT_BY_CX  = {0,      W,  0,    0xD3,   7,     0};

constexpr form TEST         = {0,      W,  0,    0x85,   0,     0};
constexpr form COMPARE_BYTE = {0,      0,  0,    0x80,   7,     1};
constexpr form COMPARE_PAIR = {0x66,   0,  0,    0x81,   7,     2};

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
constexpr form REAL_AND     = {0,      0,  0x0F, 0x54,   0,     0};
constexpr form REAL_ZERO    = {0,      0,  0x0F, 0x57,   0,     0};
constexpr form REAL_ADD     = {0xF2,   0,  0x0F, 0x58,   0,     0};
constexpr form REAL_MUL     = {0xF2,   0,  0x0F, 0x59,   0,     0};
constexpr form REAL_SUB     = {0xF2,   0,  0x0F, 0x5C,   0,     0};
constexpr form REAL_DIV     = {0xF2,   0,  0x0F, 0x5E,   0,     0};
constexpr form REAL_ROOT    = {0xF2,   0,  0x0F, 0x51,   0,     0};
constexpr form REAL_COMPARE = {0x66,   0,  0x0F, 0x2E,   0,     0};
constexpr form FROM_WHOLE   = {0xF2,   W,  0x0F, 0x2A,   0,     0};
constexpr form TO_WHOLE     = {0xF2,   W,  0x0F, 0x2C,   0,     0};
// clang-format on

// In the order of `operation`; what there is not has no form.
constexpr form whole_forms[] = {ADD, SUB, MUL, AND, OR, XOR};
constexpr form NONE = {};
constexpr form real_forms[] = {REAL_ADD, REAL_SUB, REAL_MUL, REAL_AND, NONE, NONE, REAL_DIV};

const form &form_to_load(reg to, const operand &from)
{
    if (!is_real(to)) return LOAD;
    if (from.kind == operand::MEMORY) return REAL_LOAD;
    return is_real(from.in) ? REAL_MOVE : REAL_BITS;
}

constexpr relation opposite(relation r) { return relation(static_cast<UCH>(r) ^ 1); }

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

UCH *assembler::head(const form &f, reg field, reg index, reg base)
{
    const unsigned rex = f.wide | high(field) << 2 | high(index) << 1 | high(base);
    UCH *code = room();
    code = put(code, f.prefix, f.prefix != 0);
    code = put(code, 0x40 | rex, rex != 0);
    code = put(code, f.map, f.map != 0);
    return put(code, f.opcode, 1);
}

void assembler::plain(const form &f, SLO immediate)
{
    end(put(head(f, NO_FIELD, NO_FIELD, NO_FIELD), immediate, f.immediate));
}

void assembler::with_register(const form &f, reg of, SLO immediate)
{
    const form filled = with_low_bits(f, low(of));
    end(put(head(filled, NO_FIELD, NO_FIELD, of), immediate, f.immediate));
}

// In mod/rm, the number of SP says that a SIB follows, in which as an index it says that there is
// none; and the number of BP without an offset has another meaning. R12 and R13 have the same bits.
void assembler::emit(const form &f, reg field, const operand &second, SLO immediate)
{
    const unsigned first = (f.digit | low(field)) << 3;
    if (second.kind == operand::REGISTER) {
        UCH *code = put(head(f, field, NO_FIELD, second.in), 0xC0 | first | low(second.in), 1);
        return end(put(code, immediate, f.immediate));
    }
    const memory &at = second.at;
    const reg index = at.index == reg::NONE ? reg::SP : at.index;
    const bool bare = at.offset == 0 && low(at.base) != low(reg::BP);
    const unsigned mode = bare ? 0 : fits<SCH>(at.offset) ? 1 : 2;
    const bool sib = at.index != reg::NONE || low(at.base) == low(reg::SP);

    UCH *code = head(f, field, index, at.base);
    code = put(code, mode << 6 | first | low(sib ? reg::SP : at.base), 1);
    code = put(code, std::countr_zero(at.scale) << 6 | low(index) << 3 | low(at.base), sib);
    code = put(code, at.offset, mode * mode); // 0, 1 or 4 bytes
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

void assembler::branch(relation r, label place)
{
    const auto bits = static_cast<unsigned>(r);
    aim(with_low_bits(BRANCH_NEAR, bits), with_low_bits(BRANCH, bits), place);
}

// -- Values

void assembler::set(reg to, SLO value)
{
    if (is_real(to) && value == 0) return emit(REAL_ZERO, to, to);
    if (is_real(to)) {
        set(scratch[0], value);
        return emit(REAL_BITS, to, scratch[0]);
    }
    if (value == 0)
        emit(SET_ZERO, to, to);
    else if (fits<std::uint32_t>(value))
        with_register(SET, to, value);
    else if (fits<std::int32_t>(value))
        emit(STORE_VALUE, NO_FIELD, to, value);
    else
        with_register(SET_WIDE, to, value);
}

void assembler::move(reg to, const operand &from)
{
    if (from.kind == operand::NUMBER) return set(to, from.number);
    if (to != from.in) emit(form_to_load(to, from), to, from);
}

void assembler::store(const memory &to, const operand &from)
{
    if (from.kind == operand::NUMBER) return emit(STORE_VALUE, NO_FIELD, to, from.number);
    emit(is_real(from.in) ? REAL_STORE : STORE, from.in, to);
}

void assembler::address(reg to, const memory &of) { emit(ADDRESS, to, of); }

// A register that is only half written is cleared first: nothing has to wait for what was in it.
void assembler::convert(reg to, reg from)
{
    if (is_real(to)) emit(REAL_ZERO, to, to);
    emit(is_real(to) ? FROM_WHOLE : TO_WHOLE, to, from);
}

void assembler::store_byte(const memory &to, UCH value) { emit(STORE_BYTE, NO_FIELD, to, value); }
void assembler::store_pair(const memory &to, USH value) { emit(STORE_PAIR, NO_FIELD, to, value); }

// -- Operations

void assembler::compute(operation op, reg to, const operand &by)
{
    const form &f = (is_real(to) ? real_forms : whole_forms)[static_cast<unsigned>(op)];
    if (by.kind != operand::NUMBER) return emit(f, to, by);
    if (is_real(to)) {
        set(REAL_SCRATCH, by.number);
        emit(f, to, REAL_SCRATCH);
    } else if (!fits<std::int32_t>(by.number)) {
        set(scratch[2], by.number);
        emit(f, to, scratch[2]);
    } else if (op == operation::MUL) {
        emit(fits<SCH>(by.number) ? MUL_BYTE : MUL_LONG, to, to, by.number);
    } else {
        apply(f, to, by.number);
    }
}

void assembler::apply(const form &f, reg to, SLO by)
{
    emit(fits<SCH>(by) ? APPLY_BYTE : APPLY_LONG, reg(f.opcode >> 3), to, by);
}

void assembler::negate(reg to) { emit(NEGATE, NO_FIELD, to); }
void assembler::square_root(reg to) { emit(REAL_ROOT, to, to); }

void assembler::shift_by(shift op, reg to, const operand &by)
{
    const bool is_left = op == shift::LEFT;
    if (by.kind == operand::NUMBER)
        return emit(is_left ? LEFT : RIGHT, NO_FIELD, to, by.number & 63);
    move(scratch[1], by);
    emit(is_left ? LEFT_BY_CX : RIGHT_BY_CX, NO_FIELD, to);
}

void assembler::multiply_high(reg to, reg from, SLO by)
{
    set(scratch[0], by);
    emit(MUL_WIDE, NO_FIELD, from);
    move(to, scratch[2]);
}

void assembler::divide(reg to, reg by) { divide(to, by, scratch[0]); }
void assembler::remainder(reg to, reg by) { divide(to, by, scratch[2]); }

void assembler::divide(reg to, reg by, reg from)
{
    move(scratch[0], to);
    plain(WIDEN);
    emit(DIVIDE, NO_FIELD, by);
    move(to, from);
}

// -- Comparisons

void assembler::compare(reg a, const operand &b)
{
    if (b.kind != operand::NUMBER) return emit(COMPARE, a, b);
    if (b.number == 0) return emit(TEST, a, a);
    if (fits<std::int32_t>(b.number)) return apply(COMPARE, a, b.number);
    set(scratch[2], b.number);
    emit(COMPARE, a, scratch[2]);
}

void assembler::branch_if(relation r, reg a, const operand &b, label place, bool when)
{
    if (is_real(a)) {
        const reg second = b.kind == operand::REGISTER ? b.in : REAL_SCRATCH;
        move(second, b);
        return branch_real(r, a, second, place, when);
    }
    compare(a, b);
    branch(when ? r : opposite(r), place);
}

// A comparison of floats sets the flags of one without signs, and for a NaN those of `equal` and
// `below` too: `above` is false for it, so `less` is `above` with the operands in the other order,
// and the branch on `unordered` comes in front of that on `equal` and leads over it.
void assembler::branch_real(relation r, reg a, reg b, label place, bool when)
{
    const bool is_swapped = r == relation::LESS || r == relation::LESS_OR_EQUAL;
    emit(REAL_COMPARE, is_swapped ? b : a, is_swapped ? a : b);
    if (r == relation::EQUAL || r == relation::NOT_EQUAL) {
        const bool if_equal = (r == relation::EQUAL) == when;
        const label behind = make_label();
        branch(relation::UNORDERED, if_equal ? behind : place);
        branch(if_equal ? relation::EQUAL : relation::NOT_EQUAL, place);
        return bind(behind);
    }
    const bool is_strict = r == relation::LESS || r == relation::GREATER;
    const relation asked = is_strict ? relation::ABOVE : relation::ABOVE_OR_EQUAL;
    branch(when ? asked : opposite(asked), place);
}

void assembler::branch_if_byte(relation r, const memory &a, UCH b, label place)
{
    emit(COMPARE_BYTE, NO_FIELD, a, b);
    branch(r, place);
}

void assembler::branch_if_pair(relation r, const memory &a, USH b, label place)
{
    emit(COMPARE_PAIR, NO_FIELD, a, b);
    branch(r, place);
}

// -- Ways through the code

void assembler::jump(label place) { aim(JUMP_NEAR, JUMP, place); }
void assembler::call(label place) { aim(CALL, place); }

void assembler::jump(const void *function)
{
    set(scratch[0], std::bit_cast<SLO>(function));
    emit(JUMP_FAR, NO_FIELD, scratch[0]);
}

void assembler::call(const void *function)
{
    set(scratch[0], std::bit_cast<SLO>(function));
    emit(CALL_FAR, NO_FIELD, scratch[0]);
}

void assembler::leave() { plain(RETURN); }
void assembler::push(reg from) { with_register(PUSH, from); }
void assembler::pop(reg to) { with_register(POP, to); }
void assembler::move_stack(int bytes) { compute(operation::ADD, STACK, bytes); }

} // namespace native
