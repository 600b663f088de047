// The syntax checker. The text is parsed, comments left out, and the forms are checked in order;
// what the tokens are is written into the nodes.
//
// The language has a UDF's body checked twice: first with any number of arguments allowed in the
// UDF's own recursive calls, then with the true number. All else comes out the same both times, so
// the body is walked once: what the second time could refuse is noted and settled when the number
// is known. The cost stays that of the text, however deep definitions nest.

#include "frontend/check.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/scoped.h"
#include "frontend/self_check.h"
#include "frontend/syntax.h"
#include "frontend/token.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/machine.h"
#include "vm/stack.h"

namespace {

// How a form stands to its function. Only the first three may hold a definition.
enum level { WHOLE_TEXT, UDF_BODY, STATEMENT, NESTED };

// Operand counts below 0; a unit's row may have any down to INT16_MIN.
constexpr SLO ONE_OR_MORE = -1, STILL_OPEN = INT16_MIN - 1, ANY_NUMBER = INT16_MIN - 2;
// Of a name that is no function, or may be one.
constexpr SLO MISSING = INT16_MIN - 3, NOT_LOOKED_UP = INT16_MIN - 4;

// A form with its number of arguments. `operands` is STILL_OPEN for a call of a function that is
// being defined.
struct counted_form {
    node_index index;
    SLO operands;
    ULO arguments;
    ULO path; // where the form stands
};

// The first formal argument that is missed among those seen; 0 if none is.
ULO gap_in(const std::set<ULO> &arguments)
{
    ULO wanted = 1;
    for (const ULO number : arguments) {
        if (number != wanted) return wanted;
        wanted++;
    }
    return 0;
}

// The main text or a UDF on the way down.
struct function_scope {
    ULO path;
    std::set<ULO> arguments; // formal ones
    std::vector<counted_form> second_looks;
};

struct path_step {
    ULO outer; // path
    name_id name;
};

struct function {
    SLO operands = NOT_LOOKED_UP;
    function_scope *open = nullptr; // while `operands` is STILL_OPEN
    bool is_known() const { return operands > MISSING; }
};

// A form on the way down.
struct form {
    node_index index;
    function called;
    group_set groups;
    bool is_refused = false; // and only looked at for more faults
};

bool is_string(std::string_view token)
{
    return token.size() >= 2 && token.front() == '"' && token.back() == '"';
}

// The number of arguments after which a terminator may stand: BREAK and EXIT must not end the
// calculation of a value.
int places_without_terminator(group_set groups)
{
    if (groups & in(GROUP_PROGN)) return 0;
    if (groups & in(GROUP_FOR)) return 3;
    if (groups & (in(GROUP_WHILE) | in(GROUP_IF))) return 1;
    return -1;
}

class checker {
public:
    checker(tree *t, std::string_view name, lut **table, std::vector<syntax_fault> *faults)
        : tree_(*t), name_(name), table_(table), faults_(faults), main_{0, {}, {}}
    {
    }
    SLO run(std::string source, SLO place, node_index *root);
    void publish();

private:
    node &at(node_index n) { return tree_.nodes[n]; }
    std::string_view text(node_index n) { return tree_.text_of(at(n)); }
    std::string path_text(ULO path) const;
    std::string path() const { return path_text(here_->path); }
    bool notes_all() const { return faults_ != nullptr; }

    // Leaves the error of a node, and notes it where all faults are wanted: one for a node.
    template <syntax id, class... Parts> SLO refuse(node_index n, const Parts &...parts)
    {
        if (notes_all() && (faults_->empty() || faults_->back().node != n))
            faults_->push_back({id, {std::string(parts)...}, n});
        return syntax_error<id>(parts...);
    }

    SLO check_form(node_index n, level where, bool terminators);
    SLO refuse_unbalanced(std::string_view body);
    bool is_row_of_strings(node_index first);
    SLO find_word(form *f);
    void join_strings(node *form);
    function find(name_id name);
    counted_form count(const form &f);
    SLO refuse_count(const counted_form &counted, std::string_view text);
    SLO check_count(const form &f);
    SLO go_on(form f, level where, bool terminators);
    SLO write_form(const form &f, level where, bool terminators);
    SLO check_arguments(const form &f, level where, bool terminators, bool *lost_comment);
    UCH class_token(node *n);
    SLO check_token(node_index n);
    SLO check_variable(const form &f);
    SLO define(const form &f, level where);
    SLO define_body(node_index definition, name_id name);
    SLO settle(function_scope *scope, SLO operands);
    SLO count_formal_arguments(node_index form);

    tree &tree_;
    std::string_view name_;
    lut **table_;
    std::vector<syntax_fault> *faults_; // NULL: the first ends the check
    function_scope main_;
    function_scope *here_ = &main_;
    std::vector<path_step> paths_; // of all UDFs, from 1
    scoped<function> functions_;
    std::vector<name_id> defined_; // UDFs of the main text
    std::string folded_;
};

std::string checker::path_text(ULO path) const
{
    if (path == 0) return std::string(name_);
    const path_step &step = paths_[path - 1];
    return path_text(step.outer).append(":").append(names().text(step.name));
}

// -- The whole text ----------------------------------------------------------------------------

// The walk by which unbalanced text is refused: it finds the first token that does not end. A
// comment is not looked at behind its word.
SLO checker::refuse_unbalanced(std::string_view body)
{
    std::string_view rest = trimmed(body), token;
    if (!kestrin_head(&token, rest)) return FAILED;
    append_folded(&folded_, token);
    if (word_groups(folded_) & in(GROUP_COMMENTS)) return 0;
    while (!token.empty()) {
        rest = behind_first_token(rest);
        if (!kestrin_head(&token, rest)) return FAILED;
    }
    return 0;
}

SLO checker::run(std::string source, SLO place, node_index *root)
{
    *root = NO_NODE;
    if (!is_list(source)) return syntax_error<syntax::UNTERMINATED_FORM>(path(), source);
    const ULO from = tree_.text.size();
    bool sound = true;
    const node_index n = tree_.add_source(std::move(source), place, &sound);
    if (!sound) return refuse_unbalanced(inside(std::string_view(tree_.text).substr(from)));
    if (n == NO_NODE || at(n).letter == 'C') return 0;
    const SLO result = check_form(n, WHOLE_TEXT, true);
    *root = n;
    return result;
}

// Enters the UDFs of the text's own level in the table of known functions.
void checker::publish()
{
    if (*table_ == nullptr || defined_.empty()) return;
    std::vector<lut_pair> fresh;
    fresh.reserve(defined_.size());
    for (const name_id name : defined_)
        fresh.push_back({names().text(name), functions_.get(name).operands});
    std::sort(fresh.begin(), fresh.end(),
              [](const lut_pair &a, const lut_pair &b) { return a.key < b.key; });
    lut_add_sorted(*table_, fresh.data(), fresh.size());
}

// -- Words and counts --------------------------------------------------------------------------

bool checker::is_row_of_strings(node_index first)
{
    if (first == NO_NODE) return false;
    for (node_index i = first; i != NO_NODE; i = at(i).next)
        if (!is_string(text(i))) return false;
    return true;
}

// A row of string constants in parentheses is the PROGN of the one joined string.
void checker::join_strings(node *form)
{
    form->name = names().enter(mnemonic(ISA_PROGN));
    node &first = at(form->first);
    if (first.next == NO_NODE) return;
    std::string joined = "\"";
    for (node_index i = form->first; i != NO_NODE; i = at(i).next) joined.append(inside(text(i)));
    joined.append("\"");
    tree_.replace_text(&first, joined);
    first.next = NO_NODE;
}

// What a name calls, looked up once.
function checker::find(name_id name)
{
    function known = functions_.get(name);
    if (known.operands != NOT_LOOKED_UP) return known;
    known.operands = MISSING;
    scratch key;
    assign(&key.s, names().text(name));
    if (*table_ != nullptr) lut_get(*table_, key.s, &known.operands);
    functions_.set(name, known);
    return known;
}

// What the form calls. The word of a row of strings stands among its arguments until it is known
// for one.
SLO checker::find_word(form *f)
{
    node &n = at(f->index);
    const std::string_view whole = tree_.text_of(n);
    if (n.name == NO_NAME && is_row_of_strings(n.first)) join_strings(&n);
    if (n.name == NO_NAME && n.first == NO_NODE)
        return refuse<syntax::VOID_NAME>(f->index, path(), std::string(whole));
    if (n.name == NO_NAME) {
        folded_.clear();
        append_folded(&folded_, text(n.first));
        return refuse<syntax::UNDEFINED_NAME>(f->index, path(), folded_, whole);
    }
    if (const instruction_word *word = word_of(n.name); word != nullptr) {
        f->groups = word->groups;
        f->called.operands = word->operands;
        return 0;
    }
    f->called = find(n.name);
    if (f->called.is_known()) return 0;
    return refuse<syntax::UNDEFINED_NAME>(f->index, path(), names().text(n.name), whole);
}

SLO checker::refuse_count(const counted_form &counted, std::string_view text)
{
    const std::string path = path_text(counted.path);
    if (counted.operands == ONE_OR_MORE)
        return refuse<syntax::ARGUMENT_REQUIRED>(counted.index, path, text);
    const std::string wanted = std::to_string(counted.operands);
    const std::string given = std::to_string(counted.arguments);
    if (counted.operands == 1)
        return refuse<syntax::ONE_ARGUMENT>(counted.index, path, wanted, given, text);
    return refuse<syntax::SOME_ARGUMENTS>(counted.index, path, wanted, given, text);
}

bool count_fits(const counted_form &counted)
{
    if (counted.operands == ONE_OR_MORE) return counted.arguments > 0;
    return counted.operands < 0 || ULO(counted.operands) == counted.arguments;
}

// Arguments as written, with those that turn out to be comments.
counted_form checker::count(const form &f)
{
    ULO arguments = 0;
    for (node_index i = at(f.index).first; i != NO_NODE; i = at(i).next) arguments++;
    return {f.index, f.called.operands, arguments, here_->path};
}

SLO checker::check_count(const form &f)
{
    const counted_form counted = count(f);
    return count_fits(counted) ? 0 : refuse_count(counted, text(f.index));
}

SLO checker::count_formal_arguments(node_index form)
{
    const ULO gap = gap_in(here_->arguments);
    if (gap == 0) return static_cast<SLO>(here_->arguments.size());
    return refuse<syntax::ARGUMENT_GAP>(form, path(), std::to_string(gap));
}

// -- Tokens ------------------------------------------------------------------------------------

// Classes a token that stands in source and gives it its one spelling. 0 if it is refused.
UCH checker::class_token(node *n)
{
    folded_.clear();
    const UCH letter = kestrin_type(tree_.text_of(*n), &folded_);
    n->letter = static_cast<CHR>(letter);
    if (letter == 'V' || letter == 'P') n->name = names().enter(folded_);
    return letter;
}

SLO checker::check_token(node_index index)
{
    node *n = &at(index);
    const UCH letter = class_token(n);
    if (letter == 0) {
        std::string message(view(rt_ctrl->rt_run_text));
        if (!message.empty() && message[0] >= 'A' && message[0] <= 'Z') message[0] += 32;
        return refuse<syntax::TOKEN_REFUSED>(index, path(), message);
    }
    if (letter == 'F') tree_.text.replace(n->text, n->size, folded_);
    if (letter == 'P') here_->arguments.insert(static_cast<ULO>(tree_.argument_number(*n)));
    const auto is_raw = [](CHR c) { return static_cast<UCH>(c) < 32; };
    const std::string_view token = tree_.text_of(*n);
    if (letter == 'S' && std::any_of(token.begin() + 1, token.end(), is_raw)) {
        scratch shown;
        assign(&shown.s, inside(token));
        return refuse<syntax::RAW_STRING>(index, path(), view(strunraw(&shown.s, shown.s)));
    }
    return 0;
}

// The first argument of a form that reads an array or sets a variable. A formal argument is set
// only in the text that the driver has modified, and is not counted as a use there.
SLO checker::check_variable(const form &f)
{
    const node_index first = at(f.index).first;
    const UCH letter = class_token(&at(first));
    const bool is_array = (f.groups & READS_ARRAY) != 0;
    const bool may_be_argument = is_array || (here_ == &main_ && name_ == "Main_Modified");
    if (letter == 'V' || (letter == 'P' && may_be_argument)) return 0;
    const std::string_view shown = letter == 0 ? text(first) : std::string_view(folded_);
    if (is_array) return refuse<syntax::INVALID_ARRAY>(first, path(), shown, text(f.index));
    return refuse<syntax::INVALID_TARGET>(first, path(), shown, text(f.index));
}

// -- Forms -------------------------------------------------------------------------------------

SLO checker::check_arguments(const form &f, level where, bool terminators, bool *lost_comment)
{
    int places = places_without_terminator(f.groups);
    const level below = where != NESTED && (f.groups & in(GROUP_PROGN)) ? STATEMENT : NESTED;
    node_index before = NO_NODE, i = at(f.index).first;
    const bool is_progn = (f.groups & in(GROUP_PROGN)) != 0;
    bool is_squeezed = true, is_sound = true;
    if (f.is_refused)
        places = 0;
    else if (f.groups & SETS_VARIABLE) {
        before = i;
        i = at(i).next;
    }
    for (; i != NO_NODE; i = at(i).next) {
        if (at(i).letter == 'C') { // it was a comment after all
            (before == NO_NODE ? at(f.index).first : at(before).next) = at(i).next;
            *lost_comment = true;
            continue;
        }
        const bool is_form = at(i).letter == 'U';
        if ((is_form ? check_form(i, below, terminators && places == 0) : check_token(i)) ==
            FAILED) {
            if (!notes_all()) return FAILED;
            is_sound = false;
        }
        before = i;
        if (places > 0) places--;
        if (!is_form) continue;
        const bool is_nested = is_progn && (groups_of(word_of(at(i).name)) & in(GROUP_PROGN));
        if (is_nested || at(i).may_be_squeezed) is_squeezed = false;
    }
    if (is_progn) is_squeezed = is_squeezed && before != at(f.index).first;
    at(f.index).may_be_squeezed = !is_squeezed;
    return is_sound ? 0 : FAILED;
}

// Looks at the arguments of a form that is refused.
SLO checker::go_on(form f, level where, bool terminators)
{
    bool lost_comment = false;
    f.is_refused = true;
    if (notes_all()) check_arguments(f, where, terminators, &lost_comment);
    return FAILED;
}

SLO checker::write_form(const form &f, level where, bool terminators)
{
    if ((f.groups & (in(GROUP_BREAK) | in(GROUP_EXIT))) && !terminators)
        return refuse<syntax::TERMINATOR_NESTED>(f.index, path(), text(f.index));
    if ((f.groups & (READS_ARRAY | SETS_VARIABLE)) && check_variable(f) == FAILED)
        return go_on(f, where, terminators);
    bool lost_comment = false;
    if (check_arguments(f, where, terminators, &lost_comment) == FAILED) return FAILED;
    function_scope *open = f.called.operands == STILL_OPEN ? f.called.open : here_;
    if (lost_comment || f.called.operands == STILL_OPEN) open->second_looks.push_back(count(f));
    return where == WHOLE_TEXT || where == UDF_BODY ? count_formal_arguments(f.index) : 0;
}

SLO checker::check_form(node_index n, level where, bool terminators)
{
    check_stack(site::STACK_CHECK);
    form f = {n, {}, 0};
    if (find_word(&f) == FAILED || check_count(f) == FAILED) return go_on(f, where, terminators);
    return f.groups & in(GROUP_DEFUN) ? define(f, where) : write_form(f, where, terminators);
}

// -- Definitions -------------------------------------------------------------------------------

SLO checker::define(const form &f, level where)
{
    if (where == NESTED) return refuse<syntax::UDF_TOO_DEEP>(f.index, path(), text(f.index));
    const node_index name = at(f.index).first;
    // The letter in front lets a name begin with what a variable's can't.
    folded_.clear();
    if (kestrin_type(std::string("U").append(text(name)), &folded_) != 'V')
        return refuse<syntax::UDF_NAME>(f.index, path(), text(f.index));
    const name_id udf = names().enter(std::string_view(folded_).substr(1));
    if (word_of(udf) != nullptr || find(udf).is_known())
        return refuse<syntax::UDF_KNOWN>(f.index, path(), text(f.index));
    at(f.index).name = names().enter(mnemonic(ISA_DEFUN));
    at(name).name = udf;
    at(name).letter = 'V';
    return define_body(f.index, udf);
}

SLO checker::define_body(node_index definition, name_id name)
{
    const node_index body = at(at(definition).first).next;
    paths_.push_back({here_->path, name});
    if (at(body).letter != 'U') // a token, or a comment after all
        return refuse<syntax::UNTERMINATED_FORM>(body, path_text(paths_.size()),
                                                 at(body).letter == 'C' ? std::string_view()
                                                                        : text(body));
    function_scope scope = {paths_.size(), {}, {}};
    function_scope *outer = here_;
    const ULO mark = functions_.mark();
    functions_.set(name, {STILL_OPEN, &scope});
    if (outer == &main_) defined_.push_back(name);
    here_ = &scope;
    const SLO operands = check_form(body, UDF_BODY, true);
    here_ = outer;
    functions_.undo(mark);
    if (operands == FAILED || settle(&scope, operands) == FAILED) {
        // Calls of a refused function are no faults of theirs.
        const bool is_counted = gap_in(scope.arguments) == 0;
        const SLO known = is_counted ? SLO(scope.arguments.size()) : ANY_NUMBER;
        if (notes_all()) functions_.set(name, {known, nullptr});
        return FAILED;
    }
    at(definition).may_be_squeezed =
        at(body).may_be_squeezed || (groups_of(word_of(at(body).name)) & in(GROUP_DEFUN));
    functions_.set(name, {operands, nullptr});
    return operands;
}

// The second look at a body: the number of the function's arguments is known now, and forms that
// have lost a comment stand with what remained.
SLO checker::settle(function_scope *scope, SLO operands)
{
    const counted_form *first = nullptr;
    for (counted_form &counted : scope->second_looks) {
        if (counted.operands == STILL_OPEN) counted.operands = operands;
        if (count_fits(counted)) continue;
        if (first == nullptr || counted.index < first->index) first = &counted;
    }
    if (first == nullptr) return 0;
    std::string written;
    tree_.write(first->index, &written);
    return refuse_count(*first, written);
}

} // namespace

SLO kestrin_check(tree *t, node_index *root, std::string source, SLO place, std::string_view name,
                  lut **table, std::vector<syntax_fault> *faults)
{
    if (*table == nullptr && check_instruction_tables(table) == FAILED) return FAILED;
    checker pass(t, name, table, faults);
    const SLO result = pass.run(std::move(source), place, root);
    if (result != FAILED) pass.publish();
    return result;
}
