// A watched form becomes (PROGN (SETQ name FORM) (FILE_WRITE descriptor "number type size:text")
// name).

#include "workshop/watch.h"

#include <charconv>

#include "frontend/words.h"

namespace {

class watcher {
public:
    watcher(tree *checked, int descriptor) : tree_(*checked), descriptor_(descriptor)
    {
        while (names().find(name_) != NO_NAME) name_ += "_";
    }

    // Watches the argument behind `ahead`, or the first of `form`.
    void watch(node_index form, node_index ahead, ULO number)
    {
        const node_index watched = next(form, ahead);
        const node &n = tree_.nodes[watched];
        const group_set groups = groups_of(word_of(n.name));
        if (groups & in(GROUP_DEFUN)) return;
        if ((groups & in(GROUP_PROGN)) && n.first != NO_NODE) return watch_last(watched, number);
        replace(form, ahead, number);
    }

private:
    tree &tree_;
    int descriptor_;
    std::string name_ = "KST_VALUE";

    node_index &next(node_index form, node_index ahead)
    {
        return ahead == NO_NODE ? tree_.nodes[form].first : tree_.nodes[ahead].next;
    }

    // A PROGN may define functions, which only PROGNs may: its last argument is its value.
    void watch_last(node_index form, ULO number)
    {
        node_index ahead = NO_NODE;
        while (tree_.nodes[next(form, ahead)].next != NO_NODE) ahead = next(form, ahead);
        watch(form, ahead, number);
    }

    std::string writing(ULO number) const
    {
        return "(FILE_WRITE " + std::to_string(descriptor_) + " (CAT \"" + std::to_string(number) +
               " \" (CAT (TYPE " + name_ + ") (CAT \" \" (CAT (LEN " + name_ + ") (CAT \":\" " +
               name_ + "))))))";
    }

    void replace(node_index form, node_index ahead, ULO number)
    {
        const node_index told = tree_.add_checked("(PROGN (SETQ " + name_ + " 0) " +
                                                  writing(number) + " " + name_ + ")");
        if (told == NO_NODE) return;
        const node_index target = tree_.nodes[tree_.nodes[told].first].first;
        const node_index watched = next(form, ahead);
        tree_.nodes[told].next = tree_.nodes[watched].next;
        tree_.nodes[watched].next = NO_NODE;
        tree_.nodes[target].next = watched;
        next(form, ahead) = told;
    }
};

} // namespace

void watch_forms(tree *checked, const std::vector<file_place> &places, int descriptor)
{
    watcher w(checked, descriptor);
    const node_index root = checked->root;
    node_index ahead = NO_NODE;
    for (node_index n = checked->nodes[root].first; n != NO_NODE; n = checked->nodes[ahead].next) {
        const file_place at = checked->place_of(checked->nodes[n]);
        for (ULO i = 0; i < places.size(); i++)
            if (places[i].line == at.line && places[i].column == at.column)
                w.watch(root, ahead, i + 1);
        ahead = ahead == NO_NODE ? checked->nodes[root].first : checked->nodes[ahead].next;
    }
}

std::vector<form_value> values_of(std::string_view written)
{
    std::vector<form_value> values;
    for (;;) {
        form_value value = {0, 0, ""};
        ULO size = 0;
        const CHR *const end = written.data() + written.size();
        const CHR *at = std::from_chars(written.data(), end, value.number).ptr;
        if (end - at < 3) return values;
        value.type = at[1];
        at = std::from_chars(at + 3, end, size).ptr;
        if (at == end || static_cast<ULO>(end - at) < size + 1) return values;
        value.text.assign(at + 1, size);
        values.push_back(std::move(value));
        written = {at + 1 + size, static_cast<ULO>(end - at) - 1 - size};
    }
}
