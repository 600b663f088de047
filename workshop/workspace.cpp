// An entry is a program of its own, compiled without the type pass, so that each variable is one
// slot. It runs on a frame that gets its values from the session and hands them back. The functions
// are a global function set, built anew from their texts when one comes.

#include "workshop/workspace.h"

#include <algorithm>
#include <utility>

#include "bytecode/link.h"
#include "driver/code.h"
#include "driver/listing.h"
#include "driver/prepare.h"
#include "driver/profile.h"
#include "driver/session.h"
#include "frontend/check.h"
#include "frontend/forms.h"
#include "frontend/justify.h"
#include "frontend/lut.h"
#include "frontend/reader.h"
#include "frontend/self_check.h"
#include "frontend/squeeze.h"
#include "frontend/token.h"
#include "frontend/varlist.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "mapcar/mapcar.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/engine.h"
#include "vm/machine.h"
#include "vm/stack.h"
#include "vm/trail.h"
#include "workshop/interrupt.h"
#include "workshop/program.h"
#include "workshop/run_error.h"

namespace {

// A session gives a recursion up earlier than a program: what it has touched of the stack stays
// taken.
constexpr ULO STACK_OF_SESSION = ULO(256) << 20;

session &the_session() { return start_workshop(); }

// -- Texts -------------------------------------------------------------------------------------

bool is_in_group(std::string_view word, group g)
{
    std::string folded;
    append_folded(&folded, word);
    return (word_groups(folded) & in(g)) != 0;
}

bool has_code(const std::string &text)
{
    std::string joined;
    return join_lines(&joined, text, false) != 0 || !left_trimmed(joined).empty();
}

// The text as so many empty lines.
std::string emptied(const std::string &text)
{
    return std::string(static_cast<ULO>(std::count(text.begin(), text.end(), '\n')), '\n');
}

// The form of a source text that opens at byte `from`, comments included.
std::string_view form_at(std::string_view text, ULO from)
{
    ULO depth = 0, i = from;
    bool in_string = false, in_comment = false;
    for (; i < text.size(); i++) {
        const CHR c = text[i];
        if (in_comment)
            in_comment = c != '\n';
        else if (c == '"')
            in_string = !in_string;
        else if (in_string)
            i += c == '\\';
        else if (c == '#')
            in_comment = true;
        else if (c == '(')
            depth++;
        else if (c == ')' && --depth == 0)
            break;
    }
    return text.substr(from, i + 1 - from);
}

ULO byte_of(const source &from, file_place at)
{
    return static_cast<ULO>(from.lines()[at.line - 1].data() - from.text.data()) + at.column - 1;
}

// The names that the forms of a text define.
std::vector<std::string> names_defined_in(const std::string &text)
{
    std::vector<std::string> names;
    std::string joined;
    if (join_lines(&joined, text, false) != 0) return names;
    for (std::string_view rest = left_trimmed(joined); !rest.empty();) {
        const std::string_view form = first_token(rest);
        if (form.empty()) break;
        if (is_list(form) && is_in_group(first_token(inside(form)), GROUP_DEFUN)) {
            names.emplace_back();
            append_folded(&names.back(), first_token(behind_first_token(inside(form))));
        }
        rest = behind_first_token(rest);
    }
    return names;
}

// -- Trees -------------------------------------------------------------------------------------

bool is_progn(const tree &t)
{
    return (groups_of(word_of(t.nodes[t.root].name)) & in(GROUP_PROGN)) != 0;
}

// Makes a checked program one form to be run.
void squeeze(tree *t)
{
    if (!is_one_form(*t)) wrap(t);
    progn_squeeze(t);
    if (!is_executable_form(*t)) wrap(t);
}

bool defines_only(const tree &t)
{
    if (!is_progn(t)) return false;
    for (node_index i = t.nodes[t.root].first; i != NO_NODE; i = t.nodes[i].next)
        if (!is_definition(t.nodes[i])) return false;
    return true;
}

void forget_error()
{
    rt_ctrl->rt_noterror = 1;
    rt_ctrl->rt_error_code = 0;
    rt_ctrl->rt_run_flag = 0;
    equ(&rt_ctrl->rt_run_text, nullptr);
}

// No function is known any more.
void forget_set()
{
    session &s = the_session();
    forget_functions_of_mapcar();
    lut_free(&the_engine.func_lut);
    check_instruction_tables(&the_engine.func_lut);
    s.set.clear();
    s.set.file.clear();
}

} // namespace

// -- Entries -----------------------------------------------------------------------------------

workspace::workspace(std::string name)
{
    static std::vector<code_place> set_places, program_places;
    session &s = the_session();
    s.set_places = &set_places;
    s.program_places = &program_places;
    entered_.name = std::move(name);
    rt_ctrl->rt_recursion = recursion::IS_ERROR;
    stack_floor = std::max(stack_floor, stack_pointer() - STACK_OF_SESSION);
    build({});
    s.program.read("0", CHECKED);
    bind_terminal(&s);
    squeeze(&s.program);
    run({});
}

workspace::~workspace()
{
    for (auto &[name, value] : variables_) free_kst_data(&value);
    free_kst_data(&value_);
}

source workspace::source_of(const std::string &text) const
{
    const auto lines = std::count(entered_.text.begin(), entered_.text.end(), '\n');
    return {entered_.name, text, static_cast<ULO>(lines) + 1};
}

// The functions but those that the text replaces.
void workspace::leave_out_defined(const std::string &text, lut *table) const
{
    const std::vector<std::string> defined = names_defined_in(text);
    const auto is_replaced = [&](const lut_entry *e) {
        const auto is_it = [&](const function &f) { return f.name == view(e->key); };
        return std::find(defined.begin(), defined.end(), view(e->key)) != defined.end() &&
               std::any_of(functions_.begin(), functions_.end(), is_it);
    };
    lut_entry **end = table->lut_entries + table->lut_count;
    lut_entry **kept = std::remove_if(table->lut_entries, end, is_replaced);
    table->lut_count -= static_cast<ULO>(end - kept);
}

bool workspace::find_faults(const source &entry, program *into) const
{
    known_functions known;
    leave_out_defined(entry.text, known.table);
    if (check_program(entry, into, &known.table) && into->arguments > 0)
        into->faults.push_back(
            {{0, 0}, "`$1' and its kind are the words of a program: there are none"});
    forget_error();
    return !into->faults.empty();
}

// Faults are told by their lines among all lines, in their own words too.
bool workspace::check(const source &entry, program *into) const
{
    if (!find_faults(entry, into)) return squeeze(&into->parsed), true;
    const source whole = {entry.name, std::string(entry.first_line - 1, '\n') + entry.text};
    *into = {};
    find_faults(whole, into);
    print_faults(stderr, whole, into->faults);
    return false;
}

void workspace::pass_over(const std::string &text) { entered_.text.append(emptied(text)); }

outcome workspace::enter(const std::string &text)
{
    if (!has_code(text)) return pass_over(text), outcome::NOTHING;
    fflush(stdout);
    const source entry = source_of(text);
    program p;
    if (!check(entry, &p)) return pass_over(text), outcome::REFUSED;
    const std::vector<function> fresh = definitions_of(p);
    const ULO before = entered_.text.size();
    entered_.text.append(fresh.empty() ? emptied(text) : text);
    if (!fresh.empty() && !take_definitions(fresh)) {
        entered_.text.resize(before);
        return pass_over(text), outcome::REFUSED;
    }
    if (defines_only(p.parsed)) return outcome::DEFINED;
    the_session().program = std::move(p.parsed);
    const outcome result = run(entry);
    if (result == outcome::VALUE) remember(text, fresh);
    return result;
}

// -- Functions ---------------------------------------------------------------------------------

std::vector<workspace::function> workspace::definitions_of(const program &checked) const
{
    std::vector<function> found;
    const tree &t = checked.parsed;
    const ULO lines = source_of("").first_line - 1;
    if (!is_progn(t)) return found;
    for (node_index i = t.nodes[t.root].first; i != NO_NODE; i = t.nodes[i].next) {
        if (!is_definition(t.nodes[i])) continue;
        file_place at = t.place_of(t.nodes[i]);
        at.line += lines;
        found.push_back({std::string(t.token_of(t.nodes[t.nodes[i].first])), at});
    }
    return found;
}

// False with faults told: as it does when a function that stays calls one in a way that fits its
// old definition only.
bool workspace::take_definitions(const std::vector<function> &fresh)
{
    std::vector<function> wanted = functions_;
    for (const function &f : fresh) {
        const auto old = std::find_if(wanted.begin(), wanted.end(),
                                      [&](const function &g) { return g.name == f.name; });
        if (old == wanted.end())
            wanted.push_back(f);
        else
            *old = f;
    }
    const std::vector<function> former = functions_;
    const std::vector<fault> faults = build(wanted);
    if (faults.empty()) return true;
    print_faults(stderr, entered_, faults);
    fputs("The functions stay as they were.\n", stderr);
    build(former);
    return false;
}

// Makes the functions the global ones, in an order in which each is defined ahead of its calls:
// the given one as far as it fits. Returns what is wrong with one of those that fit nowhere.
std::vector<fault> workspace::build(std::vector<function> wanted)
{
    session &s = the_session();
    forget_set();
    std::string joined;
    join_lines(&joined, entered_.text, false, &s.set.file);
    std::vector<node_index> definitions;
    functions_.clear();
    const auto check_one = [&](const function &f, std::vector<syntax_fault> *faults) {
        const ULO place = s.set.file.joined_at(f.at);
        node_index root = NO_NODE;
        const std::string form(first_token(std::string_view(joined).substr(place)));
        const SLO checked = kestrin_check(&s.set, &root, form, static_cast<SLO>(place), "UDFs_CFG",
                                          &the_engine.func_lut, faults);
        forget_error();
        if (checked >= 0) definitions.push_back(root), functions_.push_back(f);
        return checked >= 0;
    };
    for (ULO known = ~ULO(0); known != functions_.size() && !wanted.empty();) {
        known = functions_.size();
        std::erase_if(wanted, [&](const function &f) { return check_one(f, nullptr); });
    }
    if (!wanted.empty()) {
        std::vector<syntax_fault> found;
        check_one(wanted[0], &found);
        return faults_of(found, s.set);
    }
    make_global(&s, std::move(definitions));
    compile_global_functions(&s);
    kestrin_link(the_engine.global_udf_code);
    return {};
}

// -- Runs --------------------------------------------------------------------------------------

// The names of the program's slots.
std::vector<name_id> workspace::number_variables() const
{
    const tree &t = the_session().program;
    varlist numbers;
    numbers.build_varlist(t, t.root);
    std::vector<name_id> names = numbers.variables();
    numbers.leave();
    return names;
}

// Runs the session's program. No value is moved out of a variable: all of them live on.
outcome workspace::run(const source &entry)
{
    session &s = the_session();
    compile_program(&s);
    const UCH moves = std::exchange(the_engine.moves, UCH(0));
    kestrin_link(s.prog_text);
    the_engine.moves = moves;

    const std::vector<name_id> names = number_variables();
    std::vector<kestrin_data> frame;
    for (const name_id name : names) {
        const auto [variable, is_new] = variables_.try_emplace(name, fresh_variable);
        frame.push_back(std::exchange(variable->second, fresh_variable));
    }
    error_trail trail;
    rt_ctrl->rt_trail = &trail;
    free_kst_data(&value_);
    bool done = false, was_interrupted = false;
    {
        const interrupt_watch watch;
        done = kestrin_run_on(frame.data(), reinterpret_cast<const ULO *>(s.prog_text), &value_, 0);
        was_interrupted = watch.was_interrupted();
    }
    rt_ctrl->rt_trail = nullptr;
    for (ULO i = 0; i < names.size(); i++) variables_[names[i]] = frame[i];
    fflush(stdout);
    if (!done && !was_interrupted) print_runtime_error(stderr, s, entry, trail, entered_);
    forget_error();
    if (was_interrupted) return outcome::INTERRUPTED;
    return done ? outcome::VALUE : outcome::FAILED;
}

bool workspace::list_code(const std::string &text)
{
    session &s = the_session();
    std::string name;
    append_folded(&name, trimmed(text));
    const auto known = std::find_if(functions_.begin(), functions_.end(),
                                    [&](const function &f) { return f.name == name; });
    source listed = source_of(text);
    if (known != functions_.end()) listed = {"", text_of(*known) + "\n"};
    program p;
    if (!check(listed, &p)) return false;
    kestrin_justify(&p.parsed, the_engine.global_udf_types, nullptr);
    const listing_style style = style_of(s);
    kestrin_print_form(p.parsed.written(), style);
    scratch code;
    kestrin_compile(&p.parsed, 0, nullptr, &code.s);
    kestrin_printcode(code.s, style);
    return true;
}

// -- What there is -----------------------------------------------------------------------------

std::vector<std::string> workspace::functions() const
{
    std::vector<std::string> found;
    for (const function &f : functions_) found.push_back(f.name);
    return found;
}

std::vector<std::string> workspace::variables() const
{
    std::vector<std::string> found;
    for (const auto &[name, value] : variables_)
        if (value.type != 0 || !value.single) found.emplace_back(names().text(name));
    std::sort(found.begin(), found.end());
    return found;
}

std::string workspace::text_of(const function &f) const
{
    return std::string(form_at(entered_.text, byte_of(entered_, f.at)));
}

// The text without its definitions, which are kept elsewhere.
void workspace::remember(const std::string &text, const std::vector<function> &fresh)
{
    std::string kept = text;
    for (const function &f : fresh) {
        const std::string definition = text_of(f);
        if (const auto at = kept.find(definition); at != kept.npos)
            kept.erase(at, definition.size());
    }
    done_.push_back(std::move(kept));
}

std::string workspace::saved_text() const
{
    std::string text;
    for (const function &f : functions_) text.append(text_of(f)).append("\n\n");
    for (const std::string &done : done_) text.append(done);
    return text;
}
