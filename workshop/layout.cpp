// First the size of each form on one line is known, from the inside out; then the text is written
// in one walk.

#include "workshop/layout.h"

#include <algorithm>
#include <vector>

#include "strings/fatal.h"
#include "strings/tokens.h"
#include "vm/stack.h"
#include "workshop/fault.h"
#include "workshop/outline.h"

FATAL_SITE(STACK_LAYOUT, "kst", "laid_out", 1)

namespace {

constexpr ULO WIDEST = 100;
// Deeper forms are not indented further: a text is as long as its forms, however deep they stand.
constexpr ULO DEEPEST_INDENT = 80;

// What is known of a word: how many of its arguments stand behind it on its line, and whether the
// others are to be done one after the other.
struct habit {
    group_set groups;
    ULO in_line;
    bool is_body;
};
constexpr habit habits[] = {
    {in(GROUP_PROGN), 0, true}, {in(GROUP_DEFUN), 1, true}, {in(GROUP_IF), 1, true},
    {in(GROUP_WHILE), 1, true}, {in(GROUP_FOR), 4, true},   {in(GROUP_ARSETQ), 2, false},
};

const habit *habit_of(const piece &form)
{
    for (const habit &h : habits)
        if (form.groups & h.groups) return &h;
    return nullptr;
}

// Columns that a text takes: bytes that continue a character take none.
ULO width_of(std::string_view text)
{
    return text.size() -
           static_cast<ULO>(std::count_if(text.begin(), text.end(), continues_character));
}

struct line {
    std::string code;
    std::string_view note = {};
};

class writer {
public:
    explicit writer(outline pieces) : pieces_(std::move(pieces)), flat_(pieces_.size())
    {
        for (ULO i = pieces_.size(); i > 0; i--) flat_[i - 1] = flat_width(pieces_[i - 1]);
    }

    std::string write()
    {
        const piece *ahead = nullptr;
        for (const piece *p = at(pieces_[0].first); p != nullptr; p = at(p->next)) {
            if (ahead != nullptr && !stays_behind(*p)) begin_line(p->blank_ahead, 0);
            write_piece(*p, 0);
            ahead = p;
        }
        return ahead == nullptr ? std::string() : text_of_lines();
    }

private:
    static constexpr ULO never = ~ULO(0);

    outline pieces_;
    std::vector<ULO> flat_; // width of each piece on one line; `never` if it can't stand on one
    std::vector<line> lines_{1};
    ULO column_ = 0; // width of the last line's code

    const piece *at(piece_index n) const { return n == NO_PIECE ? nullptr : &pieces_[n]; }
    ULO flat(const piece &p) const { return flat_[static_cast<ULO>(&p - pieces_.data())]; }

    // The strings of a form without a word are joined: they stand below each other.
    bool has_strings(const piece &form) const
    {
        return form.first != NO_PIECE && pieces_[form.first].text.starts_with('"');
    }
    bool is_body(const piece &form) const
    {
        const habit *h = habit_of(form);
        return h != nullptr ? h->is_body : has_strings(form);
    }

    // How many pieces of code stand on the form's first line, its word among them, if the line
    // begins at that column and so many parentheses follow the form.
    ULO words_in_line(const piece &form, ULO column, ULO closing) const
    {
        const habit *h = habit_of(form);
        if (h != nullptr) return h->in_line + 1;
        ULO count = 0;
        for (const piece *p = at(form.first); p != nullptr; p = at(p->next)) {
            if (!p->is_code()) continue;
            column += flat(*p) + 1;
            const ULO behind = p->next == NO_PIECE ? closing + 1 : 0;
            const bool fits = p->kind == piece_kind::TOKEN && column + behind <= WIDEST;
            if (count > 0 && (!fits || has_strings(form))) break;
            count++;
        }
        return count;
    }

    // Whether its author has begun one of the arguments that are to be done on a new line.
    bool is_open(const piece &form) const
    {
        if (!is_body(form)) return false;
        ULO ahead = words_in_line(form, 0, 0);
        for (const piece *p = at(form.first); p != nullptr; p = at(p->next)) {
            if (ahead > 0 && p->is_code())
                ahead--;
            else if (ahead == 0 && !p->same_line)
                return true;
        }
        return false;
    }

    ULO flat_width(const piece &p) const
    {
        if (p.kind == piece_kind::NOTE ||
            (p.kind != piece_kind::FORM && p.last_line > p.begin.line))
            return never;
        if (p.kind != piece_kind::FORM) return width_of(p.text);
        ULO width = 2;
        for (const piece *i = at(p.first); i != nullptr; i = at(i->next)) {
            if (flat(*i) == never) return never;
            width += flat(*i) + (i->next != NO_PIECE);
        }
        return is_open(p) ? never : width;
    }

    void put(std::string_view text)
    {
        lines_.back().code.append(text);
        column_ += width_of(text);
    }
    // Unless the line or a form begins here.
    void put_blank()
    {
        const std::string_view ahead = lines_.back().code;
        if (!ahead.empty() && !ahead.ends_with(' ') && !ahead.ends_with('(')) put(" ");
    }
    bool behind_note() const { return !lines_.back().note.empty(); }

    void begin_line(bool blank_ahead, ULO indent)
    {
        if (blank_ahead) lines_.push_back({});
        lines_.push_back({std::string(indent, ' ')});
        column_ = indent;
    }

    // What is remarked behind something on its line.
    bool stays_behind(const piece &p) const
    {
        return !p.is_code() && p.same_line && !behind_note();
    }

    // `closing`: parentheses that follow at once.
    void write_piece(const piece &p, ULO closing)
    {
        switch (p.kind) {
        case piece_kind::NOTE: lines_.back().note = p.text; break;
        case piece_kind::REMARK: write_remark(p); break;
        case piece_kind::TOKEN: write_as_it_stands(p.text, 0); break;
        case piece_kind::FORM:
            if (flat(p) != never && column_ + flat(p) + closing <= WIDEST)
                write_flat(p);
            else
                write_open(p, closing);
            break;
        }
    }

    void write_remark(const piece &p)
    {
        put_blank();
        const ULO ahead = p.begin.column - 1;
        const ULO stood_at = width_of({p.text.data() - ahead, ahead});
        write_as_it_stands(p.text, static_cast<SLO>(column_ - stood_at));
    }

    // Further lines of it move with the first.
    void write_as_it_stands(std::string_view text, SLO moved)
    {
        for (;;) {
            const auto end = text.find('\n');
            const std::string_view here = text.substr(0, end);
            put(right_trimmed(here));
            if (end == text.npos) return;
            text.remove_prefix(end + 1);
            const std::string_view plain = left_trimmed(text.substr(0, text.find('\n')));
            const auto blanks = static_cast<ULO>(plain.data() - text.data());
            const SLO indent = std::max(static_cast<SLO>(blanks) + moved, SLO(0));
            begin_line(false, plain.empty() ? 0 : static_cast<ULO>(indent));
            text.remove_prefix(blanks);
        }
    }

    void write_flat(const piece &p)
    {
        if (p.kind != piece_kind::FORM) return put(p.text);
        put("(");
        for (const piece *i = at(p.first); i != nullptr; i = at(i->next)) {
            if (i != at(p.first)) put(" ");
            write_flat(*i);
        }
        put(")");
    }

    void write_open(const piece &form, ULO closing)
    {
        check_stack(site::STACK_LAYOUT);
        const ULO begin = column_;
        const ULO indent = std::min(begin + (has_strings(form) ? 1 : 2), DEEPEST_INDENT);
        ULO words = words_in_line(form, begin, closing);
        bool may_be_blank = false; // ahead of the next piece
        put("(");
        for (const piece *p = at(form.first); p != nullptr; p = at(p->next)) {
            const bool is_word = p->is_code() && words > 0;
            if (is_word) words--;
            const bool goes_on = stays_behind(*p) || (is_word && !behind_note());
            if (goes_on && is_word) put_blank();
            if (!goes_on) {
                begin_line(p->blank_ahead && may_be_blank, indent);
                may_be_blank = is_body(form);
            }
            write_piece(*p, p->next == NO_PIECE ? closing + 1 : 0);
        }
        if (behind_note()) begin_line(false, std::min(begin, DEEPEST_INDENT));
        put(")");
    }

    // Notes of lines that follow each other stand in one column.
    std::string text_of_lines() const
    {
        std::string text;
        for (ULO i = 0, column = 0; i < lines_.size(); i++) {
            const line &l = lines_[i];
            const bool is_behind = has_code_and_note(l);
            if (is_behind && (i == 0 || !has_code_and_note(lines_[i - 1]))) column = note_column(i);
            text.append(l.code);
            if (is_behind) text.append(column - width_of(l.code), ' ');
            text.append(l.note) += '\n';
        }
        return text;
    }

    static bool has_code_and_note(const line &l)
    {
        return !l.note.empty() && !left_trimmed(l.code).empty();
    }

    ULO note_column(ULO from) const
    {
        ULO column = 0;
        for (ULO i = from; i < lines_.size() && has_code_and_note(lines_[i]); i++)
            column = std::max(column, width_of(lines_[i].code) + 1);
        return column;
    }
};

} // namespace

std::string laid_out(std::string_view text) { return writer(outline_of(text)).write(); }
