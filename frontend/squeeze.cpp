// Squeezing: one walk, in which the arguments of a nested PROGN take its place in the outer one.
// Text behind the driver's bindings may be anything that a command-line word brought in; the walk
// comes to an end whatever it is.

#include "frontend/squeeze.h"

#include <string>

#include "frontend/words.h"
#include "strings/scratch.h"
#include "vm/stack.h"

FATAL_SITE(STACK_SQUEEZE, "kestrin", "progn_squeeze", 124)

namespace {

class squeezer {
public:
    explicit squeezer(tree *t) : tree_(*t), progn_(names().enter(mnemonic(ISA_PROGN))) {}
    ULO run()
    {
        tree_.root = squeeze(tree_.root);
        return count_;
    }

private:
    node &at(node_index n) { return tree_.nodes[n]; }
    group_set groups(node_index n) { return groups_of(word_of(at(n).name)); }
    bool opens(node_index n);
    node_index open(node_index progn);
    void squeeze_arguments(node_index form, bool opens_progn);
    node_index squeeze_definition(node_index form);
    node_index squeeze(node_index n);

    tree &tree_;
    name_id progn_;
    ULO count_ = 0;
};

// Whether a node is a PROGN to be opened. The language goes by how it begins as a text.
bool squeezer::opens(node_index n)
{
    if (at(n).letter != 'U') return false;
    if (tree_.settled) return at(n).name == progn_ && at(n).first != NO_NODE;
    const std::string prefix = std::string("(").append(mnemonic(ISA_PROGN)).append(" ");
    return tree_.text_of(at(n)).starts_with(prefix);
}

// Puts what stands behind a nested PROGN behind its arguments. Returns the first of the row.
node_index squeezer::open(node_index progn)
{
    count_++;
    node_index last = at(progn).first;
    if (last == NO_NODE) return at(progn).next;
    if (at(progn).next == NO_NODE) return last;
    while (at(last).next != NO_NODE) last = at(last).next;
    at(last).next = at(progn).next;
    return at(progn).first;
}

void squeezer::squeeze_arguments(node_index form, bool opens_progn)
{
    node_index before = NO_NODE, i = at(form).first;
    while (i != NO_NODE) {
        const bool is_opened = opens_progn && opens(i);
        const node_index behind = at(i).next;
        const bool is_done = is_opened && behind == NO_NODE && !at(i).may_be_squeezed;
        if (is_opened)
            i = open(i);
        else if (at(i).letter == 'U') {
            i = squeeze(i);
            at(i).next = behind;
        }
        (before == NO_NODE ? at(form).first : at(before).next) = i;
        if (is_done) return;
        if (is_opened) continue;
        before = i;
        i = behind;
    }
}

// All arguments but the last are the name, the last is the body. A body that has become a bare
// token or a definition gets its PROGN back.
node_index squeezer::squeeze_definition(node_index form)
{
    node_index before = NO_NODE, body = at(form).first;
    while (body != NO_NODE && at(body).next != NO_NODE) {
        if (at(body).letter == 'U') tree_.keep_as_it_stands(body);
        before = body;
        body = at(body).next;
    }
    body = squeeze(body);
    at(body).next = NO_NODE;
    if (at(body).letter != 'U' || (groups(body) & in(GROUP_DEFUN))) {
        body = tree_.add_form(ISA_PROGN, body);
        count_--;
    }
    (before == NO_NODE ? at(form).first : at(before).next) = body;
    at(form).name = names().enter(mnemonic(ISA_DEFUN));
    return form;
}

// Returns what stands in the form's place. What is no form is cut open as if it were one.
node_index squeezer::squeeze(node_index n)
{
    check_stack(site::STACK_SQUEEZE);
    if (n == NO_NODE || at(n).letter != 'U') n = tree_.opened(n, CHECKED);
    if (!at(n).may_be_squeezed) return n;
    if (groups(n) & in(GROUP_DEFUN)) return squeeze_definition(n);
    const bool is_progn = (groups(n) & in(GROUP_PROGN)) != 0;
    squeeze_arguments(n, is_progn);
    const node_index only = at(n).first;
    if (!is_progn || only == NO_NODE || at(only).next != NO_NODE) return n;
    count_++;
    return only;
}

} // namespace

ULO progn_squeeze(tree *t)
{
    const ULO count = squeezer(t).run();
    t->settle(CHECKED);
    return count;
}

ULO progn_squeeze(CHR **text)
{
    tree t;
    t.read(view(*text), OUTLINE);
    const ULO count = progn_squeeze(&t);
    assign(text, t.written());
    return count;
}
