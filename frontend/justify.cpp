// The type pass: a walk in evaluation order with one table of variable types for each function.
// Loops are rehearsed before they are walked, UDF bodies are walked twice, so that the second walk
// knows what a recursive call yields, and a final sweep takes back each variable's suffix that the
// table at the end does not confirm.
//
// A walk writes its findings into the nodes, and the last one that passes a node is the one that
// counts. A definition inside a body that is walked again is not walked again unless the type of a
// function that it calls from outside has changed since.

#include "frontend/justify.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "frontend/scoped.h"
#include "frontend/words.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/stack.h"

FATAL_SITE(STACK_JUSTIFY, "kestrin", "kestrin_justify", 128)

namespace {

// -- Types of UDFs -----------------------------------------------------------------------------

struct udf_type {
    name_id name;
    UCH letter;
};

// What a walk of a definition has found, and what it has relied on.
struct finding {
    UCH letter;
    std::vector<udf_type> outer; // functions called from outside the definition; letter 0: unknown
};

// A function that is known where the walk stands; of several with one name the first counts.
struct known_udf {
    UCH letter = 0; // 0: there is none
    ULO order = 0;  // in which they have become known
};

// The function being walked.
struct walked_function {
    ULO base = 0; // functions of the context from here on are the definition's own
    std::vector<udf_type> *outer = nullptr;
};

class type_pass {
public:
    type_pass(tree *t, std::vector<udf_letter> *made) : tree_(*t), nodes_(t->nodes), made_(made) {}
    UCH run(std::span<const udf_letter> context);

private:
    UCH type_of(node_index n);
    UCH type_token(node *n);
    UCH type_form(node *n);
    UCH type_progn(const node &n);
    UCH type_arsetq(node *n);
    UCH type_index(node *n);
    UCH type_alindex(node *n);
    UCH type_defun(const node &n);
    UCH walk_definition(name_id name, node_index body, std::vector<udf_type> *outer);
    UCH type_if(node *n);
    UCH type_while(node *n);
    UCH type_for(node *n);
    UCH type_instruction(node *n, const instruction_word &word);
    UCH type_call(const node &n);
    UCH type_all(node_index first);

    bool is_own(const known_udf &udf) const { return udf.letter != 0 && udf.order >= here_->base; }
    void define(name_id name, UCH letter);
    node_index next(node_index n) const { return n == NO_NODE ? NO_NODE : nodes_[n].next; }
    name_id name_of(node *target) const;
    void assign(node *target, UCH letter);
    UCH assign_by(node *form, UCH letter);
    bool still_holds(const finding &f) const;
    void rely_on(name_id name, UCH letter);
    void sweep(node_index n);

    const tree &tree_;
    std::vector<node> &nodes_;
    std::vector<udf_letter> *made_; // by the whole text, in order; NULL: nobody asks
    scoped<known_udf> udfs_;
    walked_function main_, *here_ = &main_;
    scoped<UCH> types_;                                // of variables; 'U' stays 'U'
    scoped<bool> arrays_;                              // targets of ARSETQ
    std::unordered_map<node_index, finding> findings_; // of definitions in functions
    bool is_outside_loops_ = true; // in its function: an outermost loop is rehearsed
};

// -- Tables ------------------------------------------------------------------------------------

// What is assigned is no variable in text that has not been checked.
name_id type_pass::name_of(node *target) const
{
    if (target->name == NO_NAME) target->name = names().enter(tree_.text_of(*target));
    return target->name;
}

// An assignment: confirms the variable's row, makes it, or finds a second type or an unknown one.
void type_pass::assign(node *target, UCH letter)
{
    const name_id name = name_of(target);
    const UCH known = types_.get(name);
    const UCH row = known == 0 || known == letter ? letter : UCH('U');
    if (row != known) types_.set(name, row);
    const bool carries = row == letter && letter != 'U' && target->letter != 'P';
    target->suffix = carries ? static_cast<CHR>(letter) : CHR(0);
}

// A form that assigns its first operand has the type of what is assigned.
UCH type_pass::assign_by(node *form, UCH letter)
{
    assign(&nodes_[form->first], letter);
    if (letter != 'U') form->suffix = static_cast<CHR>(letter);
    return letter;
}

void type_pass::define(name_id name, UCH letter)
{
    if (udfs_.get(name).letter == 0) udfs_.set(name, {letter, udfs_.mark()});
}

void type_pass::rely_on(name_id name, UCH letter)
{
    if (here_->outer == nullptr) return;
    for (const udf_type &known : *here_->outer)
        if (known.name == name) return;
    here_->outer->push_back({name, letter});
}

// -- Expressions -------------------------------------------------------------------------------

UCH type_pass::type_token(node *n)
{
    n->suffix = 0;
    if (n->letter != 'V' && n->letter != 'P') return static_cast<UCH>(n->letter);
    const UCH row = types_.get(n->name);
    if (row == 0) return 'U';
    if (row != 'U' && n->letter == 'V') n->suffix = static_cast<CHR>(row);
    return row;
}

UCH type_pass::type_of(node_index n)
{
    if (n == NO_NODE) return 'Z';
    return nodes_[n].letter == 'U' ? type_form(&nodes_[n]) : type_token(&nodes_[n]);
}

UCH type_pass::type_all(node_index first)
{
    UCH last = 'U';
    for (node_index i = first; i != NO_NODE; i = nodes_[i].next) last = type_of(i);
    return last;
}

// A PROGN may end at a BREAK that stands directly in it.
UCH type_pass::type_progn(const node &n)
{
    UCH last = 'U', broken = 0;
    for (node_index i = n.first; i != NO_NODE; i = nodes_[i].next) {
        last = type_of(i);
        const bool is_form = nodes_[i].letter == 'U';
        if (is_form && (groups_of(word_of(nodes_[i].name)) & in(GROUP_BREAK))) broken = last;
    }
    return broken != 0 ? broken : last;
}

UCH type_pass::type_arsetq(node *n)
{
    node *target = &nodes_[n->first];
    const node_index index = next(n->first), value = next(index);
    const UCH index_type = type_of(index), letter = type_of(value);
    if (!arrays_.get(name_of(target))) arrays_.set(name_of(target), true);
    const bool copies_array =
        value != NO_NODE && nodes_[value].letter == 'V' && arrays_.get(nodes_[value].name);
    return assign_by(n, copies_array || index_type != 'I' ? UCH('U') : letter);
}

UCH type_pass::type_index(node *n)
{
    node *target = &nodes_[n->first];
    const UCH index_type = type_all(nodes_[n->first].next);
    const UCH letter = type_token(target);
    if (letter == 'U' || (target->letter != 'V' && target->letter != 'P')) return 'U';
    if (index_type == 'I') n->suffix = static_cast<CHR>(letter);
    return letter;
}

UCH type_pass::type_alindex(node *n)
{
    node *target = &nodes_[n->first];
    if (type_all(nodes_[n->first].next) == 'I') n->suffix = 'J';
    type_token(target);
    return 'U';
}

UCH type_pass::type_if(node *n)
{
    if (type_of(n->first) == 'I') n->suffix = 'J';
    const node_index yes = next(n->first);
    const UCH first = type_of(yes), second = type_of(next(yes));
    return first == second ? first : 'U';
}

UCH type_pass::type_while(node *n)
{
    const node_index body = nodes_[n->first].next;
    const bool is_outermost = std::exchange(is_outside_loops_, false);
    if (is_outermost) { // the rehearsal, which leaves only its traces in the tables
        type_of(n->first);
        type_of(body);
    }
    const UCH condition = type_of(n->first);
    type_of(body);
    is_outside_loops_ = is_outermost;
    if (condition == 'I') n->suffix = 'J';
    return 'I';
}

UCH type_pass::type_for(node *n)
{
    node *control = &nodes_[n->first];
    const node_index start = next(n->first), increment = next(start), end = next(increment);
    const node_index body = next(end);
    const bool is_outermost = std::exchange(is_outside_loops_, false);
    // As an assignment of the start value would leave the variable.
    assign(control, type_of(start));
    if (is_outermost)
        for (node_index p : {increment, end, body}) type_of(p);
    const UCH start_type = type_of(start);
    assign(control, types_.get(name_of(control)) == start_type ? start_type : UCH('U'));
    const UCH increment_type = type_of(increment), end_type = type_of(end);
    type_of(body);
    is_outside_loops_ = is_outermost;
    if (start_type == 'I' && increment_type == 'I' && end_type == 'I') n->suffix = 'J';
    return 'I';
}

// -- Instructions and calls --------------------------------------------------------------------

// The suffix that operands of these types give an instruction of these letters.
CHR instruction_suffix(std::string_view letters, std::string_view actual)
{
    const std::string_view declared = letters.substr(0, actual.size());
    if (declared.empty()) return 0;
    const CHR last = actual.back();
    if (last == 'U' || consists_of(declared, "-")) return 0;
    if (declared.front() == 'U') return last;
    if (consists_of(declared, "E") && consists_of(actual, {&last, 1})) return last;
    return declared == actual ? 'J' : CHR(0);
}

UCH type_pass::type_instruction(node *n, const instruction_word &word)
{
    std::string actual; // short enough to stay off the heap
    for (node_index i = n->first; i != NO_NODE; i = nodes_[i].next)
        actual.push_back(static_cast<CHR>(type_of(i)));
    if (word.letter == 'T') {
        const isa_row &row = isa_table[word.row];
        n->suffix = instruction_suffix(view(row.op_type), actual);
        return row.ret_type;
    }
    const INSTRUCTION_STRU &row = isaext_table[word.row];
    n->suffix = instruction_suffix(operand_letters(row), actual);
    return row.ret_type;
}

UCH type_pass::type_call(const node &n)
{
    type_all(n.first);
    const known_udf udf = udfs_.get(n.name);
    if (!is_own(udf)) rely_on(n.name, udf.letter);
    return udf.letter == 0 ? 'U' : udf.letter;
}

UCH type_pass::type_form(node *n)
{
    check_stack(site::STACK_JUSTIFY);
    n->suffix = 0;
    const instruction_word *word = word_of(n->name);
    if (word == nullptr) return type_call(*n);
    const group_set groups = word->groups;
    if (groups == 0 || n->first == NO_NODE) return type_instruction(n, *word);
    if (groups & in(GROUP_PROGN)) return type_progn(*n);
    if (groups & (in(GROUP_SETQ) | in(GROUP_ALSETQ))) return assign_by(n, type_all(next(n->first)));
    if (groups & in(GROUP_ARSETQ)) return type_arsetq(n);
    if (groups & in(GROUP_INDEX)) return type_index(n);
    if (groups & in(GROUP_ALINDEX)) return type_alindex(n);
    if (groups & in(GROUP_DEFUN)) return type_defun(*n);
    if (groups & in(GROUP_IF)) return type_if(n);
    if (groups & in(GROUP_WHILE)) return type_while(n);
    if (groups & in(GROUP_FOR)) return type_for(n);
    return type_instruction(n, *word);
}

// -- Definitions -------------------------------------------------------------------------------

bool type_pass::still_holds(const finding &f) const
{
    for (const udf_type &outer : f.outer)
        if (udfs_.get(outer.name).letter != outer.letter) return false;
    return true;
}

// Both walks of a body, and its sweep. In the first one a recursive call is of unknown type; the
// second one knows the arrays of the first, but not its types.
UCH type_pass::walk_definition(name_id name, node_index body, std::vector<udf_type> *outer)
{
    walked_function function = {udfs_.mark(), outer};
    walked_function *caller = here_;
    here_ = &function;
    const bool is_outside_loops = std::exchange(is_outside_loops_, true);
    types_.enter();
    arrays_.enter();
    define(name, 'U');
    const UCH first = type_of(body);
    udfs_.undo(function.base);
    define(name, first);
    types_.clear();
    const UCH second = type_of(body);
    sweep(body);
    udfs_.undo(function.base);
    types_.leave();
    arrays_.leave();
    here_ = caller;
    is_outside_loops_ = is_outside_loops;
    return second;
}

UCH type_pass::type_defun(const node &n)
{
    const node_index name = n.first, body = nodes_[name].next;
    const name_id udf = name_of(&nodes_[name]);
    if (here_->outer == nullptr) { // of the whole text, which is walked once
        std::vector<udf_type> outer;
        const UCH letter = walk_definition(udf, body, &outer);
        if (made_ != nullptr) made_->push_back({std::string(names().text(udf)), letter});
        define(udf, letter);
        return 'S';
    }
    finding *found = &findings_[name];
    if (found->letter == 0 || !still_holds(*found)) {
        std::vector<udf_type> outer;
        const UCH letter = walk_definition(udf, body, &outer);
        found = &findings_[name];
        *found = {letter, std::move(outer)};
    }
    for (const udf_type &relied : found->outer)
        if (!is_own(udfs_.get(relied.name))) rely_on(relied.name, relied.letter);
    define(udf, found->letter);
    return 'S';
}

// -- The sweep ---------------------------------------------------------------------------------

void type_pass::sweep(node_index index)
{
    if (index == NO_NODE) return;
    check_stack(site::STACK_JUSTIFY);
    node &n = nodes_[index];
    if (n.letter == 'V' || n.letter == 'P') {
        if (types_.get(n.name) != UCH(n.suffix)) n.suffix = 0;
        return;
    }
    if (n.letter != 'U') return;
    const group_set groups = groups_of(word_of(n.name));
    if (groups & in(GROUP_DEFUN)) return; // its body has had its own
    for (node_index i = n.first; i != NO_NODE; i = nodes_[i].next) sweep(i);
    const bool needs_array = (groups & (in(GROUP_ARSETQ) | in(GROUP_INDEX))) != 0;
    if (needs_array && n.first != NO_NODE && nodes_[n.first].suffix == 0) n.suffix = 0;
}

// -- The whole text ----------------------------------------------------------------------------

UCH type_pass::run(std::span<const udf_letter> context)
{
    for (const udf_letter &udf : context) define(names().enter(udf.name), udf.letter);
    const UCH letter = type_of(tree_.root);
    sweep(tree_.root);
    return letter;
}

} // namespace

UCH kestrin_justify(tree *t, std::span<const udf_letter> context, std::vector<udf_letter> *made)
{
    const UCH letter = type_pass(t, made).run(context);
    t->settle(TYPED);
    return letter;
}
