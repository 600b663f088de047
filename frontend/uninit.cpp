// The initialisation analysis: one walk in evaluation order. What a branch or a loop's body assigns
// is taken back behind it by undoing the additions to one set of names.

#include "frontend/uninit.h"

#include <unordered_set>
#include <vector>

#include "frontend/token.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "vm/stack.h"

namespace {

using names = std::vector<std::string_view>;

// The names known to be assigned, in the order in which they became so.
class known_names {
public:
    bool has(std::string_view name) const { return set_.count(name) != 0; }
    void add(std::string_view name)
    {
        if (set_.insert(name).second) order_.push_back(name);
    }
    ULO mark() const { return order_.size(); }
    // Takes back what has been added since, and returns it.
    names undo(ULO mark)
    {
        names undone(order_.begin() + static_cast<SLO>(mark), order_.end());
        for (std::string_view name : undone) set_.erase(name);
        order_.resize(mark);
        return undone;
    }

private:
    std::unordered_set<std::string_view> set_;
    names order_;
};

constexpr group_set may_stop =
    in(GROUP_WHILE) | in(GROUP_AND) | in(GROUP_AND_2) | in(GROUP_OR) | in(GROUP_OR_2);

// One function.
struct scope {
    std::string path;
    known_names known;
    std::unordered_set<std::string_view> warned;
    std::string warnings;
};

class analysis {
public:
    explicit analysis(std::string_view text) : text_(text), brackets_(text) {}
    std::string run(std::string_view name)
    {
        scope main;
        main.path = name;
        here_ = &main;
        read(text_);
        here_ = nullptr;
        return main.warnings;
    }

private:
    token_walk walk_form(std::string_view form) const
    {
        const ULO from = ULO(form.data() - text_.data()) + 1, to = from + form.size() - 1;
        return token_walk(text_, brackets_, from, to > from ? to - 1 : from);
    }
    void read(std::string_view token);
    void read_rest(token_walk walk);
    void read_form(std::string_view form);
    void read_variable(std::string_view name);
    void read_assignment(token_walk walk);
    void read_if(token_walk walk);
    void read_for(token_walk walk);
    void read_definition(token_walk walk);

    std::string_view text_;
    brackets brackets_;
    scope *here_ = nullptr;
};

void analysis::read_variable(std::string_view name)
{
    if (here_->known.has(name) || !here_->warned.insert(name).second) return;
    here_->warnings.append("*WARNING: In function `").append(here_->path);
    here_->warnings.append("': variable/array `").append(name);
    here_->warnings.append("' might be uninitialized before use!\n");
}

void analysis::read(std::string_view token)
{
    if (token.empty()) return;
    const UCH kind = kestrin_type1(token);
    if (kind == 'V') read_variable(token);
    if (kind == 'U') read_form(token);
}

void analysis::read_rest(token_walk walk)
{
    for (auto token = walk.next(); !token.empty(); token = walk.next()) read(token);
}

void analysis::read_assignment(token_walk walk)
{
    const std::string_view target = walk.next();
    read_rest(walk);
    here_->known.add(target);
}

// Known afterwards is what both branches assign.
void analysis::read_if(token_walk walk)
{
    read(walk.next());
    const ULO mark = here_->known.mark();
    read(walk.next());
    const names first = here_->known.undo(mark);
    read(walk.next());
    const names second = here_->known.undo(mark);
    const std::unordered_set<std::string_view> also(second.begin(), second.end());
    for (std::string_view name : first)
        if (also.count(name)) here_->known.add(name);
}

void analysis::read_for(token_walk walk)
{
    const std::string_view target = walk.next();
    read(walk.next());
    here_->known.add(target);
    const ULO mark = here_->known.mark();
    const std::string_view increment = walk.next(), end = walk.next(), body = walk.next();
    for (std::string_view part : {end, body, increment}) read(part);
    here_->known.undo(mark);
}

// A UDF has variables of its own.
void analysis::read_definition(token_walk walk)
{
    scope *outer = here_;
    scope inner;
    inner.path = outer->path + ":" + std::string(walk.next());
    here_ = &inner;
    read(walk.next());
    here_ = outer;
    if (outer->warnings.find(inner.warnings) == std::string::npos)
        outer->warnings.append(inner.warnings);
}

void analysis::read_form(std::string_view form)
{
    check_stack(fatal_site::STACK_UNINIT);
    token_walk walk = walk_form(form);
    const group_set groups = word_groups(walk.next());
    if (groups & assigns) return read_assignment(walk);
    if (groups & in(GROUP_IF)) return read_if(walk);
    if (groups & in(GROUP_FOR)) return read_for(walk);
    if (groups & in(GROUP_DEFUN)) return read_definition(walk);
    if (groups & may_stop) {
        read(walk.next());
        const ULO mark = here_->known.mark();
        read_rest(walk);
        here_->known.undo(mark);
        return;
    }
    read_rest(walk);
}

} // namespace

std::string kst_uninit_check(std::string_view name, std::string_view text)
{
    return analysis(text).run(name);
}
