// kst repl: entries are read until their parentheses close, run in a workspace that lives on, and
// answered by their values. Commands of the session begin with a colon.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "driver/run.h"
#include "frontend/reader.h"
#include "kestrin/strings.h"
#include "strings/tokens.h"
#include "workshop/completion.h"
#include "workshop/interrupt.h"
#include "workshop/line_reader.h"
#include "workshop/manual.h"
#include "workshop/verbs.h"
#include "workshop/workspace.h"

namespace {

struct prompt_session {
    explicit prompt_session(bool is_terminal, line_reader *from)
        : lines(*from), work(is_terminal ? "repl" : "standard input")
    {
    }
    line_reader &lines;
    workspace work;
    bool has_failed = false;
    bool is_over = false;
};

// -- Values ------------------------------------------------------------------------------------

std::string name_of_type(UCH letter)
{
    switch (letter) {
    case 'I': return "integer";
    case 'F': return "float";
    case 'S': return "string";
    case 'Z': return "nil";
    default: return "no value";
    }
}

std::string description_of(const kestrin_data &value)
{
    std::string text = name_of_type(value.type);
    if (value.type == 'S')
        text.append(" of ").append(std::to_string(len(value.svalue))).append(" bytes");
    if (value.single) return text;
    return "array of " + std::to_string(value.indices_numb) + " places, member 0: " + text;
}

// False if the entry has failed.
bool is_good(outcome of)
{
    if (of == outcome::INTERRUPTED) fputs("interrupted\n", stderr);
    return of != outcome::REFUSED && of != outcome::FAILED && of != outcome::INTERRUPTED;
}

bool enter(prompt_session *p, const std::string &text)
{
    const outcome of = p->work.enter(text);
    if (of == outcome::VALUE) print_value(p->work.value());
    return is_good(of);
}

// -- Commands ----------------------------------------------------------------------------------

// What a command gets ends with a newline. Each returns whether all is well.
struct command {
    std::string_view name, operand, help;
    bool (*run)(prompt_session *p, const std::string &text);
};
extern const command commands[8];

std::string word_of_text(const std::string &text) { return std::string(trimmed(text)); }

bool complain(const std::string &text)
{
    fflush(stdout);
    fprintf(stderr, "%s\n", text.c_str());
    return false;
}

void print_words(const char *title, const std::vector<std::string> &words)
{
    printf("%s", title);
    for (const std::string &word : words) printf(" %s", word.c_str());
    putchar('\n');
}

bool tell_commands()
{
    for (const command &c : commands)
        printf("  %-16s %s\n",
               std::string(":").append(c.name).append(" ").append(c.operand).c_str(),
               std::string(c.help).c_str());
    puts("An entry may take several lines. Ctrl-C gives up an entry or ends a run, Ctrl-D leaves.");
    return true;
}

bool tell_help(prompt_session *, const std::string &text)
{
    const std::string name = word_of_text(text);
    if (name.empty()) return tell_commands();
    const std::string told = told_of(name);
    if (told.empty()) return complain("the manual has no `" + name + "'" + hint_for(name));
    fputs(told.c_str(), stdout);
    return true;
}

bool tell_type(prompt_session *p, const std::string &text)
{
    const outcome of = p->work.enter(text);
    if (of == outcome::VALUE) puts(description_of(*p->work.value()).c_str());
    return is_good(of);
}

bool tell_time(prompt_session *p, const std::string &text)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point start = clock::now();
    const outcome of = p->work.enter(text);
    const std::chrono::duration<double> taken = clock::now() - start;
    if (of == outcome::VALUE) print_value(p->work.value());
    if (of == outcome::VALUE) printf("%.6f s\n", taken.count());
    return is_good(of);
}

bool list_code(prompt_session *p, const std::string &text) { return p->work.list_code(text); }

bool tell_names(prompt_session *p, const std::string &)
{
    print_words("functions:", p->work.functions());
    print_words("variables:", p->work.variables());
    return true;
}

bool save(prompt_session *p, const std::string &text)
{
    const std::string path = word_of_text(text), program = p->work.saved_text();
    if (path.empty()) return complain(":save wants FILE");
    const bool is_shown = is_standard_stream(path);
    FILE *file = is_shown ? stdout : fopen(path.c_str(), "we");
    bool done = file != nullptr;
    if (done) done = fwrite(program.data(), 1, program.size(), file) == program.size();
    if (file != nullptr) done = (is_shown ? fflush : fclose)(file) == 0 && done;
    return done || complain("can't write `" + path + "': " + strerror(errno));
}

bool leave(prompt_session *p, const std::string &)
{
    p->is_over = true;
    return true;
}

constexpr command commands[8] = {
    {"help", "[NAME]", "what the manual says of a name; without one, this", tell_help},
    {"type", "FORM", "runs it and tells the type of its value", tell_type},
    {"time", "FORM", "runs it and tells how long that took", tell_time},
    {"code", "FORM", "its proved types and compiled code, without a run; or a function's",
     list_code},
    {"names", "", "the functions and variables that there are", tell_names},
    {"save", "FILE", "writes what was entered without a fault as a program", save},
    {"quit", "", "leaves, as (exit) does", leave},
    {"exit", "", "the same", leave},
};

bool obey(prompt_session *p, const std::string &entry)
{
    const std::string_view line = left_trimmed(entry).substr(1);
    const std::string_view word = first_word(line);
    for (const command &c : commands) {
        if (c.name != word) continue;
        // Blanks in place of the command: what follows keeps its column.
        std::string rest = entry;
        std::fill_n(rest.begin(), rest.find(word) + word.size(), ' ');
        return c.run(p, rest);
    }
    return complain("no such command: `:" + std::string(word) + "'; :help lists them");
}

// -- Entries -----------------------------------------------------------------------------------

// How many forms are open behind a line, of `depth` ahead of it. None are left by one that ends in
// a string or closes too many: nothing mends that.
ULO open_forms(ULO depth, const std::string &line)
{
    std::string joined;
    if (join_lines(&joined, line, false) != 0) return 0;
    for (ULO i = 0; i < joined.size(); i++) {
        if (joined[i] == '"')
            i = behind_quotes(joined, i) - 1;
        else if (joined[i] == '(')
            depth++;
        else if (joined[i] == ')' && depth-- == 0)
            return 0;
    }
    return depth;
}

// Lines up to the end of a form. False at the end of the input without one.
bool read_entry(prompt_session *p, std::string *entry)
{
    entry->clear();
    std::string line;
    ULO depth = 0;
    do {
        const line_end end = p->lines.read(&line, entry->empty() ? "kst> " : "...> ");
        if (end == line_end::INTERRUPTED) {
            p->work.pass_over(*entry);
            entry->clear();
            depth = 0;
        }
        if (end == line_end::INPUT_ENDS) return !entry->empty();
        entry->append(line);
        depth = open_forms(depth, line);
    } while (entry->empty() || depth > 0);
    return true;
}

// An entry of several lines is recalled as one.
std::string recalled(const std::string &entry)
{
    const std::string_view text = trimmed(entry);
    std::string joined;
    if (text.find('\n') == text.npos || join_lines(&joined, text, false) != 0)
        joined.assign(text.substr(0, text.find('\n')));
    return std::string(trimmed(joined));
}

bool leaves(const std::string &entry)
{
    const std::string word = lower_case(trimmed(entry));
    return word == "(exit)" || word == "exit" || word == "quit";
}

void answer(prompt_session *p, const std::string &entry)
{
    p->lines.remember(recalled(entry));
    const bool is_command = left_trimmed(entry).starts_with(":");
    if (leaves(entry))
        p->is_over = true;
    else if (!(is_command ? obey(p, entry) : enter(p, entry)))
        p->has_failed = true;
    fflush(stdout);
}

// -- Completion --------------------------------------------------------------------------------

std::vector<std::string> candidates(const prompt_session &p, bool of_commands)
{
    std::vector<std::string> all;
    if (of_commands) {
        for (const command &c : commands) all.push_back(":" + std::string(c.name));
        return all;
    }
    all = instruction_names();
    for (const std::string &name : p.work.functions()) all.push_back(name);
    for (const std::string &name : p.work.variables()) all.push_back(name);
    return all;
}

std::vector<std::string> completions(const prompt_session &p, const std::string &line)
{
    const std::string word = line.substr(begin_of_word(line));
    std::vector<std::string> found;
    for (const std::string &name : candidates(p, word.starts_with(":"))) {
        std::string shown = completed(word, name);
        if (!shown.empty()) found.push_back(std::move(shown));
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

int run_verb_on(const request &)
{
    prompt_session *open = nullptr;
    line_reader lines([&](const std::string &line) { return completions(*open, line); });
    prompt_session p(lines.is_terminal(), &lines);
    open = &p;
    note_interrupts();
    if (lines.is_terminal())
        puts("Kestrin " KST_VERSION ". Ctrl-D leaves, Tab completes, :help tells what there is.");
    for (std::string entry; !p.is_over && read_entry(&p, &entry);) answer(&p, entry);
    return p.has_failed && !lines.is_terminal() ? STATUS_FAULT : STATUS_GOOD;
}

} // namespace

const verb repl_verb = {
    .name = "repl",
    .operands = "",
    .help = "runs forms as they are entered; variables and functions live on",
    .options = {},
    .run = run_verb_on,
    .most = 0,
};
