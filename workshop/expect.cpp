#include "workshop/expect.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "strings/tokens.h"
#include "workshop/difference.h"
#include "workshop/outline.h"
#include "workshop/program.h"

namespace {

// -- escapes

struct escape {
    CHR letter, byte;
};
constexpr escape escapes[] = {{'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'\\', '\\'}};

int hex_digit(CHR c)
{
    if (c >= '0' && c <= '9') return c - '0';
    const CHR lower = static_cast<CHR>(c | 32);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte that an escape behind its backslash stands for, and how long it is; 0: it is none.
ULO resolve(std::string_view behind, CHR *byte)
{
    for (const escape &e : escapes)
        if (behind.starts_with(e.letter)) return *byte = e.byte, 1;
    if (behind.size() < 3 || behind[0] != 'x') return 0;
    const int high = hex_digit(behind[1]), low = hex_digit(behind[2]);
    *byte = static_cast<CHR>(high * 16 + low);
    return high < 0 || low < 0 ? 0 : 3;
}

// In a word a backslash takes their meaning from quotes and blanks too.
ULO resolve_in_word(std::string_view behind, CHR *byte)
{
    if (behind.empty() || std::string_view("\"' ").find(behind[0]) == behind.npos)
        return resolve(behind, byte);
    *byte = behind[0];
    return 1;
}

// A line without its newline if \c ends it.
std::string unescaped(std::string_view text, bool is_line)
{
    std::string plain;
    for (ULO i = 0; i < text.size(); i++) {
        CHR byte = text[i];
        if (byte == '\\' && is_line && text.substr(i) == "\\c") return plain;
        if (byte == '\\') i += resolve(text.substr(i + 1), &byte);
        plain += byte;
    }
    return is_line ? plain + "\n" : plain;
}

// What is read as these bytes again.
std::string escaped(std::string_view bytes)
{
    std::string text;
    for (const CHR &byte : bytes) {
        const auto *e = std::find_if(std::begin(escapes), std::end(escapes),
                                     [byte](const escape &known) { return known.byte == byte; });
        CHR hex[8];
        snprintf(hex, sizeof hex, "\\x%02X", unsigned(static_cast<UCH>(byte)));
        const bool is_plain = static_cast<UCH>(byte) >= ' ' && byte != 127;
        const bool is_lost = byte == ' ' && &byte == &bytes.back(); // comments lose it
        if (e != std::end(escapes))
            (text += '\\') += e->letter;
        else if (!is_plain || is_lost)
            text += hex;
        else
            text += byte;
    }
    return text;
}

std::string escaped_line(std::string_view line)
{
    if (!line.ends_with('\n')) return escaped(line) + "\\c";
    return escaped(line.substr(0, line.size() - 1));
}

// -- comments

struct word_of_comment {
    std::string_view word;
    said what;
};
constexpr word_of_comment comment_words[] = {
    {"expect:", said::OUTPUT},
    {"error:", said::ERROR},
    {"input:", said::INPUT},
    {"args:", said::WORDS},
};

// Adds what the comment says, if anything.
void add_comment(std::vector<expectation> *all, std::string_view text, std::string_view comment,
                 ULO line, const piece *behind)
{
    const std::string_view inner = left_trimmed(comment.substr(1));
    for (const word_of_comment &w : comment_words) {
        if (!inner.starts_with(w.word)) continue;
        std::string_view rest = inner.substr(w.word.size());
        if (rest.starts_with(' ')) rest.remove_prefix(1);
        const bool is_value = w.what == said::OUTPUT && behind != nullptr;
        const bool is_line = w.what == said::INPUT || (w.what == said::OUTPUT && !is_value);
        all->push_back(
            {.what = is_value ? said::VALUE : w.what,
             .from = static_cast<ULO>(comment.data() - text.data()),
             .size = comment.size(),
             .line = line,
             .text = w.what == said::WORDS ? std::string(rest) : unescaped(rest, is_line)});
        if (is_value) all->back().form = behind->begin;
    }
}

void add_of_pieces(std::vector<expectation> *all, std::string_view text, const outline &pieces)
{
    std::vector<const piece *> forms(pieces.size(), nullptr); // of the program, by their notes
    const piece *ahead = nullptr;
    for (piece_index n = pieces[0].first; n != NO_PIECE; n = pieces[n].next) {
        if (pieces[n].kind == piece_kind::NOTE && pieces[n].same_line) forms[n] = ahead;
        ahead = pieces[n].is_code() ? &pieces[n] : nullptr;
    }
    for (ULO n = 0; n < pieces.size(); n++)
        if (pieces[n].kind == piece_kind::NOTE)
            add_comment(all, text, pieces[n].text, pieces[n].begin.line, forms[n]);
}

// In a text out of balance a comment is a line of its own.
void add_of_lines(std::vector<expectation> *all, std::string_view text)
{
    ULO number = 1;
    for (ULO at = 0; at < text.size(); number++) {
        const std::string_view line = text.substr(at, text.find('\n', at) - at);
        if (trimmed(line).starts_with('#')) add_comment(all, text, trimmed(line), number, nullptr);
        at += line.size() + 1;
    }
}

// The word that a text begins with, and its end; quotes may be part of it. False if one stays open.
bool take_word(std::string_view *text, std::string *word)
{
    CHR quote = 0;
    ULO i = 0;
    for (; i < text->size() && (quote != 0 || !is_blank((*text)[i])); i++) {
        CHR byte = (*text)[i];
        if (quote == 0 ? byte == '"' || byte == '\'' : byte == quote) {
            quote = quote == 0 ? byte : CHR(0);
            continue;
        }
        if (byte == '\\' && quote != '\'') i += resolve_in_word(text->substr(i + 1), &byte);
        *word += byte;
    }
    text->remove_prefix(i);
    return quote == 0;
}

// -- what differs

void add_block(std::vector<std::string> *shown_lines, const std::string &text)
{
    for (const std::string_view line : lines_of(text))
        shown_lines->push_back("    " + std::string(right_trimmed(line)));
}

std::string place_of(const trial &t, ULO line)
{
    return t.from.name + ":" + (line == 0 ? "" : std::to_string(line) + ":") + " ";
}

std::string end_of(const outcome &done)
{
    switch (done.how) {
    case ending::TOO_LATE: return "takes too long";
    case ending::TOO_MUCH: return "writes more than " + std::to_string(most_output >> 20) + " MB";
    case ending::SIGNAL:
        return "died of signal " + std::to_string(done.status) + ", " + strsignal(done.status);
    case ending::EXIT: break;
    }
    return done.status == 0 ? "ended without an error" : "ended with a fault";
}

bool has_error(const expectation &e, const outcome &done)
{
    const bool is_code = !e.text.empty() && e.text.find_first_not_of("0123456789") == e.text.npos;
    if (is_code) return done.error_code != 0 && e.text == std::to_string(done.error_code);
    return !e.text.empty() && done.err.find(e.text) != done.err.npos;
}

// Whether the program came to the end that it says.
bool has_wanted_end(const std::vector<expectation> &all, const outcome &done)
{
    if (done.how != ending::EXIT) return false;
    if (!says(all, said::ERROR)) return done.status == 0;
    return done.status != 0 && std::all_of(all.begin(), all.end(), [&](const expectation &e) {
               return e.what != said::ERROR || has_error(e, done);
           });
}

const form_value *value_of(const expectation &e, const outcome &done)
{
    for (const form_value &v : done.values)
        if (v.number == e.number) return &v;
    return nullptr;
}

// A float may be spelled in any way.
bool is_value(const std::string &text, const form_value &value)
{
    if (text == shown(value)) return true;
    CHR *end = nullptr;
    const DFL wanted = strtod(text.c_str(), &end);
    return value.type == 'F' && !text.empty() && *end == 0 &&
           wanted == strtod(value.text.c_str(), nullptr);
}

void compare_values(std::vector<std::string> *lines, const trial &t,
                    const std::vector<expectation> &all, const outcome &done)
{
    for (const expectation &e : all) {
        if (e.what != said::VALUE) continue;
        const form_value *value = value_of(e, done);
        if (value == nullptr ? done.status != 0 : is_value(e.text, *value)) continue;
        lines->push_back(place_of(t, e.line) +
                         (value == nullptr ? "the form has no value" : "the value is another one"));
        if (value == nullptr) continue;
        add_block(lines, "-" + escaped(e.text) + "\n+" + escaped(shown(*value)));
    }
}

} // namespace

std::vector<expectation> expectations_of(const source &from)
{
    std::vector<expectation> all;
    if (from.text.find('#') == from.text.npos) return all;
    if (faults_of_balance(from).empty())
        add_of_pieces(&all, from.text, outline_of(from.text));
    else
        add_of_lines(&all, from.text);
    std::sort(all.begin(), all.end(),
              [](const expectation &a, const expectation &b) { return a.from < b.from; });
    ULO values = 0;
    for (expectation &e : all)
        if (e.what == said::VALUE) e.number = ++values;
    return all;
}

std::string text_of(const std::vector<expectation> &all, said what)
{
    std::string text;
    for (const expectation &e : all)
        if (e.what == what) text += e.text;
    return text;
}

bool says(const std::vector<expectation> &all, said what)
{
    return std::any_of(all.begin(), all.end(), [&](const auto &e) { return e.what == what; });
}

ULO take_words(const std::vector<expectation> &all, std::vector<std::string> *words)
{
    for (const expectation &e : all) {
        if (e.what != said::WORDS) continue;
        for (std::string_view rest = left_trimmed(e.text); !rest.empty(); rest = left_trimmed(rest))
            if (!take_word(&rest, &words->emplace_back())) return e.line;
    }
    return 0;
}

std::string shown(const form_value &value)
{
    if (value.type == 'Z') return "`NIL'";
    std::string text;
    for (const CHR byte : value.text) text += byte == 0 ? std::string("\\0") : std::string(1, byte);
    return text;
}

std::vector<std::string> differences(const trial &t, const std::vector<expectation> &all,
                                     const outcome &done)
{
    std::vector<std::string> lines, words;
    if (const ULO line = take_words(all, &words); line != 0)
        lines.push_back(place_of(t, line) + "a quote opens a word and does not end");
    if (!has_wanted_end(all, done)) {
        lines.push_back(place_of(t, 0) + end_of(done));
        for (const expectation &e : all)
            if (e.what == said::ERROR)
                lines.push_back("    " + place_of(t, e.line) + "expected error " + e.text);
        add_block(&lines, done.err);
        if (done.how != ending::EXIT) return lines;
    }
    const std::string wanted = text_of(all, said::OUTPUT);
    if (says(all, said::OUTPUT) && wanted != done.out) {
        lines.push_back(place_of(t, 0) + "the output is another one");
        for (const std::string &line : difference(wanted, done.out)) lines.push_back("    " + line);
    }
    compare_values(&lines, t, all, done);
    return lines;
}

namespace {

struct edit {
    ULO from, size;
    std::string text;
};

std::string comment(std::string_view word, std::string_view text)
{
    return std::string("# ").append(word).append(text.empty() ? "" : " ").append(text);
}

// The whole line of a comment that stands on one of its own; else the comment and the blanks ahead.
edit removal(const std::string &text, const expectation &e)
{
    ULO from = e.from, end = e.from + e.size;
    while (from > 0 && text[from - 1] != '\n' && is_blank(text[from - 1])) from--;
    if (from > 0 && text[from - 1] != '\n') return {from, end - from, ""};
    end = std::min(text.find('\n', end), text.size() - 1) + 1;
    return {from, end - from, ""};
}

// Behind the line of a comment, as far indented as the comment.
std::string indented(const std::string &text, const expectation &e)
{
    const ULO begin = text.rfind('\n', e.from) + 1; // 0 for the first line
    return "\n" + std::string(e.from - begin, ' ');
}

// A comment for each line of output, from line `from` to `end`, one below the other.
std::string comments(const std::vector<std::string> &lines, ULO from, ULO end,
                     const std::string &between)
{
    std::string text;
    for (ULO i = from; i < end; i++)
        text.append(i > from ? between : "").append(comment("expect:", lines[i]));
    return text;
}

// The last comment takes all lines that are left; surplus comments go away.
void edit_output(std::vector<edit> *edits, const std::string &text,
                 const std::vector<const expectation *> &old, const std::string &out)
{
    std::vector<std::string> lines;
    for (const std::string_view line : lines_of(out)) lines.push_back(escaped_line(line));
    if (lines.empty()) lines.push_back("\\c");
    for (ULO i = 0; i < old.size(); i++) {
        const expectation &e = *old[i];
        const ULO end = i + 1 == old.size() ? lines.size() : i + 1;
        if (i >= lines.size())
            edits->push_back(removal(text, e));
        else
            edits->push_back({e.from, e.size, comments(lines, i, end, indented(text, e))});
    }
}

std::vector<edit> edits_of(const std::string &text, const std::vector<expectation> &all,
                           const outcome &done)
{
    std::vector<edit> edits;
    std::vector<const expectation *> output;
    for (const expectation &e : all) {
        const form_value *value = e.what == said::VALUE ? value_of(e, done) : nullptr;
        if (e.what == said::OUTPUT) output.push_back(&e);
        if (value != nullptr && !is_value(e.text, *value))
            edits.push_back({e.from, e.size, comment("expect:", escaped(shown(*value)))});
        if (e.what == said::ERROR && done.error_code != 0 && !has_error(e, done))
            edits.push_back({e.from, e.size, comment("error:", std::to_string(done.error_code))});
    }
    if (text_of(all, said::OUTPUT) != done.out) edit_output(&edits, text, output, done.out);
    std::sort(edits.begin(), edits.end(),
              [](const edit &a, const edit &b) { return a.from < b.from; });
    return edits;
}

} // namespace

bool can_be_told(const std::vector<expectation> &all, const outcome &done)
{
    if (done.how != ending::EXIT || (done.status != 0) != says(all, said::ERROR)) return false;
    return done.error_code != 0 || has_wanted_end(all, done);
}

std::string updated(const std::string &text, const std::vector<expectation> &all,
                    const outcome &done)
{
    std::string now;
    ULO at = 0;
    for (const edit &e : edits_of(text, all, done)) {
        now.append(text, at, e.from - at).append(e.text);
        at = e.from + e.size;
    }
    return now.append(text, at);
}
