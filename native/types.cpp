// Types of variables and values. Every variable begins as what it holds, or open, and takes the
// type of what is assigned to it; where two differ, its record tells. What cannot be done with
// numbers in registers is left to handlers, and with it the variables that it assigns. Each of
// these steps goes one way, so they come to an end.

#include <algorithm>
#include <utility>

#include "native/region.h"

namespace native {

namespace {

constexpr std::size_t MOST_TEMPORARIES = std::size(temporaries);
constexpr int MOST_PASSES = 20;
constexpr unsigned NODES_FOR_A_HANDLER = 4;

// What becomes of a value. STATEMENT: nobody reads it, and the handlers could go on behind it.
// EFFECT: nobody reads it, in the middle of an expression. ANSWER: the function answers it.
enum class use : UCH { VALUE, EFFECT, STATEMENT, ANSWER };

// Each pass goes through the tree in the order of evaluation.
class typing {
public:
    explicit typing(region *r) : r_(*r) {}
    bool run();
    variable_set early() const { return early_; }

private:
    void visit(unsigned i, use how);
    void visit_operands(unsigned i);
    void visit_read(unsigned i);
    void visit_progn(unsigned i, use how);
    void visit_if(unsigned i, use how);
    void visit_loop(unsigned i, use how);
    void visit_both(unsigned i);
    void visit_compare(unsigned i);
    bool is_text_place(unsigned i) const;
    void visit_setq(unsigned i, use how);
    void visit_index(unsigned i);
    void visit_arsetq(unsigned i, use how);
    void visit_call(unsigned i, use how);
    bool can_be_framed(unsigned i) const;
    void count_temporaries(unsigned i);
    void leave_to_handler(unsigned i);
    void set_type(unsigned variable, CHR type);
    void give(unsigned i, value_type type);
    value_type type_of_operand(unsigned i, unsigned k) { return r_[r_.operand(i, k)].type; }

    region &r_;
    bool changed_ = false;
    variable_set assigned_ = 0; // surely, by what has been visited in this pass
    variable_set early_ = 0;    // read before that
};

void typing::set_type(unsigned variable, CHR type)
{
    local &v = r_.locals[variable];
    if (type == OPEN || v.type == type || v.type == 0) return;
    v.type = v.type == OPEN ? type : 0;
    changed_ = true;
}

void typing::give(unsigned i, value_type type)
{
    if (r_[i].type == type) return;
    r_[i].type = type;
    changed_ = true;
}

void typing::leave_to_handler(unsigned i)
{
    item &it = r_[i];
    if (it.what == work::COMPARE || it.what == work::BOTH || it.what == work::EITHER)
        give(i, {'I', true});
    else
        give(i, {is_number(it.letter) && it.what == work::OTHER ? it.letter : CHR(0), false});
    if (it.by_handler) return;
    it.by_handler = changed_ = true;
    for (unsigned up = i; up != 0; up = r_[up].parent) r_[up].pure = false;
    r_[0].pure = false;
    for (unsigned v = 0; v < r_.locals.size(); v++)
        if (it.assigns & bit(v)) set_type(v, 0);
}

void typing::visit_operands(unsigned i)
{
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) visit(k, use::VALUE);
}

void typing::visit_read(unsigned i)
{
    const local &v = r_.locals[r_[i].variable];
    if (v.type != 0) return give(i, {v.type, true});
    give(i, {is_number(v.observed) ? v.observed : CHR(0), false});
}

void typing::visit_progn(unsigned i, use how)
{
    if (r_[i].end == i + 1) return leave_to_handler(i);
    const use unread = how == use::STATEMENT || how == use::ANSWER ? use::STATEMENT : use::EFFECT;
    unsigned last = i;
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) {
        visit(k, r_[k].end < r_[i].end ? unread : how);
        last = k;
    }
    give(i, r_[last].type);
}

void typing::visit_if(unsigned i, use how)
{
    const unsigned yes = r_.operand(i, 1), no = r_.operand(i, 2);
    visit(i + 1, use::VALUE);
    const variable_set before = assigned_;
    visit(yes, how);
    const variable_set by_yes = std::exchange(assigned_, before);
    visit(no, how);
    assigned_ &= by_yes;
    value_type a = r_[yes].type, b = r_[no].type;
    if (a.letter == OPEN) a = b;
    if (b.letter == OPEN) b = a;
    if (a.letter == b.letter) return give(i, {a.letter, a.certain && b.certain});
    give(i, {});
    if (how == use::VALUE) leave_to_handler(i);
}

// What a loop assigns may not be assigned: a BREAK may come anywhere.
void typing::visit_loop(unsigned i, use how)
{
    if (how == use::VALUE || how == use::EFFECT) return leave_to_handler(i);
    const bool is_for = r_[i].what == work::FOR;
    const variable_set before = assigned_, control = is_for ? bit(r_[i].variable) : 0;
    variable_set inside = 0; // of start, increment and end
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) {
        const bool is_body = r_[k].end == r_[i].end;
        visit(k, is_body ? use::STATEMENT : use::VALUE);
        if (!is_body) inside |= r_[k].assigns;
        assigned_ |= control;
    }
    assigned_ = before;
    give(i, {'I', true});
    if (!is_for) return;
    set_type(r_[i].variable, 'I');
    // The handler keeps a value of its own.
    if (inside & control || r_.locals[r_[i].variable].type == 0) leave_to_handler(i);
}

// The second operand may not be evaluated.
void typing::visit_both(unsigned i)
{
    visit(i + 1, use::VALUE);
    const variable_set before = assigned_;
    visit(r_.operand(i, 1), use::VALUE);
    assigned_ = before;
    give(i, {'I', true});
}

// A text that can be read where it stands: a constant, a variable, a member of an array of texts.
bool typing::is_text_place(unsigned i) const
{
    const item &it = r_[i];
    if (it.what == work::INDEX) {
        const work index = r_[i + 1].what;
        const bool is_leaf = index == work::READ || index == work::CONSTANT;
        return it.letter == 'S' && is_leaf && !is_first(r_, i);
    }
    return is_node(it.node, func__dummy_s) ||
           (it.what == work::READ && r_.locals[it.variable].type == 0);
}

void typing::visit_compare(unsigned i)
{
    visit_operands(i);
    const value_type first = type_of_operand(i, 0);
    give(i, {'I', true});
    const relation asked = r_[i].comparison;
    const bool is_equality = asked == relation::EQUAL || asked == relation::NOT_EQUAL;
    const auto are_texts = [this, i] {
        if (is_type_test(r_, i)) return r_.locals[r_[i + 2].variable].type == 0;
        return is_text_place(i + 1) && is_text_place(r_.operand(i, 1));
    };
    r_[i].texts = r_[i].letter == 'S' && is_equality && are_texts();
    if (r_[i].texts) return;
    // The handler may have to do it all, once the first operand has been looked at.
    const bool again = r_[i + 1].pure && r_[r_.operand(i, 1)].assigns == 0;
    if (first.letter == 0 || (!first.certain && first.letter != OPEN && !again))
        leave_to_handler(i);
}

// A value that may be of another type is stored where the handlers can go on.
void typing::visit_setq(unsigned i, use how)
{
    visit(i + 1, use::VALUE);
    const bool is_sure = r_[i + 1].type.certain || r_[i + 1].type.letter == OPEN;
    if (!is_sure && !r_[i + 1].pure && !r_[i + 1].framed) leave_to_handler(i + 1);
    assigned_ |= bit(r_[i].variable);
    const value_type value = r_[i + 1].type;
    const bool is_statement = how == use::STATEMENT;
    if (value.certain || value.letter == OPEN || (is_statement && value.letter != 0))
        set_type(r_[i].variable, value.letter);
    else if (!is_statement)
        set_type(r_[i].variable, 0);
    const CHR type = r_.locals[r_[i].variable].type;
    if (type != 0) return give(i, {type, true});
    give(i, {value.letter, false});
    if (!is_statement || !value.certain || !r_[i + 1].pure) leave_to_handler(i);
}

void typing::visit_index(unsigned i)
{
    visit_operands(i);
    set_type(r_[i].variable, 0);
    give(i, {r_[i].letter, false});
    if (!is_number(r_[i].letter) || !r_[i + 1].pure) leave_to_handler(i);
}

void typing::visit_arsetq(unsigned i, use how)
{
    visit_operands(i);
    set_type(r_[i].variable, 0);
    const CHR stored = type_of_operand(i, 1).letter;
    const bool fits = stored == OPEN || (r_[i].mixed ? is_number(stored) : stored == r_[i].letter);
    const bool again = r_[i + 1].pure && r_[r_.operand(i, 1)].pure;
    if (how != use::STATEMENT || !fits || !again) leave_to_handler(i);
}

// Numbers that can be made again if one of them turns out to be none, and variables as they are.
bool typing::can_be_framed(unsigned i) const
{
    ULO count = 0;
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end, count++) {
        const bool is_fit = r_[k].what == work::READ || (r_[k].pure && r_[k].type.letter != 0);
        if (r_[k].by_handler || !is_fit) return false;
    }
    return r_.kind != shape::DIRECT && count <= MOST_GIVEN &&
           count == image_arguments(node_at(r_[i].node + 1));
}

void typing::visit_call(unsigned i, use how)
{
    visit_operands(i);
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end)
        if (r_[k].type.letter == OPEN) return give(i, {OPEN, false});
    r_[i].callee = find_callee(r_, i);
    if (r_[i].callee != nullptr)
        return give(i, {r_[i].callee->result, r_[i].callee->result != OPEN});
    if (how != use::VALUE || !can_be_framed(i)) return leave_to_handler(i);
    if (!r_[i].framed) r_[i].letter = answer_of(node_at(r_[i].node + 1));
    r_[i].framed = true;
    give(i, {r_[i].letter, false});
}

// Each operand is held while the next ones are evaluated.
void typing::count_temporaries(unsigned i)
{
    unsigned held = 0, most = 1;
    const auto is_one_of = [this, i](auto... works) { return ((r_[i].what == works) || ...); };
    const bool holds =
        !is_one_of(work::PROGN, work::IF, work::BOTH, work::EITHER, work::WHILE, work::FOR) &&
        !r_[i].framed;
    if (r_[i].what == work::FOR) most = 1u + r_[r_.operand(i, 2)].temporaries; // step and end
    for (unsigned k = i + 1; k < r_[i].end; k = r_[k].end) {
        if (!r_[k].by_handler) most = std::max(most, held + r_[k].temporaries);
        if (holds) held++;
    }
    r_[i].temporaries = static_cast<UCH>(std::max(most, held));
    if (r_[i].temporaries > MOST_TEMPORARIES) {
        leave_to_handler(i);
        r_[i].temporaries = 1;
    }
}

void typing::visit(unsigned i, use how)
{
    item &it = r_[i];
    if (it.by_handler || it.what == work::READ) early_ |= it.reads & ~assigned_;
    if (it.by_handler) return;
    switch (it.what) {
    case work::CONSTANT:
    case work::NUMERIC:
    case work::CAST:
        visit_operands(i);
        give(i, {it.letter, true});
        break;
    case work::READ: visit_read(i); break;
    case work::COMPARE: visit_compare(i); break;
    case work::BOTH:
    case work::EITHER: visit_both(i); break;
    case work::SETQ: visit_setq(i, how); break;
    case work::INDEX: visit_index(i); break;
    case work::ARSETQ: visit_arsetq(i, how); break;
    case work::IF: visit_if(i, how); break;
    case work::WHILE:
    case work::FOR: visit_loop(i, how); break;
    case work::PROGN: visit_progn(i, how); break;
    case work::BREAK:
        if (how != use::STATEMENT || it.loops == 0) leave_to_handler(i);
        break;
    case work::CALL: visit_call(i, how); break;
    case work::OTHER: leave_to_handler(i); break;
    }
    if (!r_[i].by_handler && r_[i].type.letter != OPEN) count_temporaries(i);
}

// False if the types do not settle soon.
bool typing::run()
{
    for (int pass = 0; pass < MOST_PASSES; pass++) {
        changed_ = false;
        assigned_ = early_ = 0;
        visit(0, r_.kind == shape::LOOP ? use::STATEMENT : use::ANSWER);
        if (!changed_) return true;
    }
    return false;
}

CHR type_to_begin_with(const region &r, unsigned v)
{
    const local &it = r.locals[v];
    if (r.kind != shape::LOOP && !(r.arguments & bit(v))) return OPEN;
    if (is_number(it.observed)) return it.observed;
    return it.observed == 0 && it.array == 0 && it.assigned ? OPEN : CHR(0);
}

// False if a variable had to be left to its record for what is read too early.
bool settle_order(region *r, variable_set early)
{
    bool settled = true;
    for (unsigned v = 0; v < r->locals.size(); v++) {
        local &it = r->locals[v];
        if (it.type == 0) continue;
        const bool is_set =
            r->kind == shape::LOOP ? it.observed == it.type : (r->arguments & bit(v)) != 0;
        it.late = !(early & bit(v)) && !(r->arguments & bit(v));
        if (it.type == OPEN || (!it.late && !is_set)) {
            it.type = 0;
            settled = false;
        }
    }
    return settled;
}

// Nodes in native code against those that are left to handlers: each of these costs what some of
// the others win.
bool is_worth_it(const region &r)
{
    unsigned mine = 0, theirs = 0;
    const auto is_whole = [&r](unsigned i) { return r[i].by_handler || r[i].texts; };
    for (unsigned i = 0; i < r.items.size(); i = is_whole(i) ? r[i].end : i + 1) {
        const work what = r[i].what;
        if (r[i].by_handler)
            theirs++;
        else if (what != work::CONSTANT && what != work::READ && what != work::PROGN)
            mine++;
    }
    return mine >= NODES_FOR_A_HANDLER * theirs && mine != 0 && !r[0].by_handler;
}

// A function without a frame has numbers only, and nobody who would look for its frame.
bool needs_no_frame(const region &r)
{
    for (const item &it : r.items)
        if (it.by_handler || it.framed || it.what == work::INDEX || it.what == work::ARSETQ ||
            (it.calls_operation() && it.row->may_fault))
            return false;
    for (const local &v : r.locals)
        if (v.type == 0) return false;
    return r[0].type.certain;
}

bool settle_all(region *r)
{
    for (;;) {
        typing types(r);
        if (!types.run()) return false;
        if (settle_order(r, types.early())) return true;
    }
}

} // namespace

bool settle_types(region *r)
{
    guess_members(r);
    for (unsigned v = 0; v < r->locals.size(); v++) {
        r->locals[v].assigned = r->items[0].assigns & bit(v);
        r->locals[v].type = type_to_begin_with(*r, v);
    }
    if (r->kind != shape::DIRECT) return settle_all(r) && is_worth_it(*r);
    // A function that calls itself answers what it answers where it does not.
    if (!typing(r).run()) return false;
    if (!r->items[0].type.certain && r->items[0].type.letter != OPEN) return false;
    r->self->result = r->items[0].type.letter;
    return settle_all(r) && needs_no_frame(*r) && is_number(r->self->result) &&
           r->items[0].type.letter == r->self->result;
}

} // namespace native
