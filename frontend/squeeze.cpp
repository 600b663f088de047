// Squeezing: one walk, in which the arguments of a nested PROGN are taken as if they stood in the
// outer one. Text behind the driver's bindings may be anything that a command-line word brought in;
// the walk stays inside the text whatever it is.

#include "frontend/squeeze.h"

#include <string>

#include "frontend/isa.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/stack.h"

namespace {

class squeezer {
public:
    explicit squeezer(std::string_view text) : text_(text), brackets_(text)
    {
        out_.reserve(text.size() + 16);
        prefix_.append("(").append(mnemonic(ISA_PROGN)).append(" ");
    }
    ULO run()
    {
        squeeze(0, text_.size());
        return count_;
    }
    const std::string &output() const { return out_; }

private:
    void squeeze(ULO from, ULO to);
    void squeeze_definition(token_walk walk);
    bool opens(std::string_view token) const { return token.starts_with(prefix_); }
    token_walk walk_of(std::string_view form, ULO head) const
    {
        const ULO from = offset(form) + head, to = offset(form) + form.size();
        return token_walk(text_, brackets_, from, to > from ? to - 1 : from);
    }
    bool has_one_argument(token_walk walk, ULO *count) const;
    void write_arguments(token_walk walk, bool opens_progn, std::string_view separator);
    void wrap_body(ULO from);
    ULO offset(std::string_view part) const { return ULO(part.data() - text_.data()); }

    std::string_view text_;
    brackets brackets_;
    std::string prefix_; // how a PROGN to be opened begins
    std::string out_;
    ULO count_ = 0;
};

// Whether a PROGN comes down to one argument, nested ones opened. `*count` goes up for each
// argument.
bool squeezer::has_one_argument(token_walk walk, ULO *count) const
{
    check_stack(fatal_site::STACK_SQUEEZE);
    for (auto token = walk.next(); !token.empty() && *count < 2; token = walk.next()) {
        if (opens(token))
            has_one_argument(walk_of(token, prefix_.size()), count);
        else
            ++*count;
    }
    return *count == 1;
}

void squeezer::write_arguments(token_walk walk, bool opens_progn, std::string_view separator)
{
    check_stack(fatal_site::STACK_SQUEEZE);
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        if (opens_progn && opens(token)) {
            count_++;
            write_arguments(walk_of(token, prefix_.size()), true, separator);
            continue;
        }
        out_.append(separator);
        if (token.front() != '(')
            out_.append(token);
        else
            squeeze(offset(token), offset(token) + token.size());
    }
}

// A body that has become a bare token or a definition gets its PROGN back.
void squeezer::wrap_body(ULO from)
{
    const std::string_view body = std::string_view(out_).substr(from);
    const std::string_view word = body.empty() ? body : body.substr(1, body.find(' ', 1) - 1);
    if (!body.empty() && body.front() == '(' && !(word_groups(word) & in(GROUP_DEFUN))) return;
    out_.insert(from, prefix_);
    out_.append(")");
    count_--;
}

// All tokens but the last are the name, the last is the body.
void squeezer::squeeze_definition(token_walk walk)
{
    out_.append("(").append(mnemonic(ISA_DEFUN));
    std::string_view body = walk.next();
    for (auto token = walk.next(); !token.empty(); token = walk.next()) {
        out_.append(" ").append(body);
        body = token;
    }
    out_.append(" ");
    const ULO from = out_.size();
    squeeze(offset(body), offset(body) + body.size());
    wrap_body(from);
    out_.append(")");
}

// The form in text[from, to); its first and last byte are cut off without being looked at.
void squeezer::squeeze(ULO from, ULO to)
{
    token_walk walk = walk_of(text_.substr(from, to - from), 1);
    const std::string_view word = walk.next();
    const group_set groups = word_groups(word);
    if (groups & in(GROUP_DEFUN)) return squeeze_definition(walk);
    const bool is_progn = (groups & in(GROUP_PROGN)) != 0;
    ULO arguments = 0;
    if (is_progn && has_one_argument(walk, &arguments)) {
        count_++;
        return write_arguments(walk, true, "");
    }
    out_.append("(").append(word);
    write_arguments(walk, is_progn, " ");
    out_.append(")");
}

} // namespace

ULO progn_squeeze(CHR **text)
{
    squeezer pass(view(*text));
    const ULO count = pass.run();
    assign(text, pass.output());
    return count;
}
