// The syntax checker. It walks a form's tokens once to drop comments and count arguments, and then
// checks them in order, descending into nested forms; its output grows in one string.
//
// The language has a UDF's body checked twice: first with any number of arguments allowed in the
// UDF's own recursive calls, then with the true number. All else comes out the same both times, so
// the body is walked once: what the second time could refuse is noted and settled when the number
// is known. The cost stays that of the text, however deep definitions nest.

#include "frontend/check.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/self_check.h"
#include "frontend/syntax.h"
#include "frontend/token.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/machine.h"
#include "vm/stack.h"

namespace {

// How a form stands to its function. Only the first three may hold a definition.
enum level { WHOLE_TEXT, UDF_BODY, STATEMENT, NESTED };

// Operand counts below 0.
constexpr SLO one_or_more = -1, still_open = -2;

// A form in the output whose number of arguments is to be looked at again. `operands` is still_open
// for a call of the function that is being defined.
struct second_look {
    ULO from, to;
    SLO operands;
    ULO arguments;
    std::string path;
};

// The main text or a UDF on the way down.
struct function_scope {
    std::string path;
    argument_set arguments;
    std::vector<second_look> looks;
};

struct function {
    SLO operands;
    function_scope *open; // while `operands` is still_open
};

// A form on the way down.
struct form {
    std::string_view text; // with its parentheses, as it stood
    std::string_view word; // its first token, as written
    std::string name;      // and folded
    std::string joined;    // owns the argument that a row of strings becomes
    ULO first, last;       // its arguments, on the stack of tokens
    SLO operands;
    function_scope *open;
    group_set groups;
};

std::string_view inside(std::string_view text)
{
    return text.size() < 2 ? std::string_view() : text.substr(1, text.size() - 2);
}

bool is_list(std::string_view token)
{
    return token.size() >= 2 && token.front() == '(' && token.back() == ')';
}

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
    checker(std::string_view text, std::string_view name, lut **table)
        : text_(text), body_(inside(text)), brackets_(body_), table_(table)
    {
        main_.path = name;
    }
    SLO run()
    {
        out_.reserve(text_.size() + 16);
        return check_form(text_, WHOLE_TEXT, true);
    }
    const std::string &output() const { return out_; }
    void publish();

private:
    const std::string &path() const { return here_->path; }

    SLO check_form(std::string_view text, level where, bool terminators);
    bool split(form *f);
    bool is_comment_word(std::string_view word);
    bool is_comment_form(std::string_view token);
    void join_strings(form *f);
    SLO refuse_unbalanced();
    SLO look_up(form *f);
    const function *find(const std::string &name);
    SLO check_count(const form &f);
    SLO check_array(const form &f);
    SLO write_form(form *f, level where, bool terminators);
    SLO write_target(const form &f);
    SLO write_arguments(const form &f, level where, bool terminators, ULO *written);
    SLO write_token(std::string_view token);
    SLO define(const form &f, level where);
    SLO define_body(std::string_view body, const std::string &name);
    SLO settle(const function_scope &scope, SLO operands);
    SLO count_formal_arguments();

    std::string_view text_, body_;
    brackets brackets_; // of body_
    lut **table_;
    function_scope main_;
    function_scope *here_ = &main_;
    std::string out_;
    std::vector<std::string_view> tokens_; // arguments of all forms on the way down
    std::unordered_map<std::string, function> functions_;
    std::vector<std::string> defined_; // UDFs in force, in order
    std::string folded_;
};

// -- Splitting a form --------------------------------------------------------------------------

bool checker::is_comment_word(std::string_view word)
{
    if (word.empty() || word.front() == '(' || word.front() == '"') return false;
    folded_.clear();
    append_folded(&folded_, word);
    return (word_groups(folded_) & in(GROUP_COMMENTS)) != 0;
}

bool checker::is_comment_form(std::string_view token)
{
    if (!is_list(token)) return false;
    const std::string_view body = left_trimmed(inside(token));
    return !body.empty() && body.front() != '(' && is_comment_word(first_token(body));
}

// Finds word and arguments, comment forms left out. False if the form itself is a comment.
bool checker::split(form *f)
{
    const std::string_view body = inside(f->text);
    const ULO from = static_cast<ULO>(body.data() - body_.data());
    token_walk walk(body_, brackets_, from, from + body.size());
    f->first = tokens_.size();
    bool leading = true;
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        if (leading && is_comment_word(token)) return false;
        leading = false;
        if (is_comment_form(token)) continue;
        if (f->word.empty())
            f->word = token;
        else
            tokens_.push_back(token);
    }
    f->last = tokens_.size();
    join_strings(f);
    return !is_comment_word(f->word);
}

// A row of string constants in parentheses is the PROGN of the one joined string.
void checker::join_strings(form *f)
{
    if (!is_string(f->word)) return;
    if (!std::all_of(tokens_.begin() + static_cast<SLO>(f->first), tokens_.end(), is_string))
        return;
    f->joined.append("\"").append(inside(f->word));
    for (ULO i = f->first; i < f->last; i++) f->joined.append(inside(tokens_[i]));
    f->joined.append("\"");
    tokens_.resize(f->first);
    tokens_.push_back(f->joined);
    f->last = tokens_.size();
    f->word = mnemonic(ISA_PROGN);
}

// The walk by which unbalanced text is refused: it finds the first token that does not end. A
// comment is not looked at behind its word.
SLO checker::refuse_unbalanced()
{
    std::string_view rest = trimmed(body_), token;
    if (!kestrin_head(&token, rest)) return FAILED;
    if (is_comment_word(token)) return 0;
    while (!token.empty())
        if (!kestrin_tail(&rest, rest) || !kestrin_head(&token, rest)) return FAILED;
    return 0;
}

// -- Names and counts --------------------------------------------------------------------------

const function *checker::find(const std::string &name)
{
    const auto known = functions_.find(name);
    if (known != functions_.end()) return &known->second;
    if (*table_ == nullptr) return nullptr;
    scratch key;
    assign(&key.s, name);
    SLO operands = 0;
    if (!lut_get(*table_, key.s, &operands)) return nullptr;
    return &functions_.emplace(name, function{operands, nullptr}).first->second;
}

SLO checker::look_up(form *f)
{
    if (f->word.empty()) return syntax_error<syntax::VOID_NAME>(path(), f->text);
    append_folded(&f->name, f->word);
    const function *found = find(f->name);
    if (found == nullptr) return syntax_error<syntax::UNDEFINED_NAME>(path(), f->name, f->text);
    f->operands = found->operands;
    f->open = found->open;
    f->groups = word_groups(f->name);
    return 0;
}

SLO refuse_count(const std::string &path, SLO operands, ULO arguments, std::string_view text)
{
    if (operands == one_or_more) return syntax_error<syntax::ARGUMENT_REQUIRED>(path, text);
    const std::string wanted = std::to_string(operands), given = std::to_string(arguments);
    if (operands == 1) return syntax_error<syntax::ONE_ARGUMENT>(path, wanted, given, text);
    return syntax_error<syntax::SOME_ARGUMENTS>(path, wanted, given, text);
}

bool count_fits(SLO operands, ULO arguments)
{
    if (operands == one_or_more) return arguments > 0;
    return operands < 0 || ULO(operands) == arguments;
}

SLO checker::check_count(const form &f)
{
    const ULO arguments = f.last - f.first;
    if (count_fits(f.operands, arguments)) return 0;
    return refuse_count(path(), f.operands, arguments, f.text);
}

SLO checker::count_formal_arguments()
{
    ULO expected = 1;
    for (ULO argument : here_->arguments)
        if (argument != expected++)
            return syntax_error<syntax::ARGUMENT_GAP>(path(), std::to_string(expected - 1));
    return static_cast<SLO>(here_->arguments.size());
}

// -- Writing a form ----------------------------------------------------------------------------

SLO checker::check_array(const form &f)
{
    argument_set unused;
    std::string name;
    const UCH letter = kestrin_type(tokens_[f.first], &name, &unused);
    if (letter == 'V' || letter == 'P') return 0;
    if (letter == 0) name = tokens_[f.first];
    return syntax_error<syntax::INVALID_ARRAY>(path(), name, f.text);
}

// The target of an assignment. A formal argument is one only in the text that the driver has
// modified, and is not counted as a use.
SLO checker::write_target(const form &f)
{
    argument_set unused;
    std::string name;
    const UCH letter = kestrin_type(tokens_[f.first], &name, &unused);
    if (letter != 'V' && !(letter == 'P' && path() == "Main_Modified")) {
        if (letter == 0) name = tokens_[f.first];
        return syntax_error<syntax::INVALID_TARGET>(path(), name, f.text);
    }
    out_.append(" ").append(name);
    return 0;
}

SLO checker::write_token(std::string_view token)
{
    out_.append(" ");
    const UCH letter = kestrin_type(token, &out_, &here_->arguments);
    if (letter == 0) {
        std::string message(view(rt_ctrl->rt_run_text));
        if (!message.empty() && message[0] >= 'A' && message[0] <= 'Z') message[0] += 32;
        return syntax_error<syntax::TOKEN_REFUSED>(path(), message);
    }
    const auto is_raw = [](CHR c) { return static_cast<UCH>(c) < 32; };
    if (letter == 'S' && std::any_of(token.begin() + 1, token.end(), is_raw)) {
        scratch shown;
        assign(&shown.s, inside(token));
        return syntax_error<syntax::RAW_STRING>(path(), view(strunraw(&shown.s, shown.s)));
    }
    return 0;
}

SLO checker::write_arguments(const form &f, level where, bool terminators, ULO *written)
{
    int places = places_without_terminator(f.groups);
    const bool targeted = (f.groups & sets_variable) != 0;
    const level below = where != NESTED && (f.groups & in(GROUP_PROGN)) ? STATEMENT : NESTED;
    *written = targeted;
    for (ULO i = f.first + targeted; i < f.last; i++) {
        const std::string_view token = tokens_[i];
        const ULO before = out_.size();
        if (token.front() == '(') {
            out_.append(" ");
            if (check_form(token, below, terminators && places == 0) == FAILED) return FAILED;
            if (out_.size() == before + 1) { // it was a comment after all
                out_.resize(before);
                continue;
            }
        } else if (write_token(token) == FAILED)
            return FAILED;
        ++*written;
        if (places > 0) places--;
    }
    return 0;
}

SLO checker::write_form(form *f, level where, bool terminators)
{
    if ((f->groups & (in(GROUP_BREAK) | in(GROUP_EXIT))) && !terminators)
        return syntax_error<syntax::TERMINATOR_NESTED>(path(), f->text);
    if ((f->groups & reads_array) && check_array(*f) == FAILED) return FAILED;
    const ULO from = out_.size();
    out_.append("(").append(f->name);
    if ((f->groups & sets_variable) && write_target(*f) == FAILED) return FAILED;
    ULO written = 0;
    if (write_arguments(*f, where, terminators, &written) == FAILED) return FAILED;
    out_.append(")");
    if (f->operands == still_open)
        f->open->looks.push_back({from, out_.size(), still_open, written, path()});
    else if (written != f->last - f->first)
        here_->looks.push_back({from, out_.size(), f->operands, written, path()});
    return where == WHOLE_TEXT || where == UDF_BODY ? count_formal_arguments() : 0;
}

SLO checker::check_form(std::string_view text, level where, bool terminators)
{
    check_stack(fatal_site::STACK_CHECK);
    if (!is_list(text)) return syntax_error<syntax::UNTERMINATED_FORM>(path(), text);
    if (where == WHOLE_TEXT && !brackets_.balanced() && refuse_unbalanced() == FAILED)
        return FAILED;
    form f = {};
    f.text = text;
    const ULO height = tokens_.size();
    SLO result = 0;
    if (split(&f)) {
        if (look_up(&f) == FAILED || check_count(f) == FAILED) return FAILED;
        result = f.groups & in(GROUP_DEFUN) ? define(f, where) : write_form(&f, where, terminators);
    }
    tokens_.resize(height);
    return result;
}

// -- Definitions -------------------------------------------------------------------------------

SLO checker::define(const form &f, level where)
{
    if (where == NESTED) return syntax_error<syntax::UDF_TOO_DEEP>(path(), f.text);
    argument_set unused;
    std::string name;
    // The letter in front lets a name begin with what a variable's can't.
    if (kestrin_type(std::string("U").append(tokens_[f.first]), &name, &unused) != 'V')
        return syntax_error<syntax::UDF_NAME>(path(), f.text);
    name.erase(0, 1);
    if (find(name) != nullptr) return syntax_error<syntax::UDF_KNOWN>(path(), f.text);
    return define_body(tokens_[f.first + 1], name);
}

SLO checker::define_body(std::string_view body, const std::string &name)
{
    function_scope scope;
    scope.path = std::string(path()).append(":").append(name);
    function_scope *outer = here_;
    functions_[name] = {still_open, &scope};
    defined_.push_back(name);
    const ULO height = defined_.size();

    out_.append("(").append(mnemonic(ISA_DEFUN)).append(" ").append(name).append(" ");
    const ULO before = out_.size();
    here_ = &scope;
    SLO operands = check_form(body, UDF_BODY, true);
    if (operands != FAILED && out_.size() == before)
        operands = syntax_error<syntax::UNTERMINATED_FORM>(path(), "");
    here_ = outer;
    for (; defined_.size() > height; defined_.pop_back()) functions_.erase(defined_.back());
    if (operands == FAILED || settle(scope, operands) == FAILED) return FAILED;
    functions_[name] = {operands, nullptr};
    out_.append(")");
    return operands;
}

// The second look at a body: the number of the function's arguments is known now, and forms that
// have lost a comment stand with what remained.
SLO checker::settle(const function_scope &scope, SLO operands)
{
    const second_look *first = nullptr;
    for (const second_look &look : scope.looks) {
        const SLO wanted = look.operands == still_open ? operands : look.operands;
        if (count_fits(wanted, look.arguments)) continue;
        if (first == nullptr || look.from < first->from) first = &look;
    }
    if (first == nullptr) return 0;
    const SLO wanted = first->operands == still_open ? operands : first->operands;
    const std::string text = out_.substr(first->from, first->to - first->from);
    return refuse_count(first->path, wanted, first->arguments, text);
}

// Enters the UDFs of the text's own level in the table of known functions.
void checker::publish()
{
    if (*table_ == nullptr) return;
    std::sort(defined_.begin(), defined_.end());
    std::vector<lut_pair> fresh;
    fresh.reserve(defined_.size());
    for (const std::string &name : defined_) fresh.push_back({name, functions_[name].operands});
    lut_add_sorted(*table_, fresh.data(), fresh.size());
}

} // namespace

SLO kestrin_check(CHR **text, std::string_view name, lut **table)
{
    alltrim(text, *text);
    if (*table == nullptr && check_instruction_tables(table) == FAILED) return FAILED;
    checker pass(view(*text), name, table);
    const SLO result = pass.run();
    if (result == FAILED) return FAILED;
    pass.publish();
    assign(text, pass.output());
    return result;
}
