// Conditions and values.

#include <algorithm>

#include "native/lowering.h"
#include "strings/block.h"
#include "vm/places.h"

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
    late([this, i, place, when, fails, behind] {
        a_.bind(fails);
        value_by_handler(i, 'I');
        a_.branch_if(when ? relation::NOT_EQUAL : relation::EQUAL, whole_temporary(), 0, place);
        a_.jump(behind);
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
    if (!it.by_handler) {
        if (it.what == work::COMPARE) return branch_compare(i, place, when);
        if (it.what == work::BOTH || it.what == work::EITHER) return branch_both(i, place, when);
        if (it.what == work::NUMERIC && it.row->handler == func__not)
            return branch(i + 1, place, !when);
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
    before_call(true);
    set_address(arguments[0], r_[i].word);
    if (letter == 'I') {
        call(&whole_of);
        a_.move(whole_temporary(), RESULT);
    } else {
        call(&real_of);
        a_.move(real_temporary(), REAL_RESULT);
    }
    after_call();
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
    late([this, i, letter, fails, behind] {
        a_.bind(fails);
        value_by_handler(i, letter);
        a_.jump(behind);
    });
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

void lowering::divide(unsigned i, bool is_quotient)
{
    const unsigned second = r_[i + 1].end;
    const bool is_fixed = is_simple(second, 'I') && r_[second].what == work::CONSTANT;
    if (is_fixed && is_power_of_two(simple(second).number))
        return divide_by_power(is_quotient, simple(second).number);
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
    if (row.result == 'I')
        a_.move(whole_temporary(), RESULT);
    else
        a_.move(real_temporary(), REAL_RESULT);
    after_call();
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
    pass_to_function(i);
    a_.branch_if(relation::BELOW, STACK, in_machine(offsetof(rt_control, call_floor)), too_deep);
    if (callee == r_.self)
        a_.call(direct_);
    else
        a_.call(callee->code);
    if (callee->result == 'I')
        a_.move(whole_temporary(), RESULT);
    else
        a_.move(real_temporary(), REAL_RESULT);
    after_call();
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
    before_call(true);
    set_address(arguments[0], r_[i].word);
    a_.address(arguments[1], {STACK, GIVEN});
    if (letter == 'I') {
        call(&call_for_whole);
        a_.move(whole_temporary(), RESULT);
    } else {
        call(&call_for_real);
        a_.move(real_temporary(), REAL_RESULT);
    }
    after_call();
    check_error(pending());
    a_.bind(behind);
    late([this, i, letter, fails, behind] {
        a_.bind(fails);
        value_by_handler(i, letter);
        a_.jump(behind);
    });
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
