// Conditions and values.

#include "native/lowering.h"
#include "strings/block.h"
#include "vm/places.h"

namespace native {

// -- Operands ----------------------------------------------------------------------------------

// A constant, or a variable that is surely of the type.
bool lowering::is_simple(unsigned i, CHR letter) const
{
    const item &it = r_[i];
    if (it.what == work::CONSTANT) {
        const SLO number = static_cast<SLO>(it.node[1]);
        return letter == 'I' && it.letter == 'I' && number == static_cast<int>(number);
    }
    return it.what == work::READ && variable_of(i).type == letter;
}

operand lowering::simple(unsigned i) const
{
    if (r_[i].what == work::CONSTANT) return {.number = static_cast<SLO>(r_[i].node[1])};
    const local &v = variable_of(i);
    if (v.kept) return {.kind = operand::REGISTER, .in = v.whole};
    return {.kind = operand::MEMORY, .at = home(v)};
}

// The second operand of an operation, while the first one is held.
operand lowering::second_whole(unsigned i)
{
    if (is_simple(i, 'I')) return simple(i);
    wholes_++;
    const reg in = to_whole(i);
    wholes_--;
    return {.kind = operand::REGISTER, .in = in};
}

freg lowering::second_real(unsigned i)
{
    if (is_simple(i, 'F') && variable_of(i).kept) return variable_of(i).real;
    reals_++;
    const freg in = to_real(i);
    reals_--;
    return in;
}

void lowering::compute(whole op, reg to, const operand &by)
{
    switch (by.kind) {
    case operand::NUMBER: return a_.compute(op, to, by.number);
    case operand::REGISTER: return a_.compute(op, to, by.in);
    case operand::MEMORY: return a_.compute(op, to, by.at);
    }
}

// -- Conditions --------------------------------------------------------------------------------

void lowering::compare_branch(relation r, bool when, reg a, const operand &b, label place)
{
    const auto go = [&](const auto &second) {
        when ? a_.branch_if(r, a, second, place) : a_.branch_unless(r, a, second, place);
    };
    switch (b.kind) {
    case operand::NUMBER: return go(b.number);
    case operand::REGISTER: return go(b.in);
    case operand::MEMORY: return go(b.at);
    }
}

// The second operand is cast to the type of the first one.
void lowering::branch_compare(unsigned i, label place, bool when)
{
    if (r_[i].texts && is_type_test(r_, i)) return branch_type(i, place, when);
    if (r_[i].texts) return branch_texts(i, place, when);
    const relation r = r_[i].comparison;
    const unsigned first = i + 1, second = r_[first].end;
    const label fails = a_.make_label(), behind = a_.make_label();
    if (r_[first].type.letter == 'F') {
        produce_guarded(first, fails);
        const freg b = second_real(second);
        when ? a_.branch_if(r, real_temporary(), b, place)
             : a_.branch_unless(r, real_temporary(), b, place);
    } else {
        const bool stays = is_simple(first, 'I') && simple(first).kind == operand::REGISTER &&
                           !(r_[second].assigns & r_[first].reads);
        if (!stays) produce_guarded(first, fails);
        const reg a = stays ? simple(first).in : whole_temporary();
        compare_branch(r, when, a, second_whole(second), place);
    }
    a_.bind(behind);
    if (!r_[first].type.certain) branch_by_handler(i, place, when, fails, behind);
}

// Off the road: the handler of a condition says which way.
void lowering::branch_by_handler(unsigned i, label place, bool when, label fails, label behind)
{
    instead(fails, behind, [this, i, place, when] {
        value_by_handler(i, 'I');
        a_.branch_if(when ? relation::NOT_EQUAL : relation::EQUAL, whole_temporary(), 0, place);
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
        a_.load(to, record(v, offsetof(kestrin_data, svalue)));
    } else {
        const reg index = to_whole(i + 1);
        check_member(it, index, fails);
        a_.branch_if_byte(relation::NOT_EQUAL, {scratch[0], 0, index, 1}, 'S', fails);
        a_.load(scratch[0], record(variable_of(i), offsetof(kestrin_data, array)));
        a_.load(to, {scratch[0], 0, index, sizeof(CHR *)});
    }
    a_.branch_if(relation::EQUAL, to, 0, fails);
}

// A variable without a value has no type.
void lowering::branch_type(unsigned i, label place, bool when)
{
    const bool if_same = (r_[i].comparison == relation::EQUAL) == when;
    const memory type = record(variable_of(i + 2), TYPE);
    const auto letter = static_cast<UCH>(r_[r_.operand(i, 1)].node[2]);
    const label fails = a_.make_label(), behind = a_.make_label();
    a_.branch_if_byte(relation::EQUAL, type, 0, fails);
    a_.branch_if_byte(if_same ? relation::EQUAL : relation::NOT_EQUAL, type, letter, place);
    a_.bind(behind);
    branch_by_handler(i, place, when, fails, behind);
}

// The length stands ahead of a text, and a short one is as long as a word with it.
void lowering::branch_texts(unsigned i, label place, bool when)
{
    constexpr int LENGTH = -static_cast<int>(LENGTH_WORD);
    const label fails = a_.make_label(), longer = a_.make_label(), behind = a_.make_label();
    const bool if_same = (r_[i].comparison == relation::EQUAL) == when;
    const reg a = temporaries[wholes_], b = temporaries[wholes_ + 1];
    find_text(i + 1, a, fails);
    wholes_++;
    find_text(r_.operand(i, 1), b, fails);
    wholes_--;
    a_.load(scratch[0], memory{a, LENGTH});
    a_.branch_if(relation::NOT_EQUAL, scratch[0], memory{b, LENGTH}, if_same ? behind : place);
    a_.branch_if(relation::ABOVE_OR_EQUAL, scratch[0], SLO(sizeof(ULO)), longer);
    a_.load(scratch[0], memory{a});
    a_.branch_if(if_same ? relation::EQUAL : relation::NOT_EQUAL, scratch[0], memory{b}, place);
    a_.bind(behind);
    compare_long_texts(if_same, place, longer, behind);
    branch_by_handler(i, place, when, fails, behind);
}

// Off the road; the texts are the next two temporaries.
void lowering::compare_long_texts(bool if_same, label place, label longer, label behind)
{
    late([this, if_same, place, longer, behind] {
        a_.bind(longer);
        a_.move(scratch[0], temporaries[wholes_]);
        a_.move(scratch[1], temporaries[wholes_ + 1]);
        before_call(false);
        a_.move(arguments[0], scratch[0]);
        a_.move(arguments[1], scratch[1]);
        call(&are_same_texts);
        after_call();
        a_.branch_if(if_same ? relation::NOT_EQUAL : relation::EQUAL, RESULT, 0, place);
        a_.jump(behind);
    });
}

// AND ends at the first operand that is false, OR at the first that is true.
void lowering::branch_both(unsigned i, label place, bool when)
{
    const bool decides = r_[i].what == work::EITHER;
    const unsigned second = r_[i + 1].end;
    if (when == decides) {
        branch(i + 1, place, when);
        return branch(second, place, when);
    }
    const label behind = a_.make_label();
    branch(i + 1, behind, decides);
    branch(second, place, when);
    a_.bind(behind);
}

void lowering::branch(unsigned i, label place, bool when)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (!it.by_handler) {
        if (it.what == work::COMPARE) return branch_compare(i, place, when);
        if (it.what == work::BOTH || it.what == work::EITHER) return branch_both(i, place, when);
        if (it.what == work::NUMERIC && is_negation(*it.row)) return branch(i + 1, place, !when);
    }
    const reg value = to_whole(i);
    a_.branch_if(when ? relation::NOT_EQUAL : relation::EQUAL, value, 0, place);
}

// -- Values ------------------------------------------------------------------------------------

void lowering::cast(CHR from, CHR to)
{
    if (from == 'F' && to == 'I') a_.to_whole(whole_temporary(), real_temporary());
    if (from == 'I' && to == 'F') a_.from_whole(real_temporary(), whole_temporary());
}

void lowering::value_by_handler(unsigned i, CHR letter)
{
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].word);
    letter == 'I' ? call(&whole_of) : call(&real_of);
    take_returned(letter);
    check_error(pending());
}

void lowering::to(unsigned i, CHR letter)
{
    const item &it = r_[i];
    if (it.by_handler) return value_by_handler(i, letter);
    if (it.type.certain) {
        produce(i);
        return cast(it.type.letter, letter);
    }
    if (it.what == work::IF || it.what == work::PROGN) return to_branches(i, letter);
    if (it.framed) return call_framed(i, letter);
    const label fails = a_.make_label(), behind = a_.make_label();
    const CHR found = it.type.letter != 0 ? it.type.letter : letter;
    if (it.what == work::READ)
        read_record(i, found, fails);
    else
        read_member(i, fails);
    cast(found, letter);
    a_.bind(behind);
    instead(fails, behind, [this, i, letter] { value_by_handler(i, letter); });
}

// Each branch is cast by itself.
void lowering::to_branches(unsigned i, CHR letter)
{
    if (r_[i].what == work::PROGN) {
        unsigned k = i + 1;
        for (; r_[k].end < r_[i].end; k = r_[k].end) statement(k);
        return to(k, letter);
    }
    const label otherwise = a_.make_label(), behind = a_.make_label();
    branch(i + 1, otherwise, false);
    to(r_.operand(i, 1), letter);
    a_.jump(behind);
    a_.bind(otherwise);
    to(r_.operand(i, 2), letter);
    a_.bind(behind);
}

reg lowering::to_whole(unsigned i)
{
    to(i, 'I');
    return whole_temporary();
}

freg lowering::to_real(unsigned i)
{
    to(i, 'F');
    return real_temporary();
}

// A value of a certain type.
void lowering::produce(unsigned i)
{
    const item &it = r_[i];
    if (it.by_handler) return value_by_handler(i, it.type.letter);
    switch (it.what) {
    case work::CONSTANT:
        if (it.letter == 'I') return a_.set(whole_temporary(), static_cast<SLO>(it.node[1]));
        return a_.set(real_temporary(), std::bit_cast<DFL>(it.node[1]));
    case work::READ: return read_variable(variable_of(i));
    case work::NUMERIC: return numeric(i);
    case work::COMPARE:
    case work::BOTH:
    case work::EITHER: return truth_of(i);
    case work::CAST: return to(i + 1, it.letter);
    case work::SETQ: return setq(i);
    case work::CALL: return call_function(i);
    default: return to_branches(i, it.type.letter);
    }
}

// A value of most likely its type; else at `fails` nothing has been done but what is evaluated
// again.
void lowering::produce_guarded(unsigned i, label fails)
{
    const item &it = r_[i];
    if (it.type.certain) return produce(i);
    if (it.what == work::READ) return read_record(i, it.type.letter, fails);
    if (it.what == work::INDEX) return read_member(i, fails);
    if (it.what == work::PROGN) {
        unsigned k = i + 1;
        for (; r_[k].end < it.end; k = r_[k].end) statement(k);
        return produce_guarded(k, fails);
    }
    const label otherwise = a_.make_label(), behind = a_.make_label();
    branch(i + 1, otherwise, false);
    produce_guarded(r_.operand(i, 1), fails);
    a_.jump(behind);
    a_.bind(otherwise);
    produce_guarded(r_.operand(i, 2), fails);
    a_.bind(behind);
}

void lowering::read_variable(const local &v)
{
    if (v.type == 'I' && v.kept)
        a_.move(whole_temporary(), v.whole);
    else if (v.type == 'I')
        a_.load(whole_temporary(), home(v));
    else if (v.kept)
        a_.move(real_temporary(), v.real);
    else
        a_.load(real_temporary(), home(v));
}

// A variable whose record tells its type.
void lowering::read_record(unsigned i, CHR letter, label fails)
{
    const local &v = variable_of(i);
    a_.branch_if_pair(relation::NOT_EQUAL, record(v, SHAPE), single_of(letter), fails);
    if (letter == 'I')
        a_.load(whole_temporary(), record(v, VALUE));
    else
        a_.load(real_temporary(), record(v, VALUE));
}

void lowering::load_number(CHR letter, const memory &from)
{
    if (letter == 'I')
        a_.load(whole_temporary(), from);
    else
        a_.load(real_temporary(), from);
}

void lowering::store_number(CHR letter, const memory &to)
{
    if (letter == 'I')
        a_.store(to, whole_temporary());
    else
        a_.store(to, real_temporary());
}

// The array has the class and the place; its tags stand in scratch[0].
void lowering::check_member(const item &it, reg index, label fails)
{
    const local &array = r_.locals[it.variable];
    a_.branch_if(relation::ABOVE_OR_EQUAL, index,
                 record(array, offsetof(kestrin_data, indices_numb)), fails);
    a_.branch_if_byte(relation::NOT_EQUAL, record(array, offsetof(kestrin_data, arraytype)),
                      static_cast<UCH>(it.letter), fails);
    a_.load(scratch[0], record(array, offsetof(kestrin_data, aready_tags)));
}

// The places of a mixed array stand in scratch[0]; then the record of a member. How many there are
// is told by place 0 where the array has the fewest that it can report.
void lowering::find_record(const local &array, reg index, label fails)
{
    const label large = a_.make_label();
    constexpr int COUNT = offset_in_record(offsetof(kestrin_data, indices_numb));
    a_.branch_if_byte(relation::NOT_EQUAL, record(array, offsetof(kestrin_data, arraytype)), 0,
                      fails);
    a_.load(scratch[1], record(array, COUNT));
    if (the_engine.small_arrays) {
        a_.branch_if(relation::NOT_EQUAL, scratch[1], static_cast<SLO>(PLACES_STEP), large);
        a_.load(scratch[1], memory{scratch[0], COUNT});
    }
    a_.bind(large);
    a_.branch_if(relation::ABOVE_OR_EQUAL, index, scratch[1], fails);
    a_.branch_if(relation::EQUAL, index, 0, fails);
    a_.move(scratch[1], index);
    a_.compute(whole::MUL, scratch[1], static_cast<SLO>(sizeof(kestrin_data)));
    a_.compute(whole::ADD, scratch[0], scratch[1]);
}

// Member 0 is the record's own value.
void lowering::read_first(unsigned i, label fails)
{
    const local &array = variable_of(i);
    a_.branch_if_byte(relation::NOT_EQUAL, record(array, TYPE), static_cast<UCH>(r_[i].letter),
                      fails);
    load_number(r_[i].letter, record(array, VALUE));
}

// Place 0, which says something else, looks like no member.
void lowering::read_member(unsigned i, label fails)
{
    const item &it = r_[i];
    const local &array = variable_of(i);
    if (is_first(r_, i)) return read_first(i, fails);
    const bool stays = is_simple(i + 1, 'I') && simple(i + 1).kind == operand::REGISTER;
    const reg index = stays ? simple(i + 1).in : to_whole(i + 1);
    if (it.mixed) {
        a_.load(scratch[0], record(array, offsetof(kestrin_data, array)));
        a_.branch_if(relation::EQUAL, scratch[0], 0, fails);
        find_record(array, index, fails);
        a_.branch_if_pair(relation::NOT_EQUAL, {scratch[0], SHAPE}, single_of(it.letter), fails);
        return load_number(it.letter, {scratch[0], VALUE});
    }
    check_member(it, index, fails);
    a_.branch_if_byte(relation::NOT_EQUAL, {scratch[0], 0, index, 1}, static_cast<UCH>(it.letter),
                      fails);
    a_.load(scratch[0], record(array, offsetof(kestrin_data, array)));
    load_number(it.letter, {scratch[0], 0, index, sizeof(SLO)});
}

// 1 or 0.
void lowering::truth_of(unsigned i)
{
    const label behind = a_.make_label(), no = a_.make_label();
    branch(i, no, false);
    a_.set(whole_temporary(), 1);
    a_.jump(behind);
    a_.bind(no);
    a_.set(whole_temporary(), 0);
    a_.bind(behind);
}

} // namespace native
