#include "native/lower.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "native/lowering.h"
#include "vm/watch.h"

namespace native {

namespace {

// With the return address and the words of own_stack they leave the stack as calls want it.
constexpr reg saved[] = {MACHINE, FRAME, kept[0], kept[1], kept[2], kept[3]};
constexpr int own_stack = GIVEN + static_cast<int>(MOST_GIVEN * sizeof(given_number)) + 8;
static_assert((8 + 8 * std::size(saved) + own_stack) % 16 == 0);

} // namespace

memory lowering::home(const local &v) const
{
    if (r_.kind != shape::DIRECT) return record(v, offsetof(kestrin_data, value));
    const auto ahead = std::count_if(std::as_const(r_.locals).data(), &v,
                                     [this](const local &other) { return needs_home(other); });
    return {STACK, stack_.variables + 8 * static_cast<int>(ahead)};
}

memory lowering::record(const local &v, std::size_t offset) const
{
    return {FRAME, static_cast<int>(v.number * sizeof(kestrin_data) + offset)};
}

bool lowering::is_lost_in_calls(const local &v) const
{
    if (!v.kept) return false;
    return v.type == 'F' || std::find(std::begin(kept), std::end(kept), v.whole) == std::end(kept);
}

// -- Calls of the engine -----------------------------------------------------------------------

// What a call could lose goes into memory, and with `all` what the called one may look at.
void lowering::store_variables(bool all)
{
    for (const local &v : r_.locals) {
        const bool changed = v.assigned || r_.kind == shape::DIRECT;
        if (!v.kept || !changed || !(all || is_lost_in_calls(v))) continue;
        if (v.type == 'I')
            a_.store(home(v), v.whole);
        else
            a_.store(home(v), v.real);
    }
}

// A variable that is kept gets what its home holds.
void lowering::load_variable(const local &v)
{
    if (v.type == 'I')
        a_.load(v.whole, home(v));
    else
        a_.load(v.real, home(v));
}

void lowering::load_lost_variables()
{
    for (const local &v : r_.locals)
        if (is_lost_in_calls(v)) load_variable(v);
}

void lowering::before_call(bool sees_variables)
{
    store_variables(sees_variables && r_.kind != shape::DIRECT);
    for (unsigned k = 0; k < wholes_; k++)
        a_.store(memory{STACK, HELD_WHOLES + 8 * static_cast<int>(k)}, temporaries[k]);
    for (unsigned k = 0; k < reals_; k++)
        a_.store(memory{STACK, stack_.reals + 8 * static_cast<int>(k)}, real_temporaries[k]);
}

void lowering::after_call()
{
    load_lost_variables();
    for (unsigned k = 0; k < wholes_; k++)
        a_.load(temporaries[k], {STACK, HELD_WHOLES + 8 * static_cast<int>(k)});
    for (unsigned k = 0; k < reals_; k++)
        a_.load(real_temporaries[k], {STACK, stack_.reals + 8 * static_cast<int>(k)});
}

// Behind a call that returns a number.
void lowering::take_returned(CHR letter)
{
    if (letter == 'I')
        a_.move(whole_temporary(), RESULT);
    else
        a_.move(real_temporary(), REAL_RESULT);
    after_call();
}

void lowering::check_error(label place)
{
    a_.branch_if_byte(relation::EQUAL, in_machine(offsetof(rt_control, rt_noterror)), 0, place);
}

// -- Watched runs ------------------------------------------------------------------------------

void lowering::mark(const ULO *node)
{
    node_ = node;
    if (the_engine.watcher == nullptr) return;
    auto &marks = made_.marks;
    if (!marks.empty() && marks.back().offset == a_.size()) marks.pop_back();
    marks.push_back({a_.size(), node, depth_});
}

// A function without a frame has put so much on the stack.
void lowering::deepen(SLO bytes)
{
    depth_ += bytes;
    mark(node_);
}

constexpr std::size_t watched_node = offsetof(rt_control, watched.node);
constexpr std::size_t watched_direct = offsetof(rt_control, watched.direct);

void lowering::note(unsigned i)
{
    if (the_engine.watcher == nullptr) return;
    set_address(scratch[0], r_[i].node);
    a_.store(in_machine(watched_node), scratch[0]);
    if (r_.kind != shape::DIRECT) return;
    a_.address(scratch[0], {STACK, static_cast<int>(depth_)});
    a_.store(in_machine(watched_direct), scratch[0]);
}

void lowering::note_return()
{
    if (the_engine.watcher != nullptr && r_.kind == shape::DIRECT)
        a_.store(in_machine(watched_direct), SLO(0));
}

void lowering::count_call(const ULO *image)
{
    if (the_engine.watcher == nullptr) return;
    set_address(scratch[0], the_engine.watcher->counter(image));
    a_.increment({scratch[0]});
}

void lowering::emit_late()
{
    for (std::size_t i = 0; i < late_.size(); i++) {
        const auto emit = std::move(late_[i]);
        emit();
    }
}

// -- Ways in and out ---------------------------------------------------------------------------

// With an error pending the handlers know best what is still done.
void lowering::begin(label fails)
{
    for (const reg r : saved) a_.push(r);
    a_.move_stack(-own_stack);
    a_.store(memory{STACK, RESULT_RECORD}, arguments[1]);
    call(&enter);
    a_.move(MACHINE, RESULT);
    check_error(fails);
    a_.load(FRAME, in_machine(offsetof(rt_control, rt_frame)));
}

void lowering::end()
{
    a_.set(RESULT, 1);
    a_.move_stack(own_stack);
    for (std::size_t i = std::size(saved); i-- > 0;) a_.pop(saved[i]);
    a_.leave();
}

// Nothing has been done, and the answer is 0.
void lowering::refuse(label fails)
{
    a_.bind(fails);
    a_.set(RESULT, 0);
    a_.move_stack(own_stack);
    for (std::size_t i = std::size(saved); i-- > 0;) a_.pop(saved[i]);
    a_.leave();
}

void lowering::check_owns_nothing(const local &v, label fails)
{
    a_.load(scratch[0], record(v, offsetof(kestrin_data, svalue)));
    a_.compute(whole::OR, scratch[0], record(v, offsetof(kestrin_data, aready_tags)));
    a_.compute(whole::OR, scratch[0], record(v, offsetof(kestrin_data, array)));
    a_.branch_if(relation::NOT_EQUAL, scratch[0], 0, fails);
}

// The variable holds a number of its type, if it is to hold one yet, and nothing besides where it
// is to get another one.
void lowering::check_type(const local &v, bool is_set, label fails)
{
    if (is_set) a_.branch_if_pair(relation::NOT_EQUAL, record(v, SHAPE), single_of(v.type), fails);
    if (v.assigned) check_owns_nothing(v, fails);
}

// `set` has been assigned ahead of this way in. The locals of a function are fresh.
void lowering::check_types(variable_set set, label fails)
{
    for (unsigned v = 0; v < r_.locals.size(); v++) {
        const local &it = r_.locals[v];
        if (it.type != 0 && (r_.kind == shape::LOOP || (r_.arguments & bit(v))))
            check_type(it, !it.late || (set & bit(v)), fails);
    }
}

// As they are: what is not assigned goes back as it has come.
void lowering::load_variables()
{
    for (const local &v : r_.locals)
        if (v.kept) load_variable(v);
}

// An error is pending, and the variables stand in their registers.
void lowering::leave_with_error()
{
    a_.bind(error_);
    store_variables(true);
    end();
}

void lowering::make_loop()
{
    const label fails = a_.make_label();
    if (r_[0].what == work::FOR) {
        a_.bind(resume_start_);
        begin(fails);
        check_types(r_[1].assigns | bit(r_[0].variable), fails);
        load_variables();
        a_.jump(resume_);
    }
    a_.bind(start_);
    begin(fails);
    check_types(0, fails);
    load_variables();
    statement(0);
    store_variables(true);
    a_.load(arguments[0], {STACK, RESULT_RECORD});
    call(&answer_zero);
    end();
    refuse(fails);
    emit_late();
    leave_with_error();
}

void lowering::make_body()
{
    const label fails = a_.make_label();
    a_.bind(start_);
    begin(fails);
    check_types(0, fails);
    load_variables();
    answer(0);
    a_.bind(done_);
    end();
    refuse(fails);
    emit_late();
    leave_with_error();
}

// The way in from handlers, with the arguments in a frame, and the function itself.
void lowering::make_direct()
{
    const label fails = a_.make_label(), ends = a_.make_label();
    const CHR result = r_.self->result;
    a_.bind(start_);
    begin(fails);
    unsigned wholes = 0, reals = 0;
    for (std::size_t k = 0; k < r_.self->arguments.size(); k++) {
        const int at = static_cast<int>(k * sizeof(kestrin_data));
        const CHR type = r_.self->arguments[k];
        a_.branch_if_pair(relation::NOT_EQUAL, {FRAME, at + SHAPE}, single_of(type), fails);
        if (type == 'I')
            a_.load(temporaries[wholes++], memory{FRAME, at + VALUE});
        else
            a_.load(real_temporaries[reals++], memory{FRAME, at + VALUE});
    }
    a_.call(direct_);
    check_error(ends);
    a_.load(scratch[1], {STACK, RESULT_RECORD});
    a_.store_pair({scratch[1], SHAPE}, single_of(result));
    if (result == 'I')
        a_.store(memory{scratch[1], VALUE}, RESULT);
    else
        a_.store(memory{scratch[1], VALUE}, REAL_RESULT);
    a_.bind(ends);
    end();
    refuse(fails);
    make_function_of_numbers();
}

// Arguments come as temporaries.
void lowering::take_arguments()
{
    unsigned wholes = 0, reals = 0;
    for (std::size_t k = 0; k < r_.self->arguments.size(); k++) {
        const bool is_whole = r_.self->arguments[k] == 'I';
        const unsigned from = is_whole ? wholes++ : reals++;
        for (const local &v : r_.locals) {
            if (v.number != k) continue;
            if (is_whole && v.kept)
                a_.move(v.whole, temporaries[from]);
            else if (is_whole)
                a_.store(home(v), temporaries[from]);
            else if (v.kept)
                a_.move(v.real, real_temporaries[from]);
            else
                a_.store(home(v), real_temporaries[from]);
        }
    }
}

// With the return address and so many registers it leaves the stack as calls want it.
stack_layout lowering::small_layout(std::size_t pushed) const
{
    const auto any = [this](auto has) {
        return std::any_of(r_.items.begin(), r_.items.end(), has);
    };
    const bool has_reals = any([](const item &it) {
        return it.type.letter == 'F' || (it.row != nullptr && strchr(it.row->letters, 'F'));
    });
    const bool has_loops = any([](const item &it) { return it.loops != 0; });
    const int held = 8 * r_[0].temporaries;
    stack_layout s;
    s.reals = HELD_WHOLES + held;
    s.returned = s.reals + (has_reals ? held : 0);
    s.variables = s.returned + (has_loops ? 8 : 0);
    s.size = s.variables;
    for (const local &v : r_.locals)
        if (needs_home(v)) s.size += 8;
    if ((8 + 8 * static_cast<int>(pushed) + s.size) % 16 != 0) s.size += 8;
    return s;
}

void lowering::make_function_of_numbers()
{
    std::vector<reg> pushed;
    for (const reg r : kept)
        for (const local &v : r_.locals)
            if (v.kept && v.type == 'I' && v.whole == r) pushed.push_back(r);
    stack_ = small_layout(pushed.size());
    a_.bind(direct_);
    depth_ = 0;
    mark(r_[0].node);
    for (const reg r : pushed) {
        a_.push(r);
        deepen(8);
    }
    a_.move_stack(-stack_.size);
    deepen(stack_.size);
    take_arguments();
    answer_in_register(0);
    a_.bind(done_);
    a_.move_stack(stack_.size);
    deepen(-stack_.size);
    for (std::size_t i = pushed.size(); i-- > 0;) {
        a_.pop(pushed[i]);
        deepen(-8);
    }
    a_.leave();
    depth_ = stack_.size + 8 * static_cast<SLO>(pushed.size());
    emit_late();
    mark(r_[0].node);
    a_.bind(error_);
    a_.jump(done_);
}

// Tries the code; where it does not fit, the handler of before has the same arguments.
void lowering::make_handler()
{
    const label refused = a_.make_label();
    a_.push(arguments[0]);
    a_.push(arguments[1]);
    a_.move_stack(-8);
    a_.call(start_);
    a_.move_stack(8);
    a_.pop(arguments[1]);
    a_.pop(arguments[0]);
    a_.branch_if(relation::EQUAL, RESULT, 0, refused);
    a_.leave();
    a_.bind(refused);
    a_.jump(reinterpret_cast<const void *>(linked_handler(r_[0].node)));
}

lowered lowering::make()
{
    start_ = a_.make_label();
    resume_start_ = a_.make_label();
    error_ = a_.make_label();
    done_ = a_.make_label();
    resume_ = a_.make_label();
    direct_ = a_.make_label();
    mark(nullptr);
    make_handler();
    switch (r_.kind) {
    case shape::LOOP: make_loop(); break;
    case shape::BODY: make_body(); break;
    case shape::DIRECT: make_direct(); break;
    }
    const auto code = a_.finish();
    made_.code.assign(code.begin(), code.end());
    const bool is_for = r_.kind == shape::LOOP && r_[0].what == work::FOR;
    made_.resume = a_.offset_of(is_for ? resume_start_ : start_);
    if (r_.kind == shape::DIRECT) made_.direct = a_.offset_of(direct_);
    return std::move(made_);
}

lowered lower(region *r)
{
    allot_registers(r);
    return lowering(r).make();
}

} // namespace native
