// The initialisation analysis: one walk in evaluation order. What a branch or a loop's body assigns
// is taken back behind it.

#include "frontend/uninit.h"

#include <unordered_set>

#include "frontend/scoped.h"
#include "frontend/words.h"
#include "vm/stack.h"

FATAL_SITE(STACK_UNINIT, "kestrin", "kst_uninit_check", 131)

namespace {

constexpr group_set MAY_STOP =
    in(GROUP_WHILE) | in(GROUP_AND) | in(GROUP_AND_2) | in(GROUP_OR) | in(GROUP_OR_2);

// One function.
struct scope {
    std::string path, warnings;
    std::unordered_set<std::string> definitions; // paths
};

class analysis {
public:
    analysis(const tree &t, std::vector<node_index> *uses) : tree_(t), uses_(uses) {}
    std::string run(std::string_view name)
    {
        main_.path = name;
        read(tree_.root);
        return main_.warnings;
    }

private:
    bool loops_run() const { return uses_ != nullptr; }
    node_index next(node_index n) const { return n == NO_NODE ? NO_NODE : tree_.nodes[n].next; }
    void learn(node_index variable);
    void read(node_index n);
    void read_rest(node_index first);
    void read_variable(node_index n);
    void read_form(const node &form);
    void read_if(node_index condition);
    void read_for(node_index target);
    void read_definition(node_index name);

    const tree &tree_;
    std::vector<node_index> *uses_; // NULL: nobody asks
    scope main_, *here_ = &main_;
    scoped<bool> known_, warned_; // variables
};

void analysis::read_variable(node_index n)
{
    const name_id name = tree_.nodes[n].name;
    if (known_.get(name) || warned_.get(name)) return;
    warned_.set(name, true);
    if (uses_ != nullptr) uses_->push_back(n);
    here_->warnings.append("*WARNING: In function `").append(here_->path);
    here_->warnings.append("': variable/array `").append(names().text(name));
    here_->warnings.append("' might be uninitialized before use!\n");
}

void analysis::read(node_index n)
{
    if (n == NO_NODE) return;
    const node &token = tree_.nodes[n];
    if (token.letter == 'V') read_variable(n);
    if (token.letter == 'U') read_form(token);
}

void analysis::read_rest(node_index first)
{
    for (node_index i = first; i != NO_NODE; i = next(i)) read(i);
}

// A variable that is assigned from here on.
void analysis::learn(node_index variable)
{
    if (variable == NO_NODE || tree_.nodes[variable].letter != 'V') return;
    const name_id name = tree_.nodes[variable].name;
    if (!known_.get(name)) known_.set(name, true);
}

// Known afterwards is what both branches assign.
void analysis::read_if(node_index condition)
{
    read(condition);
    const ULO mark = known_.mark();
    read(next(condition));
    std::vector<ULO> first;
    for (ULO i = mark; i < known_.mark(); i++) first.push_back(known_.changed(i));
    known_.undo(mark);
    read(next(next(condition)));
    std::erase_if(first, [this](ULO name) { return !known_.get(name); });
    known_.undo(mark);
    for (const ULO name : first) known_.set(name, true);
}

void analysis::read_for(node_index target)
{
    const node_index start = next(target), increment = next(start), end = next(increment);
    read(start);
    learn(target);
    const ULO mark = known_.mark();
    for (const node_index part : {end, next(end), increment}) read(part);
    if (!loops_run()) known_.undo(mark);
}

// A UDF has variables of its own. Only a name that has been defined before can have left the same
// warnings.
void analysis::read_definition(node_index name)
{
    scope *outer = here_;
    scope inner;
    inner.path = outer->path + ":";
    if (name != NO_NODE) inner.path.append(tree_.token_of(tree_.nodes[name]));
    here_ = &inner;
    known_.enter();
    warned_.enter();
    read(next(name));
    known_.leave();
    warned_.leave();
    here_ = outer;
    const bool is_new = outer->definitions.insert(inner.path).second && tree_.settled;
    if (is_new || outer->warnings.find(inner.warnings) == std::string::npos)
        outer->warnings.append(inner.warnings);
}

void analysis::read_form(const node &form)
{
    check_stack(site::STACK_UNINIT);
    const group_set groups = groups_of(word_of(form.name));
    if (groups & ASSIGNS) {
        read_rest(next(form.first));
        return learn(form.first);
    }
    if (groups & in(GROUP_IF)) return read_if(form.first);
    if (groups & in(GROUP_FOR)) return read_for(form.first);
    if (groups & in(GROUP_DEFUN)) return read_definition(form.first);
    if (groups & MAY_STOP) {
        read(form.first);
        const ULO mark = known_.mark();
        read_rest(next(form.first));
        if (!(groups & in(GROUP_WHILE)) || !loops_run()) known_.undo(mark);
        return;
    }
    read_rest(form.first);
}

} // namespace

std::string kst_uninit_check(std::string_view name, const tree &program,
                             std::vector<node_index> *uses)
{
    return analysis(program, uses).run(name);
}
