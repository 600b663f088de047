#include "native/lower.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "native/lowering.h"
#include "vm/watch.h"

namespace native {

namespace {

constexpr reg saved_by_frame[] = {MACHINE, FRAME, kept[0], kept[1], kept[2], kept[3]};

} // namespace

memory lowering::home(const local &v) const
{
    if (r_.kind != shape::DIRECT) return record(v, offsetof(kestrin_data, value));
    const auto ahead = std::count_if(std::as_const(r_.locals).data(), &v,
                                     [this](const local &other) { return needs_home(other); });
    return {STACK, variables_ + 8 * static_cast<int>(ahead)};
}

memory lowering::record(const local &v, std::size_t offset) const
{
    return {FRAME, static_cast<int>(v.number * sizeof(kestrin_data) + offset)};
}

// -- Calls of the engine -----------------------------------------------------------------------

// What a call could lose goes into memory, and with `all` what the called one may look at.
void lowering::store_variables(bool all)
{
    for (const local &v : r_.locals) {
        const bool changed = v.assigned || r_.kind == shape::DIRECT;
        if (v.kept() && changed && (all || is_lost_in_calls(v))) a_.store(home(v), v.in);
    }
}

void lowering::load_lost_variables()
{
    for (const local &v : r_.locals)
        if (is_lost_in_calls(v)) a_.move(v.in, home(v));
}

void lowering::before_call(bool sees_variables)
{
    store_variables(sees_variables && r_.kind != shape::DIRECT);
    int at = HELD;
    for (const reg held : held_) {
        a_.store({STACK, at}, held);
        at += 8;
    }
}

void lowering::after_call()
{
    load_lost_variables();
    int at = HELD;
    for (const reg held : held_) {
        a_.move(held, memory{STACK, at});
        at += 8;
    }
}

// Behind a call that returns a number in a register.
void lowering::take_returned(CHR letter, reg from)
{
    a_.move(temporary(letter), from);
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
    if (depth_ == NO_RETURN) return;
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
        a_.store(in_machine(watched_direct), 0);
}

void lowering::count_call(const ULO *image)
{
    if (the_engine.watcher == nullptr) return;
    set_address(scratch[0], the_engine.watcher->counter(image));
    a_.move(scratch[1], memory{scratch[0]});
    a_.compute(operation::ADD, scratch[1], 1);
    a_.store({scratch[0]}, scratch[1]);
}

void lowering::emit_late()
{
    for (std::size_t i = 0; i < late_.size(); i++) {
        const auto emit = std::move(late_[i]);
        emit();
    }
}

// -- Ways in and out ---------------------------------------------------------------------------

// Leaves the stack as calls want it: a multiple of 16 with the return address.
void lowering::push_frame(std::span<const reg> saved, int size)
{
    saved_ = saved;
    size_ = size + ((8 + 8 * static_cast<int>(saved.size()) + size) % 16 != 0 ? 8 : 0);
    for (const reg r : saved_) {
        a_.push(r);
        deepen(8);
    }
    a_.move_stack(-size_);
    deepen(size_);
}

// Returns; what stands behind it in the code is in the frame again.
void lowering::pop_frame()
{
    const SLO inside = depth_;
    a_.move_stack(size_);
    deepen(-size_);
    for (std::size_t i = saved_.size(); i-- > 0;) {
        a_.pop(saved_[i]);
        deepen(-8);
    }
    a_.leave();
    depth_ = inside;
}

// With an error pending the handlers know best what is still done.
void lowering::begin(label fails)
{
    push_frame(saved_by_frame, GIVEN + static_cast<int>(MOST_GIVEN * sizeof(given_number)));
    a_.store({STACK, RESULT_RECORD}, arguments[1]);
    call(&enter);
    a_.move(MACHINE, RESULT);
    check_error(fails);
    a_.move(FRAME, in_machine(offsetof(rt_control, rt_frame)));
}

// 0 where nothing has been done.
void lowering::end(SLO answer)
{
    a_.move(RESULT, answer);
    pop_frame();
}

void lowering::check_owns_nothing(const local &v, label fails)
{
    a_.move(scratch[0], record(v, offsetof(kestrin_data, svalue)));
    a_.compute(operation::OR, scratch[0], record(v, offsetof(kestrin_data, aready_tags)));
    a_.compute(operation::OR, scratch[0], record(v, offsetof(kestrin_data, array)));
    a_.branch_if(relation::NOT_EQUAL, scratch[0], 0, fails);
}

// Variables hold numbers of their types, if they are to hold one yet, and nothing besides where
// they are to get others. `set` has been assigned ahead of this way in; the locals of a function
// are fresh.
void lowering::check_types(variable_set set, label fails)
{
    for (unsigned n = 0; n < r_.locals.size(); n++) {
        const local &v = r_.locals[n];
        if (v.type == 0 || (r_.kind != shape::LOOP && !(r_.arguments & bit(n)))) continue;
        if (!v.late || (set & bit(n)))
            a_.branch_if_pair(relation::NOT_EQUAL, record(v, SHAPE), single_of(v.type), fails);
        if (v.assigned) check_owns_nothing(v, fails);
    }
}

// Variables are loaded as they are: what is not assigned goes back as it has come.
void lowering::begin_with_variables(variable_set set, label fails)
{
    begin(fails);
    check_types(set, fails);
    for (const local &v : r_.locals)
        if (v.kept()) a_.move(v.in, home(v));
}

// A loop, or the body of a function in its frame. An error is pending at `error_`, and the
// variables stand in their registers.
void lowering::make_framed()
{
    const label fails = a_.make_label();
    if (r_.kind == shape::LOOP && r_[0].what == work::FOR) {
        a_.bind(resume_start_);
        begin_with_variables(r_[1].assigns | bit(r_[0].variable), fails);
        a_.jump(resume_);
    }
    a_.bind(start_);
    begin_with_variables(0, fails);
    answer(0);
    a_.bind(done_);
    end(1);
    a_.bind(fails);
    end(0);
    emit_late();
    a_.bind(error_);
    store_variables(true);
    end(1);
}

// The way in from handlers, with the arguments in a frame, and the function itself.
void lowering::make_direct()
{
    const label fails = a_.make_label(), ends = a_.make_label();
    const CHR result = r_.self->result;
    a_.bind(start_);
    begin(fails);
    int at = 0;
    for (const CHR type : r_.self->arguments) {
        a_.branch_if_pair(relation::NOT_EQUAL, {FRAME, at + SHAPE}, single_of(type), fails);
        held_.push_back(temporary(type));
        a_.move(held_.back(), memory{FRAME, at + VALUE});
        at += sizeof(kestrin_data);
    }
    held_.clear();
    a_.call(direct_);
    check_error(ends);
    store_answer(result, returned_in(result));
    a_.bind(ends);
    end(1);
    a_.bind(fails);
    end(0);
    make_function_of_numbers();
}

// Arguments come as temporaries.
void lowering::make_function_of_numbers()
{
    std::vector<reg> used;
    variables_ = HELD + 8 * r_[0].temporaries;
    int size = variables_;
    for (const reg r : kept)
        if (std::ranges::find(r_.locals, r, &local::in) != r_.locals.end()) used.push_back(r);
    for (const local &v : r_.locals)
        if (needs_home(v)) size += 8;
    a_.bind(direct_);
    depth_ = 0;
    mark(r_[0].node);
    push_frame(used, size);
    for (const local &v : r_.locals)
        if (v.number < r_.self->arguments.size()) assign(v, temporary(v.type, v.number));
    answer(0);
    a_.bind(done_);
    pop_frame();
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
    mark(nullptr);
    make_handler();
    r_.kind == shape::DIRECT ? make_direct() : make_framed();
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
