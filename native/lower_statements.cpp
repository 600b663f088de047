// Statements and loops, and what a function answers.

#include "native/lowering.h"
#include "vm/hot.h"
#include "vm/places.h"

namespace native {

void lowering::statement_by_handler(unsigned i)
{
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].node);
    a_.move(arguments[1], memory{STACK, RESULT_RECORD});
    call(&run_statement);
    after_call();
    check_error(pending());
}

void lowering::statement(unsigned i)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (it.by_handler) return statement_by_handler(i);
    switch (it.what) {
    case work::CONSTANT: break;
    case work::READ:
        if (variable_of(i).type == 0) statement_by_handler(i); // it may be unset
        break;
    case work::SETQ: setq(i); break;
    case work::ARSETQ: arsetq(i); break;
    case work::WHILE:
    case work::FOR: lower_loop(i); break;
    case work::BREAK:
        a_.store_byte(in_machine(offsetof(rt_control, rt_error_code)), 0);
        a_.jump(loops_.back().end);
        break;
    case work::IF:
    case work::PROGN:
        in_branches(
            i, [this](unsigned k) { statement(k); }, true);
        break;
    default: value(i, it.type.letter == 'F' ? 'F' : 'I');
    }
}

// -- Loops -------------------------------------------------------------------------------------

// The condition stands behind the body, so that a round has one jump. Off the road: an error has
// come in the loop, and if it is a BREAK, the loop ends well.
void lowering::lower_loop(unsigned i)
{
    const bool is_for = r_[i].what == work::FOR;
    const label body = a_.make_label(), test = i == 0 ? resume_ : a_.make_label();
    const open_loop loop = {a_.make_label(), a_.make_label()};
    loops_.push_back(loop);
    if (is_for) assign(variable_of(i), value(i + 1, 'I'));
    a_.jump(test);
    a_.align();
    a_.bind(body);
    if (the_engine.interruptible) check_error(loop.pending);
    statement(r_.operand(i, is_for ? 3 : 1));
    if (is_for) step_for(i);
    a_.bind(test);
    is_for ? test_for(i, body, loop.end) : branch(i + 1, body, true);
    loops_.pop_back();
    a_.bind(loop.end);
    late(loop.pending, [this, loop] {
        before_call(false);
        call(&absorb_break);
        after_call(); // which leaves the answer: a loop is a statement, and no value is held
        a_.compute(operation::AND, RESULT, 0xFF);
        a_.branch_if(relation::NOT_EQUAL, RESULT, 0, loop.end);
        a_.jump(error_);
    });
}

// Goes on with the body as long as the end is not passed. Whether the variable goes up or down is
// known for a constant increment, else it is asked each time.
void lowering::test_for(unsigned i, label body, label behind)
{
    const unsigned by = r_.operand(i, 1);
    const bool is_fixed = r_[by].what == work::CONSTANT && r_[by].letter == 'I';
    const reg step = is_fixed ? reg::NONE : value(by, 'I');
    const operand end = second(r_.operand(i, 2), 'I', step);
    const local &v = variable_of(i);
    if (!v.kept()) a_.move(scratch[0], home(v));
    const reg control = v.kept() ? v.in : scratch[0];
    if (is_fixed) {
        const bool goes_down = static_cast<SLO>(r_[by].node[1]) < 0;
        const relation stays = goes_down ? relation::GREATER_OR_EQUAL : relation::LESS_OR_EQUAL;
        return a_.branch_if(stays, control, end, body);
    }
    const label down = a_.make_label();
    a_.branch_if(relation::LESS, step, 0, down);
    a_.branch_if(relation::LESS_OR_EQUAL, control, end, body);
    a_.jump(behind);
    a_.bind(down);
    a_.branch_if(relation::GREATER_OR_EQUAL, control, end, body);
}

// The increment is evaluated again, as programs may see.
void lowering::step_for(unsigned i)
{
    const local &v = variable_of(i);
    const operand step = second(r_.operand(i, 1), 'I', reg::NONE);
    const reg control = v.kept() ? v.in : scratch[0];
    a_.move(control, place_of(v));
    a_.compute(operation::ADD, control, step);
    if (!v.kept()) a_.store(home(v), control);
}

// -- Variables ---------------------------------------------------------------------------------

void lowering::assign(const local &v, reg value)
{
    if (v.late && r_.kind != shape::DIRECT) a_.store_pair(record(v, SHAPE), single_of(v.type));
    if (v.kept())
        a_.move(v.in, value);
    else
        a_.store(home(v), value);
}

// A value of the variable's type, or most likely of it. If it has another one, the handler does it
// all, and if the variable holds another type then, the handlers go on.
void lowering::setq(unsigned i)
{
    const local &v = variable_of(i);
    const item &source = r_[i + 1];
    if (source.type.certain) return v.type == 0 ? setq_record(i) : assign(v, value(i + 1, v.type));
    if (source.framed && v.type != 0) return setq_framed(i);
    if (source.by_handler || !source.pure || source.type.letter != v.type)
        return setq_by_handler(i);
    const label fails = a_.make_label();
    assign(v, value(i + 1, v.type, fails));
    instead(fails, [this, i] { setq_by_handler(i); });
}

void lowering::setq_by_handler(unsigned i)
{
    statement_by_handler(i);
    if (variable_of(i).type != 0) check_assigned(i);
}

// Whether the variable, whose record has been assigned, holds its type.
void lowering::check_assigned(unsigned i)
{
    const local &v = variable_of(i);
    const label other = a_.make_label();
    a_.branch_if_pair(relation::NOT_EQUAL, record(v, SHAPE), single_of(v.type), other);
    check_owns_nothing(v, other);
    if (v.kept()) a_.move(v.in, home(v));
    late(other, [this, i] { go_on_by_handlers_after(i); });
}

void lowering::setq_framed(unsigned i)
{
    const label fails = a_.make_label();
    give_numbers(i + 1, fails);
    note(i + 1);
    before_call(true);
    set_address(arguments[0], r_[i + 1].node + 1);
    a_.address(arguments[1], {STACK, GIVEN});
    a_.address(arguments[2], record(variable_of(i), 0));
    call(&call_and_assign);
    after_call();
    check_error(pending());
    check_assigned(i);
    instead(fails, [this, i] { setq_by_handler(i); });
}

// A number for a variable that its record tells of; it is evaluated again if the handler has to
// assign it.
void lowering::setq_record(unsigned i)
{
    const local &v = variable_of(i);
    const CHR type = r_[i + 1].type.letter;
    const label fails = a_.make_label();
    const reg number = value(i + 1, type);
    check_owns_nothing(v, fails);
    a_.store_pair(record(v, SHAPE), single_of(type));
    a_.store(record(v, VALUE), number);
    instead(fails, [this, i] { statement_by_handler(i); });
}

// -- Members -----------------------------------------------------------------------------------

// A place that is there but holds no member yet is marked. Small arrays have places without memory,
// for which the handler looks.
void lowering::store_typed(unsigned i, reg index, label fails)
{
    const local &array = variable_of(i);
    const UCH letter = static_cast<UCH>(r_[i].letter);
    const label unmarked = a_.make_label();
    const memory tag = {scratch[0], 0, index, 1};
    find_tags(i, index, fails);
    a_.branch_if_byte(relation::NOT_EQUAL, tag, letter, unmarked);
    instead(unmarked, [this, &array, letter, index, tag, fails] {
        a_.branch_if(relation::EQUAL, index, 0, fails);
        a_.move(scratch[1], record(array, offsetof(kestrin_data, indices_numb)));
        a_.branch_if(relation::EQUAL, scratch[1], static_cast<SLO>(PLACES_STEP), fails);
        a_.store_byte(tag, letter);
    });
    a_.move(scratch[0], record(array, offsetof(kestrin_data, array)));
    a_.store({scratch[0], 0, index, sizeof(SLO)}, temporary(r_[i].letter));
}

// Places of an array that nobody shares, of which the member owns nothing.
void lowering::store_mixed(unsigned i, reg index, label fails)
{
    const CHR letter = r_[r_.operand(i, 1)].type.letter;
    const auto member = [](std::size_t offset) {
        return memory{scratch[0], offset_in_record(offset)};
    };
    find_record(variable_of(i), index, fails);
    a_.move(scratch[1], member(offsetof(kestrin_data, svalue)));
    a_.compute(operation::OR, scratch[1], member(offsetof(kestrin_data, aready_tags)));
    a_.compute(operation::OR, scratch[1], member(offsetof(kestrin_data, array)));
    a_.branch_if(relation::NOT_EQUAL, scratch[1], 0, fails);
    a_.move(scratch[1], record(variable_of(i), offsetof(kestrin_data, array)));
    a_.move(scratch[1], memory{scratch[1], VALUE}); // of place 0: how many share them
    a_.branch_if(relation::NOT_EQUAL, scratch[1], 0, fails);
    a_.store_pair(member(SHAPE), single_of(letter));
    a_.store(member(VALUE), temporary(letter));
}

// Member 0 is the record's own value.
void lowering::store_first(unsigned i, label fails)
{
    const local &array = variable_of(i);
    const CHR letter = r_[r_.operand(i, 1)].type.letter;
    a_.move(scratch[0], record(array, offsetof(kestrin_data, svalue)));
    a_.branch_if(relation::NOT_EQUAL, scratch[0], 0, fails);
    a_.store_byte(record(array, TYPE), static_cast<UCH>(letter));
    a_.store(record(array, VALUE), temporary(letter));
}

void lowering::arsetq(unsigned i)
{
    const unsigned source = r_.operand(i, 1);
    const label fails = a_.make_label();
    const reg index = value(i + 1, 'I');
    held_.push_back(index);
    value(source, r_[source].type.letter, fails);
    if (is_first(r_, i))
        store_first(i, fails);
    else if (r_[i].mixed)
        store_mixed(i, index, fails);
    else
        store_typed(i, index, fails);
    held_.pop_back();
    instead(fails, [this, i] { statement_by_handler(i); });
}

// -- The way back ------------------------------------------------------------------------------

// The nodes around a statement.
const exit_path *lowering::path_of(unsigned i)
{
    auto path = std::make_unique<exit_path>();
    for (; i != 0; i = r_[i].parent) {
        const unsigned parent = r_[i].parent;
        const work what = r_[parent].what;
        if (what == work::PROGN || is_loop(what))
            path->steps.push_back({what, r_[parent].node, r_[i].place + 1});
    }
    made_.exits.push_back(std::move(path));
    return made_.exits.back().get();
}

// The variables stand in their records.
void lowering::go_on_by_handlers_after(unsigned i)
{
    set_address(arguments[0], path_of(i));
    a_.move(arguments[1], memory{STACK, RESULT_RECORD});
    call(&go_on_by_handlers);
    end(1);
}

// -- Answers -----------------------------------------------------------------------------------

void lowering::answer_by_handler(unsigned i)
{
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].node);
    a_.move(arguments[1], memory{STACK, RESULT_RECORD});
    const fcall handler = i == 0 ? linked_handler(r_[i].node) : nullptr; // the root has this code
    a_.move(arguments[2], std::bit_cast<SLO>(handler));
    call(&run_answer);
    a_.jump(done_);
}

void lowering::store_answer(CHR letter, reg value)
{
    a_.move(scratch[1], memory{STACK, RESULT_RECORD});
    a_.store_pair({scratch[1], SHAPE}, single_of(letter));
    a_.store({scratch[1], VALUE}, value);
}

// A function of numbers answers in a register, all others in the result record. A loop answers 0.
void lowering::answer(unsigned i)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (!it.by_handler && is_branching(it.what))
        return in_branches(i, [this](unsigned k) { answer(k); });
    if (it.by_handler || !it.type.certain) return answer_by_handler(i);
    const CHR letter = it.type.letter;
    if (is_loop(it.what)) statement(i);
    if (r_.kind == shape::DIRECT) {
        a_.move(returned_in(letter), is_loop(it.what) ? operand(0) : value(i, letter));
    } else if (is_loop(it.what)) {
        store_variables(true);
        a_.move(arguments[0], memory{STACK, RESULT_RECORD});
        call(&answer_zero);
    } else {
        store_answer(letter, value(i, letter));
    }
    a_.jump(done_);
}

} // namespace native
