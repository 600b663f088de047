// The type pass: a walk in evaluation order with one table of variable types for each function.
// Loops are rehearsed before they are walked, UDF bodies are walked twice, so that the second walk
// knows what a recursive call yields, and a final sweep takes back each variable's suffix that the
// table at the end does not confirm.
//
// The text is parsed once. A walk writes its findings into the nodes, and the last one that passes
// a node is the one that counts. A definition inside a body that is walked again is not walked
// again unless the type of a function that it calls from outside has changed since.

#include "frontend/justify.h"

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "strings/scratch.h"
#include "vm/stack.h"

namespace {

using node_index = std::uint32_t;
constexpr node_index NONE = UINT32_MAX;

struct node {
    std::string_view token; // of a form: its mnemonic or function name
    const instruction_word *word;
    node_index first; // argument of a form
    node_index next;  // argument of the same form
    CHR kind;         // by kestrin_type1; 'U' a form
    CHR suffix;       // 0: none
};

// -- Types of UDFs -----------------------------------------------------------------------------

struct udf_type {
    std::string_view name;
    UCH letter;
};

// What a walk of a definition has found, and what it has relied on.
struct finding {
    UCH letter;
    std::vector<udf_type> outer; // functions called from outside the definition; letter 0: unknown
};

class type_context {
public:
    void push(std::string_view name, UCH letter)
    {
        added_.push_back(index_.try_emplace(name, list_.size()).second);
        list_.push_back({name, letter});
    }
    void cut(ULO size)
    {
        for (; list_.size() > size; list_.pop_back(), added_.pop_back())
            if (added_.back()) index_.erase(list_.back().name);
    }
    ULO size() const { return list_.size(); }
    // The place of a function, size() if it is not known.
    ULO find(std::string_view name) const
    {
        const auto found = index_.find(name);
        return found == index_.end() ? list_.size() : found->second;
    }
    UCH letter(ULO place) const { return place < list_.size() ? list_[place].letter : 0; }
    const udf_type &at(ULO place) const { return list_[place]; }

private:
    std::vector<udf_type> list_;
    std::vector<bool> added_;
    std::unordered_map<std::string_view, ULO> index_; // first place of each name
};

// One function being walked.
struct function_tables {
    std::unordered_map<std::string_view, UCH> types; // of variables; 'U' stays 'U'
    std::unordered_set<std::string_view> arrays;     // targets of ARSETQ
    ULO base = 0; // functions of the context from here on are the definition's own
    std::vector<udf_type> *outer = nullptr;
};

class typist {
public:
    explicit typist(std::string_view text) : text_(text), brackets_(text) {}
    UCH run(CHR **udf_types);
    std::string output() const;

private:
    node_index parse(std::string_view token);
    node_index parse_arguments(token_walk walk);
    void read_context(const CHR *udf_types);

    UCH type_of(node_index n, bool deep);
    UCH type_token(node *n);
    UCH type_form(node_index n, bool deep);
    UCH type_progn(const node &n, bool deep);
    UCH type_setq(node *n, bool deep);
    UCH type_arsetq(node *n, bool deep);
    UCH type_index(node *n, bool deep);
    UCH type_alindex(node *n, bool deep);
    UCH type_defun(const node &n);
    UCH walk_definition(std::string_view name, node_index body, std::vector<udf_type> *outer);
    UCH type_if(node *n, bool deep);
    UCH type_while(node *n, bool deep);
    UCH type_for(node *n, bool deep);
    UCH type_instruction(node *n, bool deep);
    UCH type_call(const node &n, bool deep);
    UCH type_all(node_index first, bool deep);

    void assign(node *target, UCH letter);
    void make_unknown(node *target);
    bool still_holds(const finding &f) const;
    void rely_on(std::string_view name, UCH letter);
    void sweep(node_index n);
    void write(node_index n, std::string *out) const;
    node *argument(const node &n, ULO i);

    std::string_view text_;
    brackets brackets_;
    std::vector<node> nodes_;
    type_context context_;
    function_tables *here_ = nullptr;
    std::unordered_map<node_index, finding> findings_; // of definitions
    node absent_ = {};
};

// -- Text to nodes and back --------------------------------------------------------------------

node_index typist::parse_arguments(token_walk walk)
{
    node_index first = NONE, last = NONE;
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        const node_index n = parse(token);
        (last == NONE ? first : nodes_[last].next) = n;
        last = n;
    }
    return first;
}

node_index typist::parse(std::string_view token)
{
    check_stack(fatal_site::STACK_JUSTIFY);
    const node_index n = static_cast<node_index>(nodes_.size());
    const CHR kind = static_cast<CHR>(kestrin_type1(token));
    nodes_.push_back({token, nullptr, NONE, NONE, kind, 0});
    if (kind != 'U') return n;
    const ULO from = ULO(token.data() - text_.data()) + 1, to = from + token.size() - 1;
    token_walk walk(text_, brackets_, from, to > from ? to - 1 : from);
    nodes_[n].token = walk.next();
    nodes_[n].word = find_word(nodes_[n].token);
    const node_index first = parse_arguments(walk);
    nodes_[n].first = first;
    return n;
}

void append_suffix(std::string *out, CHR suffix)
{
    if (suffix == 0) return;
    out->push_back('@');
    out->push_back(suffix);
}

void typist::write(node_index index, std::string *out) const
{
    check_stack(fatal_site::STACK_JUSTIFY);
    const node &n = nodes_[index];
    if (n.kind == 'U') out->push_back('(');
    out->append(n.token);
    append_suffix(out, n.suffix);
    if (n.kind != 'U') return;
    for (node_index i = n.first; i != NONE; i = nodes_[i].next) {
        out->push_back(' ');
        write(i, out);
    }
    out->push_back(')');
}

std::string typist::output() const
{
    std::string out;
    out.reserve(text_.size() + text_.size() / 4);
    write(0, &out);
    return out;
}

// -- Tables ------------------------------------------------------------------------------------

void typist::make_unknown(node *target)
{
    here_->types[target->token] = 'U';
    target->suffix = 0;
}

// An assignment of a known type: confirms the variable's row, makes it, or finds a second type.
void typist::assign(node *target, UCH letter)
{
    const auto row = here_->types.try_emplace(target->token, letter).first;
    if (row->second != letter) row->second = 'U';
    const bool carries = row->second == letter && target->kind != 'P';
    target->suffix = carries ? static_cast<CHR>(letter) : CHR(0);
}

node *typist::argument(const node &n, ULO i)
{
    node_index a = n.first;
    for (; i > 0 && a != NONE; i--) a = nodes_[a].next;
    if (a != NONE) return &nodes_[a];
    absent_ = {}; // an operand that is not there counts as nil
    absent_.kind = 'Z';
    return &absent_;
}

void typist::rely_on(std::string_view name, UCH letter)
{
    if (here_->outer == nullptr) return;
    for (const udf_type &known : *here_->outer)
        if (known.name == name) return;
    here_->outer->push_back({name, letter});
}

// -- Expressions -------------------------------------------------------------------------------

UCH typist::type_token(node *n)
{
    n->suffix = 0;
    if (n->kind != 'V' && n->kind != 'P') return static_cast<UCH>(n->kind);
    const auto row = here_->types.find(n->token);
    if (row == here_->types.end()) return 'U';
    if (row->second != 'U' && n->kind == 'V') n->suffix = static_cast<CHR>(row->second);
    return row->second;
}

UCH typist::type_of(node_index n, bool deep)
{
    if (n == NONE) return 'Z';
    return nodes_[n].kind == 'U' ? type_form(n, deep) : type_token(&nodes_[n]);
}

UCH typist::type_all(node_index first, bool deep)
{
    UCH last = 'U';
    for (node_index i = first; i != NONE; i = nodes_[i].next) last = type_of(i, deep);
    return last;
}

// A PROGN may end at a BREAK that stands directly in it.
UCH typist::type_progn(const node &n, bool deep)
{
    UCH last = 'U', broken = 0;
    for (node_index i = n.first; i != NONE; i = nodes_[i].next) {
        last = type_of(i, deep);
        const instruction_word *word = nodes_[i].word;
        if (word != nullptr && (word->groups & in(GROUP_BREAK))) broken = last;
    }
    return broken != 0 ? broken : last;
}

UCH typist::type_setq(node *n, bool deep)
{
    node *target = argument(*n, 0);
    const UCH letter = type_all(nodes_[n->first].next, deep);
    if (letter == 'U')
        make_unknown(target);
    else {
        assign(target, letter);
        n->suffix = static_cast<CHR>(letter);
    }
    return letter;
}

UCH typist::type_arsetq(node *n, bool deep)
{
    node *target = argument(*n, 0);
    const node_index index = nodes_[n->first].next;
    const node_index value = index == NONE ? NONE : nodes_[index].next;
    const UCH index_type = type_of(index, deep), letter = type_of(value, deep);
    here_->arrays.insert(target->token);
    const bool copies_array =
        value != NONE && nodes_[value].kind == 'V' && here_->arrays.count(nodes_[value].token);
    if (copies_array || letter == 'U' || index_type != 'I') {
        make_unknown(target);
        return 'U';
    }
    assign(target, letter);
    n->suffix = static_cast<CHR>(letter);
    return letter;
}

UCH typist::type_index(node *n, bool deep)
{
    node *target = argument(*n, 0);
    const UCH index_type = type_all(nodes_[n->first].next, deep);
    const UCH letter = type_token(target);
    if (letter == 'U' || (target->kind != 'V' && target->kind != 'P')) return 'U';
    if (index_type == 'I') n->suffix = static_cast<CHR>(letter);
    return letter;
}

UCH typist::type_alindex(node *n, bool deep)
{
    node *target = argument(*n, 0);
    if (type_all(nodes_[n->first].next, deep) == 'I') n->suffix = 'J';
    type_token(target);
    return 'U';
}

UCH typist::type_if(node *n, bool deep)
{
    const node_index yes = nodes_[n->first].next;
    const node_index no = yes == NONE ? NONE : nodes_[yes].next;
    if (type_of(n->first, deep) == 'I') n->suffix = 'J';
    const UCH first = type_of(yes, deep), second = type_of(no, deep);
    return first == second ? first : 'U';
}

UCH typist::type_while(node *n, bool deep)
{
    const node_index body = nodes_[n->first].next;
    if (deep) { // the rehearsal, which leaves only its traces in the tables
        type_of(n->first, false);
        type_of(body, false);
    }
    const UCH condition = type_of(n->first, false);
    type_of(body, false);
    if (condition == 'I') n->suffix = 'J';
    return 'I';
}

UCH typist::type_for(node *n, bool deep)
{
    node *control = argument(*n, 0);
    node_index part[4] = {};
    node_index at = n->first;
    for (node_index &p : part) p = at = at == NONE ? NONE : nodes_[at].next;
    const auto [start, increment, end, body] = part;
    // As an assignment of the start value would leave the variable.
    const UCH first = type_of(start, false);
    if (first == 'U')
        make_unknown(control);
    else
        assign(control, first);
    if (deep)
        for (node_index p : {increment, end, body}) type_of(p, false);
    const UCH start_type = type_of(start, false);
    if (start_type != 'U' && here_->types[control->token] == start_type)
        assign(control, start_type);
    else
        make_unknown(control);
    const UCH increment_type = type_of(increment, false), end_type = type_of(end, false);
    type_of(body, false);
    if (start_type == 'I' && increment_type == 'I' && end_type == 'I') n->suffix = 'J';
    return 'I';
}

// -- Instructions and calls --------------------------------------------------------------------

bool consists_of(std::string_view text, CHR letter)
{
    return text.find_first_not_of(letter) == text.npos;
}

// The suffix that operands of these types give an instruction of these letters.
CHR instruction_suffix(std::string_view letters, std::string_view actual)
{
    const std::string_view declared = letters.substr(0, actual.size());
    if (declared.empty()) return 0;
    const CHR last = actual.back();
    if (last == 'U' || consists_of(declared, '-')) return 0;
    if (declared.front() == 'U') return last;
    if (consists_of(declared, 'E') && consists_of(actual, last)) return last;
    return declared == actual ? 'J' : CHR(0);
}

UCH typist::type_instruction(node *n, bool deep)
{
    std::string actual; // short enough to stay off the heap
    for (node_index i = n->first; i != NONE; i = nodes_[i].next)
        actual.push_back(static_cast<CHR>(type_of(i, deep)));
    if (n->word->letter == 'T') {
        const isa_row &row = isa_table[n->word->row];
        n->suffix = instruction_suffix(view(row.op_type), actual);
        return row.ret_type;
    }
    const INSTRUCTION_STRU &row = isaext_table[n->word->row];
    n->suffix = instruction_suffix(operand_letters(row), actual);
    return row.ret_type;
}

UCH typist::type_call(const node &n, bool deep)
{
    type_all(n.first, deep);
    const ULO place = context_.find(n.token);
    const UCH letter = context_.letter(place);
    if (place < here_->base || place == context_.size()) rely_on(n.token, letter);
    return letter == 0 ? 'U' : letter;
}

UCH typist::type_form(node_index index, bool deep)
{
    check_stack(fatal_site::STACK_JUSTIFY);
    node *n = &nodes_[index];
    n->suffix = 0;
    if (n->word == nullptr) return type_call(*n, deep);
    const group_set groups = n->word->groups;
    if (groups == 0 || n->first == NONE) return type_instruction(n, deep);
    if (groups & in(GROUP_PROGN)) return type_progn(*n, deep);
    if (groups & (in(GROUP_SETQ) | in(GROUP_ALSETQ))) return type_setq(n, deep);
    if (groups & in(GROUP_ARSETQ)) return type_arsetq(n, deep);
    if (groups & in(GROUP_INDEX)) return type_index(n, deep);
    if (groups & in(GROUP_ALINDEX)) return type_alindex(n, deep);
    if (groups & in(GROUP_DEFUN)) return type_defun(*n);
    if (groups & in(GROUP_IF)) return type_if(n, deep);
    if (groups & in(GROUP_WHILE)) return type_while(n, deep);
    if (groups & in(GROUP_FOR)) return type_for(n, deep);
    return type_instruction(n, deep);
}

// -- Definitions -------------------------------------------------------------------------------

bool typist::still_holds(const finding &f) const
{
    for (const udf_type &outer : f.outer)
        if (context_.letter(context_.find(outer.name)) != outer.letter) return false;
    return true;
}

// Both walks of a body, and its sweep. In the first one a recursive call is of unknown type.
UCH typist::walk_definition(std::string_view name, node_index body, std::vector<udf_type> *outer)
{
    function_tables tables;
    tables.base = context_.size();
    tables.outer = outer;
    function_tables *caller = here_;
    here_ = &tables;
    context_.push(name, 'U');
    const UCH first = type_of(body, true);
    context_.cut(tables.base);
    context_.push(name, first);
    tables.types.clear();
    const UCH second = type_of(body, true);
    sweep(body);
    context_.cut(tables.base);
    here_ = caller;
    return second;
}

UCH typist::type_defun(const node &n)
{
    const node_index name = n.first, body = nodes_[name].next;
    const std::string_view udf = nodes_[name].token;
    finding *found = &findings_[name];
    if (found->letter == 0 || !still_holds(*found)) {
        std::vector<udf_type> outer;
        const UCH letter = walk_definition(udf, body, &outer);
        found = &findings_[name];
        *found = {letter, std::move(outer)};
    }
    for (const udf_type &relied : found->outer) {
        const ULO place = context_.find(relied.name);
        if (place < here_->base || place == context_.size()) rely_on(relied.name, relied.letter);
    }
    context_.push(udf, found->letter);
    return 'S';
}

// -- The sweep ---------------------------------------------------------------------------------

void typist::sweep(node_index index)
{
    if (index == NONE) return;
    check_stack(fatal_site::STACK_JUSTIFY);
    node &n = nodes_[index];
    if (n.kind == 'V' || n.kind == 'P') {
        const auto row = here_->types.find(n.token);
        if (row == here_->types.end() || row->second != UCH(n.suffix)) n.suffix = 0;
        return;
    }
    const group_set groups = n.word == nullptr ? 0 : n.word->groups;
    if (groups & in(GROUP_DEFUN)) return; // its body has had its own
    for (node_index i = n.first; i != NONE; i = nodes_[i].next) sweep(i);
    const bool needs_array = (groups & (in(GROUP_ARSETQ) | in(GROUP_INDEX))) != 0;
    if (needs_array && n.first != NONE && nodes_[n.first].suffix == 0) n.suffix = 0;
}

// -- The whole text ----------------------------------------------------------------------------

void typist::read_context(const CHR *udf_types)
{
    std::string_view rest = view(udf_types);
    while (rest.size() > 1) {
        rest.remove_prefix(1);
        const auto split = rest.find('\xFE'), end = rest.find('\xFF');
        if (split == rest.npos || end != split + 2) break;
        context_.push(rest.substr(0, split), static_cast<UCH>(rest[split + 1]));
        rest.remove_prefix(end);
    }
}

UCH typist::run(CHR **udf_types)
{
    read_context(*udf_types);
    const ULO known = context_.size();
    parse(text_);
    function_tables tables;
    here_ = &tables;
    const UCH letter = type_of(0, true);
    sweep(0);
    here_ = nullptr;
    std::string text(view(*udf_types));
    if (text.empty()) text = "\xFF";
    for (ULO i = known; i < context_.size(); i++) {
        text.append(context_.at(i).name).append("\xFE");
        text.push_back(static_cast<CHR>(context_.at(i).letter));
        text.push_back('\xFF');
    }
    ::assign(udf_types, text);
    return letter;
}

} // namespace

UCH kestrin_justify(CHR **text, CHR **udf_types)
{
    typist pass(view(*text));
    const UCH letter = pass.run(udf_types);
    assign(text, pass.output());
    return letter;
}
