// Operations on numbers, and calls.

#include "native/lowering.h"

namespace native {

namespace {

bool is_power_of_two(SLO number) { return number > 0 && (number & (number - 1)) == 0; }

} // namespace

// -- Operations on numbers ---------------------------------------------------------------------

void lowering::numeric(unsigned i)
{
    const item &it = r_[i];
    if (it.how == way::CALL) return call_operation(i);
    if (it.how == way::NOT) return truth_of(i);
    const reg first = value(i + 1, it.letter);
    switch (it.how) {
    case way::WITH_NUMBER: return a_.compute(it.what_to_compute, first, it.number);
    case way::NEGATE: return a_.negate(first);
    case way::ABSOLUTE: return absolute(first);
    case way::SQUARE_ROOT: return square_root(i, first);
    default: break;
    }
    const operand by = second(r_.operand(i, 1), it.letter, first);
    switch (it.how) {
    case way::COMPUTE: return a_.compute(it.what_to_compute, first, by);
    case way::SHIFT_LEFT: return a_.shift_by(shift::LEFT, first, by);
    case way::SHIFT_RIGHT: return a_.shift_by(shift::RIGHT, first, by);
    case way::QUOTIENT: return divide(i, true, first, by);
    case way::REMAINDER: return divide(i, false, first, by);
    default: return divide_real(i, first, by);
    }
}

void lowering::absolute(reg value)
{
    const label behind = a_.make_label();
    a_.branch_if(relation::GREATER_OR_EQUAL, value, 0, behind);
    a_.negate(value);
    a_.bind(behind);
}

void lowering::square_root(unsigned i, reg value)
{
    const label negative = a_.make_label();
    a_.branch_if(relation::LESS, value, 0, negative);
    raise_fault_at(i, negative);
    a_.square_root(value);
}

// Toward zero, without a division. By a power of two: what is below zero is first made larger by
// the divisor less 1. By others: a product with a fraction of 64 bits that is a little more than 1
// / by, cut down and made larger by 1 for what is below zero (Granlund and Montgomery, Division by
// invariant integers).
void lowering::divide_by_number(bool is_quotient, reg value, SLO by)
{
    const reg part = scratch[1];
    const int bits = static_cast<int>(std::bit_width(ULO(by)));
    if (is_power_of_two(by)) {
        a_.move(part, value);
        a_.shift_by(shift::RIGHT, part, 63);
        a_.compute(operation::AND, part, by - 1);
        a_.compute(operation::ADD, part, value);
        if (is_quotient) a_.shift_by(shift::RIGHT, part, bits - 1);
    } else {
        const auto fraction = (static_cast<unsigned __int128>(1) << (63 + bits)) / ULO(by) + 1;
        a_.multiply_high(part, value, static_cast<SLO>(fraction)); // and 2^64, so the value again
        a_.compute(operation::ADD, part, value);
        a_.shift_by(shift::RIGHT, part, bits - 1);
        a_.move(scratch[0], value);
        a_.shift_by(shift::RIGHT, scratch[0], 63);
        a_.compute(operation::SUB, part, scratch[0]);
    }
    if (is_quotient) return a_.move(value, part);
    is_power_of_two(by) ? a_.compute(operation::AND, part, -by)
                        : a_.compute(operation::MUL, part, by);
    a_.compute(operation::SUB, value, part);
}

void lowering::divide(unsigned i, bool is_quotient, reg value, const operand &by)
{
    const bool is_fixed = by.kind == operand::NUMBER;
    if (is_fixed && by.number > 0) return divide_by_number(is_quotient, value, by.number);
    const reg divisor = by.kind == operand::REGISTER ? by.in : temporary('I', 1);
    a_.move(divisor, by);
    if (!is_fixed || by.number == 0) {
        const label zero = a_.make_label();
        a_.branch_if(relation::EQUAL, divisor, 0, zero);
        raise_fault_at(i, zero);
    }
    is_quotient ? a_.divide(value, divisor) : a_.remainder(value, divisor);
}

void lowering::divide_real(unsigned i, reg value, const operand &by)
{
    const reg divisor = by.kind == operand::REGISTER ? by.in : temporary('F', 1);
    const label zero = a_.make_label();
    a_.move(divisor, by);
    a_.branch_if(relation::EQUAL, divisor, 0, zero);
    raise_fault_at(i, zero);
    a_.compute(operation::DIV, value, divisor);
}

// Off the road: the operation itself raises its error, for operands that have the fault. A fault is
// no BREAK.
void lowering::raise_fault_at(unsigned i, label place)
{
    late(place, [this, i] {
        before_call(true);
        if (r_.kind == shape::DIRECT) {
            set_address(arguments[0], r_.image);
            call(&name_function);
        }
        a_.move(real_temporaries[0], std::bit_cast<SLO>(-1.0));
        a_.move(real_temporaries[1], 0);
        a_.move(arguments[0], 1);
        a_.move(arguments[1], 0);
        set_address(arguments[r_[i].row->result == 'I' ? 2 : 0], r_[i].node + 1);
        a_.call(r_[i].row->function);
        after_call();
        a_.jump(error_);
    });
}

// -- Calls -------------------------------------------------------------------------------------

// The operands in the order of the text, each in a temporary of its type.
std::vector<reg> lowering::values_of_operands(unsigned i, const CHR *letters)
{
    const auto around = static_cast<std::ptrdiff_t>(held_.size());
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) held_.push_back(value(k, *letters++));
    std::vector<reg> made(held_.begin() + around, held_.end());
    held_.erase(held_.begin() + around, held_.end());
    return made;
}

// An operation takes whole numbers first, then where an error is raised; floats have registers of
// their own.
void lowering::call_operation(unsigned i)
{
    const numeric_row &row = *r_[i].row;
    const std::vector<reg> given = values_of_operands(i, row.letters);
    note(i);
    before_call(false);
    std::size_t wholes = 0, reals = 0;
    for (const reg r : given) {
        if (is_real(r))
            a_.move(real_temporaries[reals++], r);
        else if (wholes < std::size(scratch)) // no operation has more
            a_.move(scratch[wholes++], r);
    }
    for (std::size_t n = 0; n < wholes; n++) a_.move(arguments[n], scratch[n]);
    set_address(arguments[wholes], r_[i].node + 1);
    a_.call(row.function);
    note_return();
    take_returned(row.result, returned_in(row.result));
    if (row.may_fault) check_error(error_);
}

// The operands of a function stand in the first temporaries; those that hold other values are
// saved.
void lowering::call_function(unsigned i)
{
    const direct_function *callee = r_[i].callee;
    const label too_deep = a_.make_label(), failed = a_.make_label();
    const mark_scope mine(this, i);
    const std::vector<reg> given = values_of_operands(i, callee->arguments.data());
    before_call(false);
    for (std::size_t n = 0; n < given.size(); n++)
        a_.move((is_real(given[n]) ? real_temporaries : temporaries)[n], given[n]);
    a_.branch_if(relation::BELOW, STACK, in_machine(offsetof(rt_control, call_floor)), too_deep);
    count_call(callee->image);
    callee == r_.self ? a_.call(direct_) : a_.call(callee->code);
    take_returned(callee->result, returned_in(callee->result));
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
        if (letter == 0)
            a_.branch_if_byte(relation::EQUAL, record(variable_of(k), TYPE), 0, fails);
        else
            a_.store({STACK, at + offset_in_record(offsetof(given_number, bits))},
                     value(k, letter, fails));
        a_.store_byte({STACK, at + offset_in_record(offsetof(given_number, type))},
                      static_cast<UCH>(letter));
    }
}

void lowering::call_framed(unsigned i, CHR letter)
{
    const label fails = a_.make_label();
    give_numbers(i, fails);
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].word);
    a_.address(arguments[1], {STACK, GIVEN});
    a_.move(arguments[2], letter);
    call(&number_of_call);
    take_returned(letter, RESULT);
    check_error(pending());
    instead(fails, [this, i, letter] { value_by_handler(i, letter); });
}

// Off the road: a call that has failed, or can't be made.
void lowering::leave_call_at(unsigned i, label place, const void *tell)
{
    late(place, [this, i, tell] {
        before_call(false);
        set_address(arguments[0], r_[i].node + 1);
        set_address(arguments[1], r_.image);
        a_.call(tell);
        after_call();
        a_.jump(error_);
    });
}

} // namespace native
