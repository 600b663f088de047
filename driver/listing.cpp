// The two pretty-printers. A form that does not fit its line is opened: its first element, the
// others two columns further in, a closing parenthesis. A string constant that is too long becomes
// a row of shorter ones, which the language joins again.

#include "driver/listing.h"

#include <cstdio>
#include <string>

#include "frontend/forms.h"
#include "frontend/tree.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "terminal/terminal.h"
#include "vm/stack.h"

namespace {

constexpr ULO SHORTEST_PIECE = 6; // of a broken string, in raw bytes

void print_line(ULO indent, std::string_view text)
{
    const std::string line = std::string(indent, ' ').append(text).append("\n");
    fwrite(line.data(), 1, line.size(), stdout);
}

void print_separator(const listing_style &style) { print_line(0, std::string(style.width, '-')); }

// The first bytes of a text without what would be a broken character at the end; never nothing.
std::string_view whole_characters(std::string_view piece)
{
    scratch trimmed_piece;
    assign(&trimmed_piece.s, piece);
    rtrim_utf8(&trimmed_piece.s, trimmed_piece.s);
    const ULO kept = len(trimmed_piece.s);
    return kept == 0 ? piece : piece.substr(0, kept);
}

std::string escaped(std::string_view raw)
{
    scratch text;
    assign(&text.s, raw);
    return std::string(view(strunraw(&text.s, text.s)));
}

class layout {
public:
    layout(std::string_view text, const listing_style &style) : width_(style.width)
    {
        tree_.read(wrapped(std::string(text)), OUTLINE);
    }
    void run()
    {
        for (node_index i = tree_.nodes[tree_.root].first; i != NO_NODE; i = tree_.nodes[i].next)
            print(i, 0);
    }

private:
    std::string_view token(node_index n) const { return tree_.text_of(tree_.nodes[n]); }
    bool is_form(node_index n) const { return n != NO_NODE && tree_.nodes[n].letter == 'U'; }
    void print(node_index n, ULO indent);
    void print_elements(node_index n, ULO indent);
    void print_atom(std::string_view atom, ULO indent);
    void break_string(std::string_view raw, ULO indent);

    tree tree_;
    ULO width_;
};

// One token at an indent.
void layout::print(node_index n, ULO indent)
{
    check_stack(site::STACK_PRINT);
    if (token(n).size() + indent <= width_) return print_line(indent, token(n));
    if (!is_form(n)) return print_atom(token(n), indent);
    const name_id word = tree_.nodes[n].name;
    print_line(indent, std::string("(").append(word == NO_NAME ? "" : names().text(word)));
    print_elements(tree_.nodes[n].first, indent + 2);
    print_line(indent, ")");
}

// The elements of a form behind its first: forms on lines of their own, atoms joined as far as they
// fit.
void layout::print_elements(node_index n, ULO indent)
{
    while (n != NO_NODE) {
        const node_index first = n;
        n = tree_.nodes[n].next;
        if (is_form(first)) {
            print(first, indent);
            continue;
        }
        std::string joined(token(first));
        bool alone = true;
        for (; n != NO_NODE && !is_form(n); n = tree_.nodes[n].next) {
            if (joined.size() + token(n).size() + indent >= width_) break;
            joined.append(" ").append(token(n));
            alone = false;
        }
        alone ? print_atom(joined, indent) : print_line(indent, joined);
    }
}

// An atom that stands alone.
void layout::print_atom(std::string_view atom, ULO indent)
{
    const bool is_string = atom.size() >= 2 && atom.front() == '"' && atom.back() == '"';
    if (is_string && atom.size() + indent + 2 > width_) {
        scratch raw;
        assign(&raw.s, atom.substr(1, atom.size() - 2));
        strraw(&raw.s, raw.s);
        if (len(raw.s) > SHORTEST_PIECE) return break_string(view(raw.s), indent);
    }
    print_line(indent, atom);
}

void layout::break_string(std::string_view raw, ULO indent)
{
    const ULO room = width_ > indent + 5 ? width_ - indent - 5 : 0; // for an escaped piece
    print_line(indent, "(");
    while (!raw.empty()) {
        ULO size = 0, shown = 0;
        while (size < raw.size()) {
            shown += escaped(raw.substr(size, 1)).size();
            if (size >= SHORTEST_PIECE && shown > room) break;
            size++;
        }
        const std::string_view piece = whole_characters(raw.substr(0, size));
        print_line(indent + 2, "\"" + escaped(piece) + "\"");
        raw.remove_prefix(piece.size());
    }
    print_line(indent, ")");
}

void print_dumped(std::string_view text, const listing_style &style)
{
    print_separator(style);
    while (!text.empty()) {
        const std::string_view piece = whole_characters(text.substr(0, style.width));
        print_line(0, piece);
        text.remove_prefix(piece.size());
    }
}

} // namespace

listing_style style_of(const session &s)
{
    const ULO wide = terminal.COLUMNS_TERM > 1 ? ULO(terminal.COLUMNS_TERM) - 1 : 79;
    return {s.is_on(SWITCH_TERM_WIDE) ? wide : 79, s.is_on(SWITCH_DUMPED_SRC)};
}

void kestrin_print_form(std::string_view form, const listing_style &style)
{
    layout(form, style).run();
    fflush(stdout);
}

void kestrin_print(std::string_view text, const listing_style &style)
{
    print_separator(style);
    if (text.size() <= style.width)
        print_line(0, text);
    else {
        layout(text, style).run();
        if (style.dumped) print_dumped(text, style);
    }
    print_separator(style);
    fflush(stdout);
}

void kestrin_printcode(const CHR *code, const listing_style &style)
{
    scratch dump;
    strdump(&dump.s, code);
    std::string_view rest = view(dump.s);
    const ULO piece = style.width - 1;
    print_separator(style);
    for (; rest.size() > piece; rest.remove_prefix(piece))
        print_line(0, right_trimmed(rest.substr(0, piece)));
    print_line(0, rest);
    print_separator(style);
    fflush(stdout);
}
