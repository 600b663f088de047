// kst check: all faults of programs, none of which runs.

#include "workshop/check.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "frontend/groups.h"
#include "frontend/words.h"
#include "workshop/program.h"
#include "workshop/verbs.h"

namespace {

// -- Functions that nothing calls --------------------------------------------------------------

class call_finder {
public:
    explicit call_finder(const tree &t) : tree_(t) { walk(t.root); }
    std::vector<fault> never_called() const;

private:
    void walk(node_index n);

    const tree &tree_;
    std::vector<node_index> definitions_; // their names
    std::vector<name_id> inside_;         // functions around the walk
    std::set<name_id> called_;            // from outside themselves
    bool has_more_ = false;               // than definitions
};

void call_finder::walk(node_index n)
{
    const node &form = tree_.nodes[n];
    node_index first = form.first;
    const bool defines = is_definition(form);
    if (defines) {
        definitions_.push_back(first);
        inside_.push_back(tree_.nodes[first].name);
        first = tree_.nodes[first].next;
    } else if (word_of(form.name) == nullptr &&
               std::find(inside_.begin(), inside_.end(), form.name) == inside_.end())
        called_.insert(form.name);
    for (node_index i = first; i != NO_NODE; i = tree_.nodes[i].next) {
        if (inside_.empty() && n == tree_.root && !is_definition(tree_.nodes[i])) has_more_ = true;
        if (tree_.nodes[i].letter == 'U') walk(i);
    }
    if (defines) inside_.pop_back();
}

// A file of nothing but definitions is a set of functions for others.
std::vector<fault> call_finder::never_called() const
{
    std::vector<fault> faults;
    for (const node_index n : definitions_) {
        const node &name = tree_.nodes[n];
        if (has_more_ && called_.count(name.name) == 0)
            faults.push_back({tree_.place_of(name),
                              "`" + std::string(names().text(name.name)) + "' is never called",
                              true});
    }
    return faults;
}

} // namespace

std::vector<fault> check_source(const source &from)
{
    known_functions known;
    program p;
    if (!check_program(from, &p, &known.table)) return p.faults;
    std::vector<fault> warnings = call_finder(p.parsed).never_called();
    const std::vector<fault> unset = find_unset(std::move(p));
    warnings.insert(warnings.end(), unset.begin(), unset.end());
    sort_by_place(&warnings);
    return warnings;
}

// -- The verb ----------------------------------------------------------------------------------

namespace {

void add_json(nlohmann::ordered_json *list, const source &from, const std::vector<fault> &faults)
{
    for (const fault &one : faults)
        list->push_back({{"file", from.name},
                         {"line", one.at.line},
                         {"column", one.at.column},
                         {"severity", one.is_warning ? "warning" : "error"},
                         {"text", one.text}});
}

// The faults of all files go to `tell`; the worst status is the command's.
int check_all(const request &asked, const fault_teller &tell)
{
    int status = load_functions("kst check", asked.value("--cfg"), tell);
    if (status != STATUS_GOOD) return status;
    for (const CHR *path : asked.operands) {
        source from;
        std::string why;
        if (!read_source(path, &from, &why)) {
            status = refused("kst check", why);
            continue;
        }
        const std::vector<fault> faults = check_source(from);
        tell(from, faults);
        if (!faults.empty()) status = std::max<int>(status, STATUS_FAULT);
    }
    return status;
}

int run_check(const request &asked)
{
    using nlohmann::ordered_json;
    if (!asked.has("--json"))
        return check_all(asked, [](const source &from, const std::vector<fault> &faults) {
            print_faults(stdout, from, faults);
        });
    ordered_json list = ordered_json::array();
    const int status = check_all(asked, [&](const source &from, const std::vector<fault> &faults) {
        add_json(&list, from, faults);
    });
    puts(list.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
    return status;
}

constexpr option options[] = {
    PROFILE_OPTION,
    {"--json", "", "an array of objects instead of lines"},
};

} // namespace

const verb check_verb = {
    .name = "check",
    .operands = "FILE ...",
    .help = "tells all faults of programs and runs none; FILE - is the standard input",
    .options = options,
    .run = run_check,
    .least = 1,
};
