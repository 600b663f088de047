// Conditions and values.

#include "native/lowering.h"
#include "strings/block.h"
#include "vm/places.h"

namespace native {

// -- Operands ----------------------------------------------------------------------------------

// What an instruction takes as it is: a constant, or a variable that is surely of the type.
bool lowering::is_simple(unsigned i, CHR letter) const
{
    const item &it = r_[i];
    if (it.what == work::CONSTANT) return it.letter == letter;
    return it.what == work::READ && variable_of(i).type == letter;
}

operand lowering::simple(unsigned i) const
{
    if (r_[i].what == work::CONSTANT) return static_cast<SLO>(r_[i].node[1]);
    return place_of(variable_of(i));
}

// The next operand of an operation, while the one before is held, if that is in a temporary.
operand lowering::second(unsigned i, CHR letter, reg first)
{
    if (is_simple(i, letter)) return simple(i);
    if (first != temporary(letter)) return value(i, letter);
    held_.push_back(first);
    const reg in = value(i, letter);
    held_.pop_back();
    return in;
}

// A whole number that is only looked at: where it is kept, or in the next temporary.
reg lowering::in_register(unsigned i, label fails)
{
    if (is_simple(i, 'I') && simple(i).kind == operand::REGISTER) return simple(i).in;
    return value(i, 'I', fails);
}

// -- Conditions --------------------------------------------------------------------------------

// The second operand is cast to the type of the first one.
void lowering::branch_compare(unsigned i, label place, bool when)
{
    if (r_[i].texts && is_type_test(r_, i)) return branch_type(i, place, when);
    if (r_[i].texts) return branch_texts(i, place, when);
    const unsigned first = i + 1, next = r_.operand(i, 1);
    const label fails = a_.make_label();
    const CHR letter = r_[first].type.letter == 'F' ? 'F' : 'I';
    const bool changes = r_[next].assigns & r_[first].reads;
    const reg a =
        letter == 'I' && !changes ? in_register(first, fails) : value(first, letter, fails);
    const operand b = second(next, letter, a);
    a_.branch_if(r_[i].comparison, a, b, place, when);
    if (!r_[first].type.certain) branch_by_handler(i, place, when, fails);
}

// Off the road: the handler of a condition says which way.
void lowering::branch_by_handler(unsigned i, label place, bool when, label fails)
{
    instead(fails, [this, i, place, when] {
        value_by_handler(i, 'I');
        a_.branch_if(relation::NOT_EQUAL, temporary('I'), 0, place, when);
    });
}

// The address of a text that stands somewhere.
void lowering::find_text(unsigned i, reg to, label fails)
{
    const item &it = r_[i];
    if (it.what == work::OTHER) return set_address(to, it.node + 2);
    if (it.what == work::READ) {
        const local &v = variable_of(i);
        a_.branch_if_byte(relation::NOT_EQUAL, record(v, TYPE), 'S', fails);
        a_.move(to, record(v, offsetof(kestrin_data, svalue)));
    } else {
        a_.move(to, member(i, fails));
    }
    a_.branch_if(relation::EQUAL, to, 0, fails);
}

// A variable without a value has no type.
void lowering::branch_type(unsigned i, label place, bool when)
{
    const bool if_same = (r_[i].comparison == relation::EQUAL) == when;
    const memory type = record(variable_of(i + 2), TYPE);
    const auto letter = static_cast<UCH>(r_[r_.operand(i, 1)].node[2]);
    const label fails = a_.make_label();
    a_.branch_if_byte(relation::EQUAL, type, 0, fails);
    a_.branch_if_byte(if_same ? relation::EQUAL : relation::NOT_EQUAL, type, letter, place);
    branch_by_handler(i, place, when, fails);
}

// The length stands ahead of a text, and a short one is as long as a word with it. Longer ones are
// compared off the road.
void lowering::branch_texts(unsigned i, label place, bool when)
{
    constexpr int LENGTH = -static_cast<int>(LENGTH_WORD);
    const label fails = a_.make_label(), longer = a_.make_label(), behind = a_.make_label();
    const bool if_same = (r_[i].comparison == relation::EQUAL) == when;
    const reg a = temporary('I'), b = temporary('I', 1);
    find_text(i + 1, a, fails);
    held_.push_back(a);
    find_text(r_.operand(i, 1), b, fails);
    held_.pop_back();
    a_.move(scratch[0], memory{a, LENGTH});
    a_.branch_if(relation::NOT_EQUAL, scratch[0], memory{b, LENGTH}, if_same ? behind : place);
    a_.branch_if(relation::ABOVE_OR_EQUAL, scratch[0], SLO(sizeof(ULO)), longer);
    a_.move(scratch[0], memory{a});
    a_.branch_if(relation::EQUAL, scratch[0], memory{b}, place, if_same);
    a_.bind(behind);
    instead(longer, [this, if_same, place, a, b] {
        a_.move(scratch[0], a);
        a_.move(scratch[1], b);
        before_call(false);
        a_.move(arguments[0], scratch[0]);
        a_.move(arguments[1], scratch[1]);
        call(&are_same_texts);
        after_call();
        a_.branch_if(relation::NOT_EQUAL, RESULT, 0, place, if_same);
    });
    branch_by_handler(i, place, when, fails);
}

// AND ends at the first operand that is false, OR at the first that is true.
void lowering::branch_both(unsigned i, label place, bool when)
{
    const bool decides = r_[i].what == work::EITHER;
    const label behind = a_.make_label();
    branch(i + 1, when == decides ? place : behind, decides);
    branch(r_.operand(i, 1), place, when);
    a_.bind(behind);
}

void lowering::branch(unsigned i, label place, bool when)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (!it.by_handler) {
        if (it.what == work::COMPARE) return branch_compare(i, place, when);
        if (it.what == work::BOTH || it.what == work::EITHER) return branch_both(i, place, when);
        if (it.how == way::NOT) return branch(i + 1, place, !when);
    }
    a_.branch_if(relation::NOT_EQUAL, value(i, 'I'), 0, place, when);
}

// 1 or 0.
void lowering::truth_of(unsigned i)
{
    const label behind = a_.make_label(), no = a_.make_label();
    branch(i, no, false);
    a_.move(temporary('I'), 1);
    a_.jump(behind);
    a_.bind(no);
    a_.move(temporary('I'), 0);
    a_.bind(behind);
}

// -- Values ------------------------------------------------------------------------------------

void lowering::convert(CHR from, CHR to)
{
    if (from != to) a_.convert(temporary(to), temporary(from));
}

void lowering::value_by_handler(unsigned i, CHR letter)
{
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].word);
    a_.move(arguments[1], letter);
    call(&number_of);
    take_returned(letter, RESULT);
    check_error(pending());
}

// A value as an integer or a float. One of another type than is likely goes on at `fails`, with
// nothing done but what is evaluated again.
reg lowering::value(unsigned i, CHR letter, label fails)
{
    const item &it = r_[i];
    if (it.by_handler) {
        value_by_handler(i, letter);
    } else if (is_branching(it.what)) { // each branch is cast by itself
        in_branches(i, [this, letter, fails](unsigned k) { value(k, letter, fails); });
    } else if (it.type.certain) {
        produce(i);
        convert(it.type.letter, letter);
    } else if (it.framed) {
        call_framed(i, letter);
    } else if (fails != NOWHERE) {
        find_value(i, letter, fails);
    } else {
        const label other = a_.make_label();
        find_value(i, letter, other);
        instead(other, [this, i, letter] { value_by_handler(i, letter); });
    }
    return temporary(letter);
}

// What stands in a record or an array and is most likely of its type.
void lowering::find_value(unsigned i, CHR letter, label fails)
{
    const item &it = r_[i];
    const CHR found = it.type.letter != 0 ? it.type.letter : letter;
    if (it.what == work::READ) {
        const local &v = variable_of(i);
        a_.branch_if_pair(relation::NOT_EQUAL, record(v, SHAPE), single_of(found), fails);
        a_.move(temporary(found), record(v, VALUE));
    } else {
        a_.move(temporary(found), member(i, fails));
    }
    convert(found, letter);
}

// A value of a certain type, as it is.
void lowering::produce(unsigned i)
{
    const item &it = r_[i];
    const reg to = temporary(it.type.letter);
    switch (it.what) {
    case work::CONSTANT: return a_.move(to, static_cast<SLO>(it.node[1]));
    case work::READ: return a_.move(to, place_of(variable_of(i)));
    case work::NUMERIC: return numeric(i);
    case work::CAST: value(i + 1, it.letter); return;
    case work::SETQ: return setq(i); // from a temporary, where the value stays
    case work::CALL: return call_function(i);
    default: return truth_of(i);
    }
}

// -- Members of arrays -------------------------------------------------------------------------

// Where a member stands of which the type is as expected. Place 0 of an array, which says something
// else, looks like no member: member 0 is the record's own value.
memory lowering::member(unsigned i, label fails)
{
    const auto letter = static_cast<UCH>(r_[i].letter);
    const local &array = variable_of(i);
    if (is_first(r_, i)) {
        a_.branch_if_byte(relation::NOT_EQUAL, record(array, TYPE), letter, fails);
        return record(array, VALUE);
    }
    const reg index = in_register(i + 1, NOWHERE);
    if (r_[i].mixed) {
        find_record(array, index, fails);
        a_.branch_if_pair(relation::NOT_EQUAL, {scratch[0], SHAPE}, single_of(r_[i].letter), fails);
        return {scratch[0], VALUE};
    }
    find_tags(i, index, fails);
    a_.branch_if_byte(relation::NOT_EQUAL, {scratch[0], 0, index, 1}, letter, fails);
    a_.move(scratch[0], record(array, offsetof(kestrin_data, array)));
    return {scratch[0], 0, index, sizeof(SLO)};
}

// The array has the class and the place; its tags stand in scratch[0].
void lowering::find_tags(unsigned i, reg index, label fails)
{
    const local &array = variable_of(i);
    a_.branch_if(relation::ABOVE_OR_EQUAL, index,
                 record(array, offsetof(kestrin_data, indices_numb)), fails);
    a_.branch_if_byte(relation::NOT_EQUAL, record(array, offsetof(kestrin_data, arraytype)),
                      static_cast<UCH>(r_[i].letter), fails);
    a_.move(scratch[0], record(array, offsetof(kestrin_data, aready_tags)));
}

// The record of a member of a mixed array stands in scratch[0]. How many there are is told by place
// 0 where the array has the fewest that it can report.
void lowering::find_record(const local &array, reg index, label fails)
{
    const label large = a_.make_label();
    constexpr int COUNT = offset_in_record(offsetof(kestrin_data, indices_numb));
    a_.move(scratch[0], record(array, offsetof(kestrin_data, array)));
    a_.branch_if(relation::EQUAL, scratch[0], 0, fails);
    a_.branch_if_byte(relation::NOT_EQUAL, record(array, offsetof(kestrin_data, arraytype)), 0,
                      fails);
    a_.move(scratch[1], record(array, COUNT));
    if (the_engine.small_arrays) {
        a_.branch_if(relation::NOT_EQUAL, scratch[1], static_cast<SLO>(PLACES_STEP), large);
        a_.move(scratch[1], memory{scratch[0], COUNT});
    }
    a_.bind(large);
    a_.branch_if(relation::ABOVE_OR_EQUAL, index, scratch[1], fails);
    a_.branch_if(relation::EQUAL, index, 0, fails);
    a_.move(scratch[1], index);
    a_.compute(operation::MUL, scratch[1], static_cast<SLO>(sizeof(kestrin_data)));
    a_.compute(operation::ADD, scratch[0], scratch[1]);
}

} // namespace native
