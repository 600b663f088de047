// From a file to a checked tree: the engine's reader and checker, which tell all faults with their
// places here.

#include "workshop/program.h"

#include <algorithm>
#include <cstring>

#include "driver/precompiled.h"
#include "driver/prepare.h"
#include "driver/profile.h"
#include "driver/session.h"
#include "driver/start.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/groups.h"
#include "frontend/isa.h"
#include "frontend/reader.h"
#include "frontend/self_check.h"
#include "frontend/token.h"
#include "frontend/uninit.h"
#include "frontend/words.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/engine.h"
#include "vm/machine.h"
#include "workshop/balance.h"
#include "workshop/outline.h"
#include "workshop/verb.h"

namespace {

// What a syntax error says beside its place: neither the function that it stands in, nor the text
// of the form.
std::string short_text(const syntax_fault &found)
{
    constexpr ULO MOST_SHOWN = 80; // of a word, which may be a whole form that was not closed
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
        filled.append(text.substr(0, place)).append(shortened(found.parts[part], MOST_SHOWN));
        text.remove_prefix(place + 2);
    }
    return filled.append(text);
}

// Stored programs and executables, packed ones too, by how they begin.
std::vector<fault> faults_of_kind(std::string_view text)
{
    if (is_precompiled(text)) return {{{0, 0}, "is a stored program, not a source"}};
    if (text.starts_with("\x7f"
                         "ELF"))
        return {{{0, 0}, "is an executable, not a source"}};
    return {};
}

// What is found in other data is of no use.
void settle_kind(const source &from, std::vector<fault> *faults)
{
    if (!faults->empty() && !is_text(from.text)) *faults = {NOT_A_TEXT};
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

// The faults of lines that end in a string.
std::vector<fault> find_open_strings(const source &from)
{
    std::vector<fault> faults;
    std::string joined;
    std::string_view rest = from.text;
    for (ULO line = 0;;) {
        joined.clear();
        const ULO refused = join_lines(&joined, rest, false);
        if (refused == 0) return faults;
        line += refused;
        for (ULO i = 1; i < refused; i++) rest.remove_prefix(rest.find('\n') + 1);
        const auto end = std::min(rest.find('\n'), rest.size());
        faults.push_back({{line, column_of_open_quote(rest.substr(0, end))},
                          "`\"' opens a string that its line does not close"});
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

// Parses and checks a text in balance.
void check_text(const std::string &text, program *into, lut **table)
{
    tree *t = &into->parsed;
    std::string joined;
    join_lines(&joined, text, false, &t->file);
    if (left_trimmed(joined).empty())
        return into->faults.push_back({{0, 0}, "there is no code in it"});
    std::vector<syntax_fault> found;
    const SLO wrapper = -static_cast<SLO>(mnemonic(ISA_PROGN).size() + 2);
    const SLO wanted =
        kestrin_check(t, &t->root, wrapped(std::move(joined)), wrapper, "Main", table, &found);
    into->faults = faults_of(found, *t);
    if (wanted < 0 && found.empty()) // what is said of no node
        into->faults.push_back({{0, 0}, rt_ctrl->rt_run_text});
    into->arguments = wanted < 0 ? 0 : static_cast<ULO>(wanted);
}

// How much is wrong with a text in balance.
ULO count_faults(const std::string &text)
{
    known_functions known;
    program p;
    check_text(text, &p, &known.table);
    const ULO faults = p.faults.size();
    return faults == 0 ? find_unset(std::move(p)).size() : faults;
}

// Brings a text into balance, if that can be, and checks it.
void check_in_balance(const source &from, program *into, lut **table)
{
    std::vector<fault> faults;
    mended_text mended = {from.text, {}, {}};
    if (mend_balance(&mended, &faults, count_faults)) {
        check_text(mended.text, into, table);
        sort_by_place(&into->faults);
        for (fault &found : into->faults) found.at = mended.in_file(found.at);
        // How many arguments such a form has nobody knows.
        std::erase_if(into->faults, [&](const fault &found) {
            return std::any_of(mended.closed.begin(), mended.closed.end(), [&](file_place at) {
                return at.line == found.at.line && at.column == found.at.column;
            });
        });
    }
    into->faults.insert(into->faults.begin(), faults.begin(), faults.end());
}

} // namespace

std::vector<fault> faults_of(const std::vector<syntax_fault> &found, const tree &t)
{
    std::vector<fault> faults;
    faults.reserve(found.size());
    for (const syntax_fault &one : found)
        faults.push_back({t.place_of(t.nodes[one.node]), short_text(one)});
    return faults;
}

bool is_definition(const node &n)
{
    return n.letter == 'U' && (groups_of(word_of(n.name)) & in(GROUP_DEFUN));
}

bool read_source(const CHR *path, source *into, std::string *why)
{
    const bool is_input = is_standard_stream(path);
    raw_file file = read_raw(is_input ? "/dev/stdin" : path);
    into->name = is_input ? "standard input" : path;
    into->text = std::move(file.contents);
    if (file.failed_call == nullptr) return true;
    *why =
        "can't " + std::string(file.failed_call) + " `" + into->name + "': " + strerror(file.error);
    return false;
}

bool is_text(std::string_view file)
{
    constexpr ULO HEAD = 512;
    return file.substr(0, HEAD).find('\0') == file.npos;
}

known_functions::known_functions()
{
    if (the_engine.func_lut == nullptr) check_instruction_tables(&the_engine.func_lut);
    table = lut_make_view(the_engine.func_lut);
    table->lut_scope++;
}

known_functions::~known_functions() { lut_free_view(&table); }

std::vector<fault> faults_of_balance(const source &from)
{
    std::vector<fault> faults = faults_of_kind(from.text);
    if (!faults.empty()) return faults;
    faults = find_open_strings(from);
    mended_text mended = {from.text, {}, {}};
    if (faults.empty()) mend_balance(&mended, &faults, count_faults);
    settle_kind(from, &faults);
    return faults;
}

// Remarks may stand ahead of the form's word.
bool defines_function(const outline &pieces, piece_index form)
{
    piece_index word = pieces[form].first;
    while (word != NO_PIECE && !pieces[word].is_code()) word = pieces[word].next;
    std::string folded;
    if (word != NO_PIECE) append_folded(&folded, pieces[word].text);
    return (word_groups(folded) & in(GROUP_DEFUN)) != 0;
}

// A profile holds definitions and nothing else.
std::vector<fault> faults_of_profile(const source &from)
{
    std::vector<fault> faults = faults_of_balance(from);
    if (!faults.empty()) return faults;
    const outline pieces = outline_of(from.text);
    bool has_code = false;
    for (piece_index n = pieces[0].first; n != NO_PIECE; n = pieces[n].next) {
        if (!pieces[n].is_code()) continue;
        has_code = true;
        if (!defines_function(pieces, n))
            faults.push_back({pieces[n].begin, "a profile holds definitions and nothing else"});
    }
    known_functions known;
    program p;
    if (has_code && faults.empty() && !check_program(from, &p, &known.table)) return p.faults;
    return faults;
}

bool check_program(const source &from, program *into, lut **table)
{
    into->faults = faults_of_kind(from.text);
    if (!into->faults.empty()) return false;
    into->faults = find_open_strings(from);
    if (into->faults.empty()) check_in_balance(from, into, table);
    settle_kind(from, &into->faults);
    return into->faults.empty();
}

std::vector<fault> find_unset(program checked)
{
    session &s = start_workshop();
    s.program = std::move(checked.parsed);
    bind_terminal(&s);
    const tree &t = s.program;
    std::vector<node_index> uses;
    std::vector<fault> faults;
    kst_uninit_check("Main", t, &uses);
    faults.reserve(uses.size());
    for (const node_index n : uses)
        faults.push_back({t.place_of(t.nodes[n]),
                          "`" + std::string(names().text(t.nodes[n].name)) +
                              "' may be read before it has a value",
                          true});
    return faults;
}

int load_functions(std::string_view command, const CHR *profile, const fault_teller &tell)
{
    session *s = &start_workshop();
    if (profile != nullptr) assign(&s->cfg_profile_path, profile);
    if (s->cfg_profile_path == nullptr) return STATUS_GOOD;
    source from;
    std::string why;
    if (!read_source(s->cfg_profile_path, &from, &why))
        return profile == nullptr ? STATUS_GOOD : refused(command, why);
    const std::vector<fault> faults = faults_of_profile(from);
    if (faults.empty())
        load_profile(s);
    else
        tell(from, faults);
    return faults.empty() ? STATUS_GOOD : STATUS_FAULT;
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
