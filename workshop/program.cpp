// From a file to a checked tree: the engine's reader and checker, which tell all faults with their
// places here.

#include "workshop/program.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

#include "driver/start.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/isa.h"
#include "frontend/reader.h"
#include "strings/tokens.h"
#include "vm/engine.h"
#include "vm/machine.h"
#include "workshop/balance.h"

namespace {

// What a syntax error says beside its place: neither the function that it stands in, nor the text
// of the form.
std::string short_text(const syntax_fault &found)
{
    constexpr std::string_view head = "In function `{}': ", tail = ": {}";
    std::string_view text = syntax_rows[static_cast<int>(found.id)].text;
    ULO part = 0;
    if (text.starts_with(head)) {
        text.remove_prefix(head.size());
        part++;
    }
    if (text.ends_with(tail)) text.remove_suffix(tail.size());
    std::string filled;
    for (; part < found.parts.size(); part++) {
        const auto place = text.find("{}");
        if (place == text.npos) break;
        filled.append(text.substr(0, place)).append(found.parts[part]);
        text.remove_prefix(place + 2);
    }
    return filled.append(text);
}

// The quote that opens the string in which a line ends.
ULO column_of_open_quote(std::string_view line)
{
    ULO open = 0;
    bool in_string = false;
    for (ULO i = 0; i < line.size(); i++) {
        if (line[i] == '"') {
            in_string = !in_string;
            open = i + 1;
        } else if (in_string)
            i += line[i] == '\\';
        else if (line[i] == '#')
            break;
    }
    return open;
}

bool find_faults_of_text(const source &from, program *into, std::string *joined)
{
    const ULO refused = join_lines(joined, from.text, false, &into->parsed.file);
    if (refused != 0)
        into->faults.push_back({{refused, column_of_open_quote(from.line(refused))},
                                "`\"' opens a string that its line does not close"});
    else
        into->faults = find_unbalanced(from.text);
    if (into->faults.empty() && left_trimmed(*joined).empty())
        into->faults.push_back({{0, 0}, "there is no code in it"});
    return !into->faults.empty();
}

} // namespace

bool read_source(const CHR *path, source *into, std::string *why)
{
    const bool is_input = !strcmp(path, "-");
    raw_file file = read_raw(is_input ? "/dev/stdin" : path);
    into->name = is_input ? "standard input" : path;
    into->text = std::move(file.contents);
    if (file.failed_call == nullptr) return true;
    *why =
        "can't " + std::string(file.failed_call) + " `" + into->name + "': " + strerror(file.error);
    return false;
}

bool check_program(const source &from, program *into)
{
    std::string joined;
    if (find_faults_of_text(from, into, &joined)) return false;
    std::vector<syntax_fault> found;
    tree *t = &into->parsed;
    const SLO wrapper = -static_cast<SLO>(mnemonic(ISA_PROGN).size() + 2);
    const SLO wanted = kestrin_check(t, &t->root, wrapped(std::move(joined)), wrapper, "Main",
                                     &the_engine.func_lut, &found);
    for (const syntax_fault &one : found)
        into->faults.push_back({t->place_of(t->nodes[one.node]), short_text(one)});
    if (wanted < 0 && found.empty()) // what is said of no node
        into->faults.push_back({{0, 0}, rt_ctrl->rt_run_text});
    into->arguments = wanted < 0 ? 0 : static_cast<ULO>(wanted);
    std::stable_sort(into->faults.begin(), into->faults.end(),
                     [](const fault &a, const fault &b) { return a.at.line < b.at.line; });
    return into->faults.empty();
}

session &start_workshop()
{
    static session only = {};
    static bool is_started = false;
    static CHR name[] = "kst", *argv[] = {name, nullptr};
    if (is_started) return only;
    is_started = true;
    only.argv = argv;
    only.argc = 0; // no name that a profile would be looked for by
    start_engine(&only);
    start_language(&only);
    return only;
}
