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

inline memory in_machine(std::size_t offset) { return {MACHINE, offset_in_record(offset)}; }

// The native stack of a piece of code with a frame, from its lowest word: what is held over a call,
// a word for what a call has returned, the result record of the region, numbers for a function.
constexpr int HELD_WHOLES = 0, HELD_REALS = 6 * 8, RETURNED = 12 * 8, RESULT_RECORD = 13 * 8,
              GIVEN = 14 * 8;

// That of a function of numbers, which may be called deep, is as small as can be; variables that a
// call could lose stand at its end.
struct stack_layout {
    int reals = HELD_REALS, returned = RETURNED, variables = 0, size = 0;
};

// An operand that an instruction of the machine can take as it is.
struct operand {
    enum { NUMBER, REGISTER, MEMORY } kind = NUMBER;
    SLO number = 0;
    reg in = reg::NONE;
    memory at = {};
};

// Where a BREAK, or an error that may be one, leaves the code of a loop.
struct open_loop {
    label end, pending;
};

class lowering {
public:
    explicit lowering(region *r) : r_(*r) {}
    lowered make();

private:
    // Ways in and out.
    void make_loop();
    void make_body();
    void make_direct();
    void make_handler();
    void make_function_of_numbers();
    void begin(label fails);
    void end();
    void refuse(label fails);
    void check_types(variable_set set, label fails);
    void check_type(const local &v, bool is_set, label fails);
    void check_owns_nothing(const local &v, label fails);
    void load_variables();
    void store_variables(bool all);
    void load_lost_variables();
    void load_variable(const local &v);
    stack_layout small_layout(std::size_t pushed) const;
    void take_arguments();
    void leave_with_error();

    // Calls of the engine.
    void before_call(bool sees_variables);
    void after_call();
    void take_returned(CHR letter);
    void check_error(label place);
    void set_address(reg to, const void *address) { a_.set(to, std::bit_cast<SLO>(address)); }
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

    // Code off the road, for what seldom happens: it is emitted at the end, with the temporaries
    // and loops of here.
    template <class F> void late(F emit)
    {
        late_.push_back(
            [this, emit, wholes = wholes_, reals = reals_, loops = loops_, node = node_] {
                wholes_ = wholes;
                reals_ = reals;
                loops_ = loops;
                mark(node);
                emit();
            });
    }
    // The same for what comes to `fails` and goes on at `behind`.
    template <class F> void instead(label fails, label behind, F emit)
    {
        late([this, fails, behind, emit] {
            a_.bind(fails);
            emit();
            a_.jump(behind);
        });
    }
    void emit_late();

    // Statements.
    void statement(unsigned i);
    void statement_by_handler(unsigned i);
    void lower_if(unsigned i, void (lowering::*branch_of)(unsigned));
    void lower_while(unsigned i);
    void lower_for(unsigned i);
    void test_for(unsigned i, label body, label behind);
    void step_for(unsigned i);
    reg control_of(unsigned i);
    open_loop begin_loop();
    void begin_round(label body);
    void end_loop(const open_loop &loop);
    void setq(unsigned i);
    void setq_uncertain(unsigned i);
    void setq_by_handler(unsigned i);
    void setq_record(unsigned i);
    void assign(const local &v);
    void store_shape(const local &v);
    void arsetq(unsigned i);
    void mark_member(unsigned i, reg index, label marked, label fails);
    void store_first(unsigned i, label fails);
    void store_typed(unsigned i, label fails);
    void store_mixed(unsigned i, label fails);
    void go_on_by_handlers_after(unsigned i);
    const exit_path *path_of(unsigned i);
    void answer(unsigned i);
    void answer_by_handler(unsigned i);
    void answer_in_register(unsigned i);

    // Conditions.
    void branch(unsigned i, label place, bool when);
    void branch_compare(unsigned i, label place, bool when);
    void branch_by_handler(unsigned i, label place, bool when, label fails, label behind);
    void branch_texts(unsigned i, label place, bool when);
    void branch_type(unsigned i, label place, bool when);
    void find_text(unsigned i, reg to, label fails);
    void compare_long_texts(bool if_same, label place, label longer, label behind);
    void branch_both(unsigned i, label place, bool when);
    void compare_branch(relation r, bool when, reg a, const operand &b, label place);

    // Values: in the next temporary of the class that the name says, or of the item's own.
    reg to_whole(unsigned i);
    freg to_real(unsigned i);
    void produce(unsigned i);
    void produce_guarded(unsigned i, label fails);
    void to(unsigned i, CHR letter);
    void to_branches(unsigned i, CHR letter);
    void cast(CHR from, CHR to);
    void value_by_handler(unsigned i, CHR letter);
    void read_variable(const local &v);
    void read_record(unsigned i, CHR letter, label fails);
    void read_member(unsigned i, label fails);
    void check_member(const item &it, reg index, label fails);
    void find_record(const local &array, reg index, label fails);
    void read_first(unsigned i, label fails);
    void load_number(CHR letter, const memory &from);
    void store_number(CHR letter, const memory &to);
    void truth_of(unsigned i);
    bool is_simple(unsigned i, CHR letter) const;
    operand simple(unsigned i) const;
    operand second_whole(unsigned i);
    freg second_real(unsigned i);
    void compute(whole op, reg to, const operand &by);
    void numeric(unsigned i);
    void one_whole(UCH what);
    void shift_whole(unsigned i, UCH what);
    void divide(unsigned i, bool is_quotient);
    void divide_by_power(bool is_quotient, SLO by);
    void divide_by_product(bool is_quotient, SLO by);
    void divide_real(unsigned i);
    void square_root(unsigned i);
    void multiply_add(unsigned i);
    void raise_fault_at(unsigned i, label place);
    void call_operation(unsigned i);
    void pass_to_operation(unsigned i);
    void call_function(unsigned i);
    void give_numbers(unsigned i, label fails);
    void call_framed(unsigned i, CHR letter);
    void setq_framed(unsigned i);
    void check_assigned(unsigned i);
    void pass_to_function(unsigned i);
    void leave_call_at(unsigned i, label place, const void *tell);

    memory home(const local &v) const;
    memory record(const local &v, std::size_t offset) const;
    bool is_lost_in_calls(const local &v) const;
    bool needs_home(const local &v) const { return !v.kept || is_lost_in_calls(v); }
    reg whole_temporary() const { return temporaries[wholes_]; }
    freg real_temporary() const { return real_temporaries[reals_]; }
    const local &variable_of(unsigned i) const { return r_.locals[r_[i].variable]; }

    region &r_;
    assembler a_;
    lowered made_;
    stack_layout stack_;
    std::vector<open_loop> loops_;
    std::vector<std::function<void()>> late_;
    unsigned wholes_ = 0, reals_ = 0; // temporaries that hold values
    const ULO *node_ = nullptr;       // the last that was marked
    SLO depth_ = NO_RETURN;           // of a function without a frame, where the code is now
    label start_ = 0, resume_start_ = 0, resume_ = 0, direct_ = 0, done_ = 0, error_ = 0;
};

} // namespace native
