// Fills in the templates of what editors and shells are told of the language: words from the
// instruction table, verbs and options from the tables of kst and kestrin.
//
//   fill_template TEMPLATE FILE
//
// "@name@" in a template stands for a value, "@name:style@" for a value written in that style, see
// `styles`. A line with "@verb@" is there once for each verb of kst, one with "@option@" for each
// option of each verb, one with "@switch@" for each option of kestrin.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "driver/options.h"
#include "editors/word_class.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "workshop/limits.h"
#include "workshop/program.h"
#include "workshop/verb.h"

namespace {

using values = std::map<std::string, std::string, std::less<>>;

[[noreturn]] void fail(const std::string &why)
{
    fprintf(stderr, "fill_template: %s\n", why.c_str());
    exit(1);
}

// -- Styles ------------------------------------------------------------------------------------

// The bytes of `marked` with a mark ahead.
std::string escaped(std::string_view text, std::string_view marked, std::string_view mark)
{
    std::string out;
    for (const CHR c : text) {
        if (marked.find(c) != marked.npos) out.append(mark);
        out += c;
    }
    return out;
}

template <class write>
std::string each_word(std::string_view text, std::string_view between, write written)
{
    std::string out, word;
    std::istringstream words{std::string(text)};
    while (words >> word) out.append(out.empty() ? "" : between).append(written(word));
    return out;
}

// Words as strings of Lisp.
std::string lisp(std::string_view text)
{
    return each_word(text, " ",
                     [](const std::string &w) { return '"' + escaped(w, "\\\"", "\\") + '"'; });
}

// Words as alternatives of a regular expression within a string of JSON.
std::string regex(std::string_view text)
{
    return each_word(text, "|",
                     [](const std::string &w) { return escaped(w, ".*+?^$|()[]{}/\\", "\\\\"); });
}

// Words as alternatives of a pattern of vim, in single quotes.
std::string vim(std::string_view text)
{
    return each_word(text, "\\|",
                     [](const std::string &w) { return escaped(w, ".*^$~[]/\\", "\\"); });
}

// Between single quotes of a shell; in zsh, within the description of an option.
std::string shell(std::string_view text) { return escaped(text, "'", "'\\'"); }
std::string zsh(std::string_view text) { return shell(escaped(text, "[]:\\", "\\")); }
std::string fish(std::string_view text) { return escaped(text, "'\\", "\\"); }

// An option as the complete command of fish takes it.
std::string fish_option(std::string_view word)
{
    if (word.starts_with("--")) return "-l " + std::string(word.substr(2));
    return (word.size() == 2 ? "-s " : "-o ") + std::string(word.substr(1));
}

constexpr struct {
    std::string_view name;
    std::string (*written)(std::string_view text);
} styles[] = {
    {"lisp", lisp}, {"regex", regex},        {"vim", vim}, {"shell", shell}, {"zsh", zsh},
    {"fish", fish}, {"option", fish_option},
};

std::string in_style(const std::string &value, std::string_view style)
{
    for (const auto &s : styles)
        if (s.name == style) return s.written(value);
    fail("no such style: " + std::string(style));
}

// -- Values ------------------------------------------------------------------------------------

void append_word(std::string *list, std::string_view word)
{
    list->append(list->empty() ? "" : " ").append(word);
}

// The words of each class, in the order of the table; all that begin with a letter.
void add_words(values *known)
{
    for (const word_class &c : word_classes) (*known)[std::string(c.name)];
    for (ULO i = 0; i < isa_count; i++) {
        scratch word;
        lower(&word.s, *isa_table[i].mnemonic);
        const std::string_view text = view(word.s);
        const std::string_view name = class_of_word(text, groups_of(isa_table[i]));
        append_word(&(*known)[std::string(name)], text);
        if (name != "operator") append_word(&(*known)["names"], text);
    }
}

// What an operand or the argument of an option is, as far as a shell can complete it: by the first
// of its names in usage.
std::string kind_of(std::string_view operand)
{
    constexpr std::pair<std::string_view, const CHR *> kinds[] = {
        {"FILE", "files"}, {"PATH", "files"},    {"PROGRAM", "files"},
        {"NAME", "names"}, {"LIMITS", "limits"},
    };
    operand.remove_prefix(operand.starts_with('[') ? 1 : 0);
    const std::string_view name = operand.substr(0, operand.find_first_of(" ]"));
    for (const auto &[known, kind] : kinds)
        if (name == known) return kind;
    return "nothing";
}

// Options with an argument are told by its kind.
values values_of(const verb &v)
{
    values known = {{"verb", std::string(v.name)},
                    {"verb.help", std::string(v.help)},
                    {"verb.operands", kind_of(v.operands)},
                    {"verb.options", "--help"},
                    {"verb.files", ""},
                    {"verb.limits", ""},
                    {"verb.nothing", ""},
                    {"verb.passes", v.passes_words ? "words" : ""},
                    {"verb.first", std::string(v.first_operand)}};
    for (const option &o : v.options) {
        append_word(&known["verb.options"], o.name);
        if (!o.value.empty()) append_word(&known["verb." + kind_of(o.value)], o.name);
    }
    return known;
}

values values_of(const verb &v, const option &o)
{
    return {{"verb", std::string(v.name)},
            {"option", std::string(o.name)},
            {"option.help", std::string(o.help)},
            {"option.kind", o.value.empty() ? "none" : kind_of(o.value)},
            {"option.ends", o.name == v.first_operand ? "(-)" : ""}};
}

struct tables {
    values everywhere;
    std::vector<values> verbs, options, switches;
};

tables read_tables()
{
    tables all;
    all.everywhere["version"] = KST_VERSION;
    add_words(&all.everywhere);
    for (const std::string_view name : limit_names())
        append_word(&all.everywhere["limits"], std::string(name) + "=");
    for (const verb *v : verbs()) {
        append_word(&all.everywhere["kst.verbs"], v->name);
        all.verbs.push_back(values_of(*v));
        for (const option &o : v->options) all.options.push_back(values_of(*v, o));
    }
    for (const CHR *word : option_words()) {
        append_word(&all.everywhere["kestrin.options"], word);
        all.switches.push_back({{"switch", word}});
    }
    return all;
}

// -- Templates ---------------------------------------------------------------------------------

bool may_be_in_name(CHR c) { return (c >= 'a' && c <= 'z') || c == '.' || c == ':' || c == '_'; }

// The name behind a '@', up to the next one; empty if there is none.
std::string_view name_at(std::string_view behind)
{
    ULO size = 0;
    while (size < behind.size() && may_be_in_name(behind[size])) size++;
    return size < behind.size() && behind[size] == '@' ? behind.substr(0, size) : "";
}

// Values of the row come ahead of those that are known everywhere.
const std::string &value_of(std::string_view name, const tables &all, const values &row)
{
    for (const values *known : {&row, &all.everywhere})
        if (const auto found = known->find(name); found != known->end()) return found->second;
    fail("no such value: " + std::string(name));
}

std::string filled(std::string_view line, const tables &all, const values &row)
{
    std::string out;
    for (ULO at = 0; at < line.size(); at++) {
        const std::string_view name = line[at] == '@' ? name_at(line.substr(at + 1)) : "";
        if (name.empty()) {
            out += line[at];
            continue;
        }
        const auto colon = name.find(':');
        const std::string &value = value_of(name.substr(0, colon), all, row);
        out += colon == name.npos ? value : in_style(value, name.substr(colon + 1));
        at += name.size() + 1;
    }
    return out + "\n";
}

std::string filled_line(const std::string &line, const tables &all)
{
    const std::pair<const CHR *, const std::vector<values> *> kinds[] = {
        {"@option", &all.options}, {"@switch", &all.switches}, {"@verb", &all.verbs}};
    for (const auto &[mark, rows] : kinds) {
        if (line.find(mark) == line.npos) continue;
        std::string out;
        for (const values &row : *rows) out += filled(line, all, row);
        return out;
    }
    return filled(line, all, {});
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) fail("wants TEMPLATE and FILE");
    start_workshop();
    const tables all = read_tables();
    std::ifstream from(argv[1]);
    std::string line, text;
    while (std::getline(from, line)) text += filled_line(line, all);
    if (!from.eof() || text.empty()) fail(std::string("can't read ") + argv[1]);
    std::ofstream to(argv[2]);
    if (!(to << text).flush()) fail(std::string("can't write ") + argv[2]);
}
