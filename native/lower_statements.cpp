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
    a_.load(arguments[1], {STACK, RESULT_RECORD});
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
    case work::IF: lower_if(i, &lowering::statement); break;
    case work::WHILE: lower_while(i); break;
    case work::FOR: lower_for(i); break;
    case work::BREAK:
        a_.store_byte(in_machine(offsetof(rt_control, rt_error_code)), 0);
        a_.jump(loops_.back().end);
        break;
    case work::PROGN:
        for (unsigned k = i + 1; k < it.end; k = r_[k].end) statement(k);
        break;
    default:
        if (it.type.letter == 'F')
            to_real(i);
        else
            to_whole(i);
    }
}

void lowering::lower_if(unsigned i, void (lowering::*branch_of)(unsigned))
{
    const label otherwise = a_.make_label(), behind = a_.make_label();
    const unsigned no = r_.operand(i, 2);
    branch(i + 1, otherwise, false);
    (this->*branch_of)(r_.operand(i, 1));
    const bool is_empty = branch_of == &lowering::statement && r_[no].what == work::CONSTANT;
    if (!is_empty) a_.jump(behind);
    a_.bind(otherwise);
    (this->*branch_of)(no);
    a_.bind(behind);
}

// -- Loops -------------------------------------------------------------------------------------

open_loop lowering::begin_loop()
{
    loops_.push_back({a_.make_label(), a_.make_label()});
    return loops_.back();
}

// Behind a jump.
void lowering::begin_round(label body)
{
    a_.align();
    a_.bind(body);
    if (the_engine.interruptible) check_error(pending());
}

// Off the road: an error has come in the loop, and if it is a BREAK, the loop ends well.
void lowering::end_loop(const open_loop &loop)
{
    loops_.pop_back();
    a_.bind(loop.end);
    late([this, loop] {
        a_.bind(loop.pending);
        before_call(false);
        call(&absorb_break);
        a_.store(memory{STACK, stack_.returned}, RESULT);
        after_call();
        a_.branch_if_byte(relation::NOT_EQUAL, {STACK, stack_.returned}, 0, loop.end);
        a_.jump(error_);
    });
}

// The condition stands behind the body, so that a round has one jump.
void lowering::lower_while(unsigned i)
{
    const label body = a_.make_label(), test = a_.make_label();
    const open_loop loop = begin_loop();
    a_.jump(test);
    begin_round(body);
    statement(r_.operand(i, 1));
    a_.bind(test);
    branch(i + 1, body, true);
    end_loop(loop);
}

// The control variable in a register, which may be scratch[0].
reg lowering::control_of(unsigned i)
{
    const local &v = variable_of(i);
    if (v.kept) return v.whole;
    a_.load(scratch[0], home(v));
    return scratch[0];
}

// Goes on with the body as long as the end is not passed. Whether the variable goes up or down is
// known for a constant increment, else it is asked each time.
void lowering::test_for(unsigned i, label body, label behind)
{
    const unsigned by = r_.operand(i, 1), to = r_.operand(i, 2);
    const bool is_fixed = r_[by].what == work::CONSTANT && r_[by].letter == 'I';
    const bool goes_down = is_fixed && static_cast<SLO>(r_[by].node[1]) < 0;
    if (!is_fixed) {
        to_whole(by);
        wholes_++;
    }
    operand end;
    if (is_simple(to, 'I'))
        end = simple(to);
    else
        end = {.kind = operand::REGISTER, .in = to_whole(to)};
    if (!is_fixed) {
        const label down = a_.make_label();
        wholes_--;
        a_.branch_if(relation::LESS, temporaries[wholes_], 0, down);
        compare_branch(relation::LESS_OR_EQUAL, true, control_of(i), end, body);
        a_.jump(behind);
        a_.bind(down);
    }
    const bool down = !is_fixed || goes_down;
    compare_branch(down ? relation::GREATER_OR_EQUAL : relation::LESS_OR_EQUAL, true, control_of(i),
                   end, body);
}

// The increment is evaluated again, as programs may see.
void lowering::step_for(unsigned i)
{
    const local &v = variable_of(i);
    const unsigned by = r_.operand(i, 1);
    if (is_simple(by, 'I') && v.kept) return compute(whole::ADD, v.whole, simple(by));
    const reg step = to_whole(by);
    if (v.kept) return a_.compute(whole::ADD, v.whole, step);
    a_.compute(whole::ADD, step, home(v));
    a_.store(home(v), step);
}

void lowering::lower_for(unsigned i)
{
    const local &v = variable_of(i);
    const label body = a_.make_label(), test = i == 0 ? resume_ : a_.make_label();
    const open_loop loop = begin_loop();
    to_whole(i + 1);
    assign(v);
    a_.jump(test);
    begin_round(body);
    statement(r_.operand(i, 3));
    step_for(i);
    a_.bind(test);
    test_for(i, body, loop.end);
    end_loop(loop);
}

// -- Variables ---------------------------------------------------------------------------------

void lowering::store_shape(const local &v)
{
    if (r_.kind != shape::DIRECT) a_.store_pair(record(v, SHAPE), single_of(v.type));
}

// The variable gets what stands in the next temporary of its type.
void lowering::assign(const local &v)
{
    if (v.late) store_shape(v);
    if (v.type == 'I' && v.kept)
        a_.move(v.whole, whole_temporary());
    else if (v.type == 'I')
        a_.store(home(v), whole_temporary());
    else if (v.kept)
        a_.move(v.real, real_temporary());
    else
        a_.store(home(v), real_temporary());
}

void lowering::setq(unsigned i)
{
    const local &v = variable_of(i);
    if (!r_[i + 1].type.certain) return setq_uncertain(i);
    if (v.type == 0) return setq_record(i);
    produce(i + 1);
    assign(v);
}

// A value that has most likely the variable's type. If not, the handler does it all, and if the
// variable holds another type then, the handlers go on.
void lowering::setq_uncertain(unsigned i)
{
    const item &value = r_[i + 1];
    if (value.framed && variable_of(i).type != 0) return setq_framed(i);
    if (value.by_handler || !value.pure || value.type.letter != variable_of(i).type)
        return setq_by_handler(i);
    const label fails = a_.make_label(), behind = a_.make_label();
    produce_guarded(i + 1, fails);
    assign(variable_of(i));
    a_.bind(behind);
    instead(fails, behind, [this, i] { setq_by_handler(i); });
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
    if (v.kept) load_variable(v);
    late([this, i, other] {
        a_.bind(other);
        go_on_by_handlers_after(i);
    });
}

void lowering::setq_framed(unsigned i)
{
    const label fails = a_.make_label(), behind = a_.make_label();
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
    a_.bind(behind);
    instead(fails, behind, [this, i] { setq_by_handler(i); });
}

// A number for a variable that its record tells of.
void lowering::setq_record(unsigned i)
{
    const local &v = variable_of(i);
    const CHR type = r_[i + 1].type.letter;
    const label fails = a_.make_label(), behind = a_.make_label();
    produce(i + 1);
    check_owns_nothing(v, fails);
    a_.store_pair(record(v, SHAPE), single_of(type));
    if (type == 'I')
        a_.store(record(v, VALUE), whole_temporary());
    else
        a_.store(record(v, VALUE), real_temporary());
    a_.bind(behind);
    instead(fails, behind, [this, &v, type] {
        if (type == 'I')
            a_.move(arguments[1], whole_temporary());
        else
            a_.move(freg::X0, real_temporary());
        before_call(true);
        a_.address(arguments[0], record(v, 0));
        if (type == 'I')
            call(&assign_whole);
        else
            call(&assign_real);
        after_call();
    });
}

// -- Members -----------------------------------------------------------------------------------

// The place is there; if it holds no member yet, it is marked. Small arrays have places without
// memory, for which the handler looks.
void lowering::mark_member(unsigned i, reg index, label marked, label fails)
{
    const local &array = variable_of(i);
    const CHR letter = r_[i].letter;
    const label unmarked = a_.make_label();
    const memory tag = {scratch[0], 0, index, 1};
    a_.branch_if_byte(relation::NOT_EQUAL, tag, static_cast<UCH>(letter), unmarked);
    late([this, &array, letter, index, tag, unmarked, marked, fails] {
        a_.bind(unmarked);
        a_.branch_if(relation::EQUAL, index, 0, fails);
        a_.load(scratch[1], record(array, offsetof(kestrin_data, indices_numb)));
        a_.branch_if(relation::EQUAL, scratch[1], static_cast<SLO>(PLACES_STEP), fails);
        a_.store_byte(tag, static_cast<UCH>(letter));
        a_.jump(marked);
    });
}

void lowering::store_typed(unsigned i, label fails)
{
    const label marked = a_.make_label();
    const reg index = temporaries[wholes_ - 1];
    check_member(r_[i], index, fails);
    mark_member(i, index, marked, fails);
    a_.bind(marked);
    a_.load(scratch[0], record(variable_of(i), offsetof(kestrin_data, array)));
    store_number(r_[i].letter, {scratch[0], 0, index, sizeof(SLO)});
}

// Places of an array that nobody shares, of which the member owns nothing.
void lowering::store_mixed(unsigned i, label fails)
{
    const local &array = variable_of(i);
    const CHR letter = r_[r_.operand(i, 1)].type.letter;
    const auto member = [](std::size_t offset) {
        return memory{scratch[0], offset_in_record(offset)};
    };
    a_.load(scratch[0], record(array, offsetof(kestrin_data, array)));
    a_.branch_if(relation::EQUAL, scratch[0], 0, fails);
    a_.load(scratch[1], member(VALUE)); // of place 0: how many share them
    a_.branch_if(relation::NOT_EQUAL, scratch[1], 0, fails);
    find_record(array, temporaries[wholes_ - 1], fails);
    a_.load(scratch[1], member(offsetof(kestrin_data, svalue)));
    a_.compute(whole::OR, scratch[1], member(offsetof(kestrin_data, aready_tags)));
    a_.compute(whole::OR, scratch[1], member(offsetof(kestrin_data, array)));
    a_.branch_if(relation::NOT_EQUAL, scratch[1], 0, fails);
    a_.store_pair(member(SHAPE), single_of(letter));
    store_number(letter, member(VALUE));
}

// Member 0 is the record's own value.
void lowering::store_first(unsigned i, label fails)
{
    const local &array = variable_of(i);
    const CHR letter = r_[r_.operand(i, 1)].type.letter;
    a_.load(scratch[0], record(array, offsetof(kestrin_data, svalue)));
    a_.branch_if(relation::NOT_EQUAL, scratch[0], 0, fails);
    a_.store_byte(record(array, TYPE), static_cast<UCH>(letter));
    store_number(letter, record(array, VALUE));
}

void lowering::arsetq(unsigned i)
{
    const label fails = a_.make_label(), behind = a_.make_label();
    to_whole(i + 1);
    wholes_++;
    produce_guarded(r_.operand(i, 1), fails);
    if (is_first(r_, i))
        store_first(i, fails);
    else if (r_[i].mixed)
        store_mixed(i, fails);
    else
        store_typed(i, fails);
    wholes_--;
    a_.bind(behind);
    instead(fails, behind, [this, i] { statement_by_handler(i); });
}

// -- The way back ------------------------------------------------------------------------------

// The nodes around a statement.
const exit_path *lowering::path_of(unsigned i)
{
    auto path = std::make_unique<exit_path>();
    for (; i != 0; i = r_[i].parent) {
        const unsigned parent = r_[i].parent;
        const work what = r_[parent].what;
        if (what == work::PROGN || what == work::WHILE || what == work::FOR)
            path->steps.push_back({what, r_[parent].node, r_[i].place + 1});
    }
    made_.exits.push_back(std::move(path));
    return made_.exits.back().get();
}

// The variables stand in their records.
void lowering::go_on_by_handlers_after(unsigned i)
{
    set_address(arguments[0], path_of(i));
    a_.load(arguments[1], {STACK, RESULT_RECORD});
    call(&go_on_by_handlers);
    end();
}

// -- Answers -----------------------------------------------------------------------------------

void lowering::answer_by_handler(unsigned i)
{
    note(i);
    before_call(true);
    set_address(arguments[0], r_[i].node);
    a_.load(arguments[1], {STACK, RESULT_RECORD});
    const fcall handler = i == 0 ? linked_handler(r_[i].node) : nullptr; // the root has this code
    a_.set(arguments[2], std::bit_cast<SLO>(handler));
    call(&run_answer);
    a_.jump(done_);
}

void lowering::answer(unsigned i)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (it.what == work::IF && !it.by_handler) return lower_if(i, &lowering::answer);
    if (it.what == work::PROGN && !it.by_handler) {
        unsigned k = i + 1;
        for (; r_[k].end < it.end; k = r_[k].end) statement(k);
        return answer(k);
    }
    const bool is_loop = it.what == work::WHILE || it.what == work::FOR;
    if (it.by_handler || !it.type.certain) return answer_by_handler(i);
    if (is_loop) {
        statement(i);
        a_.set(temporaries[0], 0);
    } else {
        produce(i);
    }
    a_.load(scratch[0], {STACK, RESULT_RECORD});
    a_.store_pair({scratch[0], SHAPE}, single_of(it.type.letter));
    if (it.type.letter == 'I')
        a_.store(memory{scratch[0], VALUE}, temporaries[0]);
    else
        a_.store(memory{scratch[0], VALUE}, real_temporaries[0]);
    a_.jump(done_);
}

void lowering::answer_in_register(unsigned i)
{
    const item &it = r_[i];
    const mark_scope mine(this, i);
    if (it.what == work::IF) return lower_if(i, &lowering::answer_in_register);
    if (it.what == work::PROGN) {
        unsigned k = i + 1;
        for (; r_[k].end < it.end; k = r_[k].end) statement(k);
        return answer_in_register(k);
    }
    if (it.what == work::WHILE || it.what == work::FOR) {
        statement(i);
        a_.set(RESULT, 0);
    } else {
        produce(i);
        if (it.type.letter == 'I')
            a_.move(RESULT, temporaries[0]);
        else if (real_temporaries[0] != REAL_RESULT)
            a_.move(REAL_RESULT, real_temporaries[0]);
    }
    a_.jump(done_);
}

} // namespace native
