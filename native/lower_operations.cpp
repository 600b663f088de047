// Operations on numbers, and calls.

#include <algorithm>

#include "native/lowering.h"

// Operations on numbers that have instructions of the machine. All others are calls.
#define INLINE_OPERATIONS(X)                                                                       \
    X(iadd, WHOLE, whole::ADD)                                                                     \
    X(isub, WHOLE, whole::SUB)                                                                     \
    X(imul, WHOLE, whole::MUL)                                                                     \
    X(iand, WHOLE, whole::AND)                                                                     \
    X(ior, WHOLE, whole::OR)                                                                       \
    X(ixor, WHOLE, whole::XOR)                                                                     \
    X(ishl, SHIFT, shift::LEFT)                                                                    \
    X(ishr, SHIFT, shift::RIGHT)                                                                   \
    X(iincr, ONE, one::INCREMENT)                                                                  \
    X(idecr, ONE, one::DECREMENT)                                                                  \
    X(ineg, ONE, one::NEGATE)                                                                      \
    X(inot, ONE, one::INVERT)                                                                      \
    X(iabs, ONE, one::ABSOLUTE)                                                                    \
    X(not, ONE, one::NOT)                                                                          \
    X(ima, MULTIPLY_ADD, 0)                                                                        \
    X(idiv, DIVIDE, 1)                                                                             \
    X(imod, DIVIDE, 0)                                                                             \
    X(fadd, REAL, real::ADD)                                                                       \
    X(fsub, REAL, real::SUB)                                                                       \
    X(fmul, REAL, real::MUL)                                                                       \
    X(fdiv, DIVIDE_REAL, 0)                                                                        \
    X(fabs, ABSOLUTE_REAL, 0)                                                                      \
    X(fma, MULTIPLY_ADD, 0)                                                                        \
    X(fsqrt, SQUARE_ROOT, 0)

#define DECLARE(name, ...) HANDLER(name);
INLINE_OPERATIONS(DECLARE)
#undef DECLARE

namespace native {

namespace {

enum class way : UCH {
    WHOLE,
    SHIFT,
    ONE, // of one whole number
    MULTIPLY_ADD,
    DIVIDE,
    REAL,
    DIVIDE_REAL,
    ABSOLUTE_REAL,
    SQUARE_ROOT
};
enum class one : UCH { INCREMENT, DECREMENT, NEGATE, INVERT, ABSOLUTE, NOT };

struct inline_operation {
    fcall handler;
    way how;
    UCH what; // of `whole`, `shift`, `one`, `real`; 1 for a quotient
};

const inline_operation *find_inline(const numeric_row &row)
{
    static constexpr inline_operation rows[] = {
#define ROW(name, how, what) {func__##name, way::how, static_cast<UCH>(what)},
        INLINE_OPERATIONS(ROW)
#undef ROW
    };
    const auto is_it = [&row](const inline_operation &op) { return op.handler == row.handler; };
    const auto found = std::find_if(std::begin(rows), std::end(rows), is_it);
    return found == std::end(rows) ? nullptr : found;
}

bool is_power_of_two(SLO number) { return number > 0 && (number & (number - 1)) == 0; }

} // namespace

bool is_inline(const numeric_row &row) { return find_inline(row) != nullptr; }

bool is_negation(const numeric_row &row)
{
    const inline_operation *op = find_inline(row);
    return op != nullptr && op->how == way::ONE && one(op->what) == one::NOT;
}

// -- Operations on numbers ---------------------------------------------------------------------

void lowering::numeric(unsigned i)
{
    const inline_operation *op = find_inline(*r_[i].row);
    if (op == nullptr) return call_operation(i);
    const unsigned second = r_[i + 1].end;
    const bool is_whole = r_[i].row->result == 'I';
    if (is_whole)
        to_whole(i + 1);
    else
        to_real(i + 1);
    switch (op->how) {
    case way::WHOLE: return compute(whole(op->what), whole_temporary(), second_whole(second));
    case way::SHIFT: return shift_whole(i, op->what);
    case way::ONE: return one_whole(op->what);
    case way::MULTIPLY_ADD: return multiply_add(i);
    case way::DIVIDE: return divide(i, op->what != 0);
    case way::REAL: {
        const freg by = second_real(second);
        return a_.compute(real(op->what), real_temporary(), by);
    }
    case way::DIVIDE_REAL: return divide_real(i);
    case way::ABSOLUTE_REAL: return a_.absolute(real_temporary());
    case way::SQUARE_ROOT: return square_root(i);
    }
}

void lowering::one_whole(UCH what)
{
    const reg value = whole_temporary();
    const label behind = a_.make_label();
    switch (one(what)) {
    case one::INCREMENT: return a_.compute(whole::ADD, value, 1);
    case one::DECREMENT: return a_.compute(whole::SUB, value, 1);
    case one::NEGATE: return a_.negate(value);
    case one::INVERT: return a_.invert(value);
    case one::NOT: return a_.set_if(relation::EQUAL, value, value, 0);
    case one::ABSOLUTE:
        a_.branch_if(relation::GREATER_OR_EQUAL, value, 0, behind);
        a_.negate(value);
        return a_.bind(behind);
    }
}

void lowering::shift_whole(unsigned i, UCH what)
{
    const operand by = second_whole(r_[i + 1].end);
    const reg value = whole_temporary();
    if (by.kind == operand::NUMBER)
        return a_.shift_by(shift(what), value, static_cast<unsigned>(by.number & 63));
    if (by.kind == operand::MEMORY) a_.load(scratch[0], by.at);
    a_.shift_by(shift(what), value, by.kind == operand::MEMORY ? scratch[0] : by.in);
}

void lowering::multiply_add(unsigned i)
{
    const unsigned second = r_[i + 1].end, third = r_[second].end;
    if (r_[i].row->result == 'I') {
        // All three are evaluated ahead of the work.
        wholes_++;
        to_whole(second);
        wholes_++;
        to_whole(third);
        wholes_ -= 2;
        a_.compute(whole::MUL, whole_temporary(), temporaries[wholes_ + 1]);
        return a_.compute(whole::ADD, whole_temporary(), temporaries[wholes_ + 2]);
    }
    reals_++;
    to_real(second);
    reals_++;
    to_real(third);
    reals_ -= 2;
    a_.compute(real::MUL, real_temporary(), real_temporaries[reals_ + 1]);
    a_.compute(real::ADD, real_temporary(), real_temporaries[reals_ + 2]);
}

// To whole numbers of the divisor: what is below zero is first made larger by the divisor less 1.
void lowering::divide_by_power(bool is_quotient, SLO by)
{
    const reg value = whole_temporary(), part = scratch[0];
    a_.move(part, value);
    a_.shift_by(shift::RIGHT, part, 63U);
    a_.compute(whole::AND, part, by - 1);
    a_.compute(whole::ADD, part, value);
    if (is_quotient) {
        a_.move(value, part);
        return a_.shift_by(shift::RIGHT, value, static_cast<unsigned>(std::countr_zero(ULO(by))));
    }
    a_.compute(whole::AND, part, -by);
    a_.compute(whole::SUB, value, part);
}

// A product with a fraction of 64 bits that is a little more than 1 / by, cut down and made larger
// by 1 for what is below zero (Granlund and Montgomery, Division by invariant integers).
void lowering::divide_by_product(bool is_quotient, SLO by)
{
    const reg value = whole_temporary(), part = scratch[1];
    const auto bits = static_cast<unsigned>(std::bit_width(ULO(by)));
    const auto fraction = (static_cast<unsigned __int128>(1) << (63 + bits)) / ULO(by) + 1;
    a_.multiply_high(part, value, static_cast<SLO>(fraction)); // and 2^64, so the value once more
    a_.compute(whole::ADD, part, value);
    a_.shift_by(shift::RIGHT, part, bits - 1);
    a_.move(scratch[0], value);
    a_.shift_by(shift::RIGHT, scratch[0], 63U);
    a_.compute(whole::SUB, part, scratch[0]);
    if (is_quotient) return a_.move(value, part);
    a_.compute(whole::MUL, part, by);
    a_.compute(whole::SUB, value, part);
}

void lowering::divide(unsigned i, bool is_quotient)
{
    const unsigned second = r_[i + 1].end;
    const bool is_fixed = is_simple(second, 'I') && r_[second].what == work::CONSTANT;
    if (is_fixed && is_power_of_two(simple(second).number))
        return divide_by_power(is_quotient, simple(second).number);
    if (is_fixed && simple(second).number > 2)
        return divide_by_product(is_quotient, simple(second).number);
    wholes_++;
    const reg by = to_whole(second);
    wholes_--;
    if (!is_fixed || simple(second).number == 0) {
        const label zero = a_.make_label();
        a_.branch_if(relation::EQUAL, by, 0, zero);
        raise_fault_at(i, zero);
    }
    if (is_quotient)
        a_.divide(whole_temporary(), by);
    else
        a_.remainder(whole_temporary(), by);
}

void lowering::divide_real(unsigned i)
{
    const freg by = second_real(r_[i + 1].end);
    const label zero = a_.make_label();
    a_.set(real_scratch[0], 0.0);
    a_.branch_if(relation::EQUAL, by, real_scratch[0], zero);
    raise_fault_at(i, zero);
    a_.compute(real::DIV, real_temporary(), by);
}

void lowering::square_root(unsigned i)
{
    const label negative = a_.make_label();
    a_.set(real_scratch[0], 0.0);
    a_.branch_if(relation::LESS, real_temporary(), real_scratch[0], negative);
    raise_fault_at(i, negative);
    a_.square_root(real_temporary(), real_temporary());
}

// Off the road: the operation itself raises its error, for operands that have the fault. A fault is
// no BREAK.
void lowering::raise_fault_at(unsigned i, label place)
{
    late([this, i, place] {
        a_.bind(place);
        before_call(true);
        if (r_.kind == shape::DIRECT) {
            set_address(arguments[0], r_.image);
            call(&name_function);
        }
        if (r_[i].row->result == 'I') {
            a_.set(arguments[0], 1);
            a_.set(arguments[1], 0);
            set_address(arguments[2], r_[i].node + 1);
        } else {
            a_.set(freg::X0, -1.0);
            a_.set(freg::X1, 0.0);
            set_address(arguments[0], r_[i].node + 1);
        }
        a_.call(r_[i].row->function);
        after_call();
        a_.jump(error_);
    });
}

// -- Calls -------------------------------------------------------------------------------------

// Whole numbers first, then where an error is raised; floats have registers of their own.
void lowering::pass_to_operation(unsigned i)
{
    const CHR *letters = r_[i].row->letters;
    const unsigned wholes = wholes_, reals = reals_;
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end, letters++) {
        to(k, *letters);
        (*letters == 'I' ? wholes_ : reals_)++;
    }
    const unsigned whole_count = wholes_ - wholes, real_count = reals_ - reals;
    wholes_ = wholes;
    reals_ = reals;
    note(i);
    before_call(false);
    const unsigned moved = std::min(whole_count, static_cast<unsigned>(std::size(scratch)));
    for (unsigned n = 0; n < moved; n++) a_.move(scratch[n], temporaries[wholes + n]);
    for (unsigned n = 0; n < moved; n++) a_.move(arguments[n], scratch[n]);
    for (unsigned n = 0; n < real_count; n++)
        a_.move(real_temporaries[n], real_temporaries[reals + n]);
    set_address(arguments[whole_count], r_[i].node + 1);
}

void lowering::call_operation(unsigned i)
{
    const numeric_row &row = *r_[i].row;
    pass_to_operation(i);
    a_.call(row.function);
    note_return();
    take_returned(row.result);
    if (row.may_fault) check_error(error_);
}

// The operands of a function stand in the first temporaries; those that hold other values are
// saved.
void lowering::pass_to_function(unsigned i)
{
    const unsigned wholes = wholes_, reals = reals_;
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) {
        produce(k);
        (r_[k].type.letter == 'I' ? wholes_ : reals_)++;
    }
    const unsigned whole_count = wholes_ - wholes, real_count = reals_ - reals;
    wholes_ = wholes;
    reals_ = reals;
    before_call(false);
    for (unsigned n = 0; n < whole_count; n++) a_.move(temporaries[n], temporaries[wholes + n]);
    for (unsigned n = 0; n < real_count; n++)
        a_.move(real_temporaries[n], real_temporaries[reals + n]);
}

void lowering::call_function(unsigned i)
{
    const direct_function *callee = r_[i].callee;
    const label too_deep = a_.make_label(), failed = a_.make_label();
    const mark_scope mine(this, i);
    pass_to_function(i);
    a_.branch_if(relation::BELOW, STACK, in_machine(offsetof(rt_control, call_floor)), too_deep);
    count_call(callee->image);
    if (callee == r_.self)
        a_.call(direct_);
    else
        a_.call(callee->code);
    take_returned(callee->result);
    check_error(failed);
    leave_call_at(i, too_deep, reinterpret_cast<const void *>(&give_up_call));
    leave_call_at(i, failed, reinterpret_cast<const void *>(&note_direct_call));
}

// What is no number is evaluated by the call, but it has to hold a value in its turn.
void lowering::give_numbers(unsigned i, label fails)
{
    int at = GIVEN;
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end, at += sizeof(given_number)) {
        const CHR letter = r_[k].type.letter;
        const memory type = {STACK, at + offset_in_record(offsetof(given_number, type))};
        if (letter == 0) {
            a_.branch_if_byte(relation::EQUAL, record(variable_of(k), TYPE), 0, fails);
        } else {
            produce_guarded(k, fails);
            store_number(letter, {STACK, at + offset_in_record(offsetof(given_number, bits))});
        }
        a_.store_byte(type, static_cast<UCH>(letter));
    }
}

void lowering::call_framed(unsigned i, CHR letter)
{
    const label fails = a_.make_label(), behind = a_.make_label();
    give_numbers(i, fails);
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].word);
    a_.address(arguments[1], {STACK, GIVEN});
    letter == 'I' ? call(&call_for_whole) : call(&call_for_real);
    take_returned(letter);
    check_error(pending());
    a_.bind(behind);
    instead(fails, behind, [this, i, letter] { value_by_handler(i, letter); });
}

// Off the road: a call that has failed, or can't be made.
void lowering::leave_call_at(unsigned i, label place, const void *tell)
{
    late([this, i, place, tell] {
        a_.bind(place);
        before_call(false);
        set_address(arguments[0], r_[i].node + 1);
        set_address(arguments[1], r_.image);
        a_.call(tell);
        after_call();
        a_.jump(error_);
    });
}

} // namespace native
