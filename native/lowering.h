// The lowering's one class. Its functions stand in lower.cpp (ways in and out, calls of the
// engine), lower_statements.cpp, lower_values.cpp and lower_operations.cpp.
//
// A value is made in the temporary that is the next free one of its class; who needs it while other
// values are made holds it there.
#pragma once

#include <bit>
#include <cstddef>
#include <functional>

#include "native/lower.h"
#include "vm/hot.h"
#include "vm/variants.h"

namespace native {

// -- Places in memory --------------------------------------------------------------------------

constexpr int offset_in_record(std::size_t offset) { return static_cast<int>(offset); }
constexpr int VALUE = offset_in_record(offsetof(kestrin_data, value));
constexpr int TYPE = offset_in_record(offsetof(kestrin_data, type));
constexpr int SHAPE = offset_in_record(offsetof(kestrin_data, single));
static_assert(TYPE == SHAPE + 1, "`single` and `type` are looked at together");

constexpr unsigned short single_of(CHR type) { return static_cast<unsigned short>(type << 8 | 1); }

constexpr reg returned_in(CHR letter) { return letter == 'F' ? REAL_RESULT : RESULT; }

inline memory in_machine(std::size_t offset) { return {MACHINE, offset_in_record(offset)}; }

// The native stack of a piece of code, from its lowest word: what is held over a call; then, with a
// frame, the result record of the region and numbers for a function. A function of numbers, which
// may be called deep, has there what it holds at most and the variables that a call could lose.
constexpr int HELD = 0, RESULT_RECORD = 5 * 8, GIVEN = 6 * 8;
static_assert(std::size(temporaries) == 5 && std::size(real_temporaries) == 5);

// Where a BREAK, or an error that may be one, leaves the code of a loop.
struct open_loop {
    label end, pending;
};

// In place of a label: what does not fit is done by the node's handler.
constexpr label NOWHERE = ~label(0);

class lowering {
public:
    explicit lowering(region *r) : r_(*r) {}
    lowered make();

private:
    // Ways in and out.
    void make_framed();
    void make_direct();
    void make_handler();
    void make_function_of_numbers();
    void push_frame(std::span<const reg> saved, int size);
    void pop_frame();
    void begin(label fails);
    void begin_with_variables(variable_set set, label fails);
    void end(SLO answer);
    void check_types(variable_set set, label fails);
    void check_owns_nothing(const local &v, label fails);
    void store_variables(bool all);
    void load_lost_variables();

    // Calls of the engine.
    void before_call(bool sees_variables);
    void after_call();
    void take_returned(CHR letter, reg from);
    void check_error(label place);
    void set_address(reg to, const void *address) { a_.move(to, std::bit_cast<SLO>(address)); }
    template <class F> void call(F *function) { a_.call(reinterpret_cast<const void *>(function)); }
    label pending() const { return loops_.empty() ? error_ : loops_.back().pending; }

    // In a watched run: the code from here on is that of a node; the record says so ahead of a call
    // of the engine; a call of a function without a frame is counted.
    void mark(const ULO *node);
    void deepen(SLO bytes);
    void note(unsigned i);
    void note_return();
    void count_call(const ULO *image);
    struct mark_scope {
        mark_scope(lowering *l, unsigned i) : l_(*l), around_(l->node_) { l_.mark(l_.r_[i].node); }
        ~mark_scope() { l_.mark(around_); }
        lowering &l_;
        const ULO *around_;
    };

    // Code off the road, for what seldom happens: it comes to `place`, and is emitted at the end,
    // with the temporaries and loops of here.
    template <class F> void late(label place, F emit)
    {
        late_.push_back([this, place, emit, held = held_, loops = loops_, node = node_] {
            held_ = held;
            loops_ = loops;
            mark(node);
            a_.bind(place);
            emit();
        });
    }
    // The same for what goes on here afterwards.
    template <class F> void instead(label place, F emit)
    {
        const label behind = a_.make_label();
        a_.bind(behind);
        late(place, [this, behind, emit] {
            emit();
            a_.jump(behind);
        });
    }
    void emit_late();

    // Statements.
    template <class F> void in_branches(unsigned i, F last, bool is_unread = false);
    void statement(unsigned i);
    void statement_by_handler(unsigned i);
    void lower_loop(unsigned i);
    void test_for(unsigned i, label body, label behind);
    void step_for(unsigned i);
    void setq(unsigned i);
    void setq_by_handler(unsigned i);
    void setq_framed(unsigned i);
    void setq_record(unsigned i);
    void check_assigned(unsigned i);
    void assign(const local &v, reg value);
    void arsetq(unsigned i);
    void store_first(unsigned i, label fails);
    void store_typed(unsigned i, reg index, label fails);
    void store_mixed(unsigned i, reg index, label fails);
    void go_on_by_handlers_after(unsigned i);
    const exit_path *path_of(unsigned i);
    void answer(unsigned i);
    void answer_by_handler(unsigned i);
    void store_answer(CHR letter, reg value);

    // Conditions.
    void branch(unsigned i, label place, bool when);
    void branch_compare(unsigned i, label place, bool when);
    void branch_by_handler(unsigned i, label place, bool when, label fails);
    void branch_texts(unsigned i, label place, bool when);
    void branch_type(unsigned i, label place, bool when);
    void find_text(unsigned i, reg to, label fails);
    void branch_both(unsigned i, label place, bool when);

    // Values: in the next temporary of their class, which is what these answer.
    reg value(unsigned i, CHR letter, label fails = NOWHERE);
    void produce(unsigned i);
    void find_value(unsigned i, CHR letter, label fails);
    void value_by_handler(unsigned i, CHR letter);
    void convert(CHR from, CHR to);
    void truth_of(unsigned i);
    bool is_simple(unsigned i, CHR letter) const;
    operand simple(unsigned i) const;
    operand second(unsigned i, CHR letter, reg first);
    reg in_register(unsigned i, label fails);
    memory member(unsigned i, label fails);
    void find_tags(unsigned i, reg index, label fails);
    void find_record(const local &array, reg index, label fails);

    // Operations and calls.
    void numeric(unsigned i);
    void absolute(reg value);
    void square_root(unsigned i, reg value);
    void divide(unsigned i, bool is_quotient, reg value, const operand &by);
    void divide_by_number(bool is_quotient, reg value, SLO by);
    void divide_real(unsigned i, reg value, const operand &by);
    void raise_fault_at(unsigned i, label place);
    std::vector<reg> values_of_operands(unsigned i, const CHR *letters);
    void call_operation(unsigned i);
    void call_function(unsigned i);
    void give_numbers(unsigned i, label fails);
    void call_framed(unsigned i, CHR letter);
    void leave_call_at(unsigned i, label place, const void *tell);

    operand place_of(const local &v) const { return v.kept() ? operand(v.in) : home(v); }
    memory home(const local &v) const;
    memory record(const local &v, std::size_t offset) const;
    bool is_lost_in_calls(const local &v) const { return is_real(v.in) || v.in == LOST; }
    bool needs_home(const local &v) const { return !v.kept() || is_lost_in_calls(v); }
    reg temporary(CHR letter, std::size_t ahead = 0) const
    {
        return (letter == 'F' ? real_temporaries : temporaries)[held_.size() + ahead];
    }
    const local &variable_of(unsigned i) const { return r_.locals[r_[i].variable]; }

    region &r_;
    assembler a_;
    lowered made_;
    std::vector<open_loop> loops_;
    std::vector<std::function<void()>> late_;
    std::vector<reg> held_;      // temporaries that hold values
    int variables_ = 0;          // of a function of numbers, on the stack
    const ULO *node_ = nullptr;  // the last that was marked
    SLO depth_ = NO_RETURN;      // of a function without a frame, where the code is now
    std::span<const reg> saved_; // by the frame, which has so many bytes besides
    int size_ = 0;
    label start_ = a_.make_label(), resume_start_ = a_.make_label(), resume_ = a_.make_label(),
          direct_ = a_.make_label(), done_ = a_.make_label(), error_ = a_.make_label();
};

// A node that is what the last evaluated one in it is: for a PROGN its last operand, for an IF one
// of its branches. An unread constant takes no code.
template <class F> void lowering::in_branches(unsigned i, F last, bool is_unread)
{
    if (r_[i].what == work::PROGN) {
        unsigned k = i + 1;
        for (; r_[k].end < r_[i].end; k = r_[k].end) statement(k);
        return last(k);
    }
    const label otherwise = a_.make_label(), behind = a_.make_label();
    const unsigned no = r_.operand(i, 2);
    branch(i + 1, otherwise, false);
    last(r_.operand(i, 1));
    if (!is_unread || r_[no].what != work::CONSTANT) a_.jump(behind);
    a_.bind(otherwise);
    last(no);
    a_.bind(behind);
}

} // namespace native
