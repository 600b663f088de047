// One scan of the text with a list of the forms that are open, however deep they are.

#include "workshop/outline.h"

#include <algorithm>
#include <string>
#include <utility>

#include "frontend/token.h"
#include "frontend/words.h"
#include "strings/tokens.h"

namespace {

class scanner {
public:
    explicit scanner(std::string_view text) : text_(text)
    {
        pieces_.push_back({.kind = piece_kind::FORM, .text = text});
        open_.push_back({0});
    }

    outline scan(bool *is_balanced)
    {
        while (skip_blanks()) take_piece();
        settle_note();
        if (is_balanced != nullptr) *is_balanced = is_balanced_ && open_.size() == 1;
        return std::move(pieces_);
    }

private:
    struct open_form {
        piece_index form;
        piece_index last = NO_PIECE; // piece in it
        piece_index note = NO_PIECE; // behind it, which may turn out to be the form's last
    };

    std::string_view text_;
    ULO at_ = 0, line_ = 1, line_begin_ = 0;
    ULO ahead_ = 0; // the line on which the piece ahead ends, if something may stand behind it
    bool blank_ahead_ = false;
    bool is_balanced_ = true; // so far
    ULO closing_end_ = 0;     // of the closing parentheses looked at last
    outline pieces_;
    std::vector<open_form> open_;

    bool at_end() const { return at_ >= text_.size(); }

    void step()
    {
        if (text_[at_++] != '\n') return;
        line_++;
        line_begin_ = at_;
    }

    // Returns whether something is left.
    bool skip_blanks()
    {
        const ULO from = line_;
        while (!at_end() && is_blank(text_[at_])) step();
        blank_ahead_ = line_ > from + 1;
        return !at_end();
    }

    void take_piece()
    {
        switch (text_[at_]) {
        case '#': take_note(); break;
        case '(': take_form(); break;
        case ')': close_form(); break;
        default: take_token(); break;
        }
    }

    piece_index add(piece_kind kind)
    {
        pieces_.push_back({.kind = kind,
                           .same_line = line_ == ahead_,
                           .blank_ahead = blank_ahead_,
                           .begin = {line_, at_ - line_begin_ + 1}});
        return static_cast<piece_index>(pieces_.size() - 1);
    }

    void link(piece_index n)
    {
        open_form &form = open_.back();
        if (form.last == NO_PIECE)
            pieces_[form.form].first = n;
        else
            pieces_[form.last].next = n;
        form.last = n;
    }

    void settle_note()
    {
        const piece_index note = std::exchange(open_.back().note, NO_PIECE);
        if (note != NO_PIECE) link(note);
    }

    // The piece ends where the scan stands.
    void finish(piece_index n, ULO from)
    {
        pieces_[n].text = text_.substr(from, at_ - from);
        pieces_[n].last_line = line_;
        ahead_ = line_;
    }

    void take_note()
    {
        settle_note();
        const piece_index n = add(piece_kind::NOTE);
        const ULO from = at_;
        at_ = std::min(text_.find('\n', at_), text_.size());
        finish(n, from);
        pieces_[n].text = right_trimmed(pieces_[n].text);
        ahead_ = 0;
        if (pieces_[n].same_line)
            open_.back().note = n;
        else
            link(n);
    }

    // A string that is not closed ends with its line.
    void skip_quotes()
    {
        for (at_++; !at_end() && text_[at_] != '"' && text_[at_] != '\n'; at_++)
            if (text_[at_] == '\\' && at_ + 1 < text_.size() && text_[at_ + 1] != '\n') at_++;
        if (at_end() || text_[at_] != '"')
            is_balanced_ = false;
        else
            at_++;
    }

    // A token that doesn't begin with a parenthesis may hold some; the last one ends it.
    void skip_token()
    {
        ULO depth = 0;
        while (!at_end()) {
            const CHR c = text_[at_];
            if (depth == 0 && (is_blank(c) || c == ')' || c == '#')) return;
            if (c == '"')
                skip_quotes();
            else if (c == '#')
                at_ = std::min(text_.find('\n', at_), text_.size());
            else
                step();
            if (c == '(') depth++;
            if (c == ')' && --depth == 0) return;
        }
        is_balanced_ = is_balanced_ && depth == 0;
    }

    void take_token()
    {
        settle_note();
        const ULO from = at_;
        const piece_index n = add(piece_kind::TOKEN);
        skip_token();
        finish(n, from);
        link(n);
    }

    group_set groups_behind_parenthesis() const
    {
        const std::string_view rest = left_trimmed(text_.substr(at_ + 1));
        const auto ends = [](CHR c) { return is_blank(c) || c == '(' || c == ')' || c == '#'; };
        const auto end = std::find_if(rest.begin(), rest.end(), ends);
        if (end != rest.end() && *end == '(') return 0;
        std::string word;
        append_folded(&word, rest.substr(0, static_cast<ULO>(end - rest.begin())));
        return word_groups(word);
    }

    void take_form()
    {
        settle_note();
        const group_set groups = groups_behind_parenthesis();
        if (groups & in(GROUP_COMMENTS)) return take_remark();
        const piece_index n = add(piece_kind::FORM);
        pieces_[n].groups = groups;
        pieces_[n].text = text_.substr(at_);
        link(n);
        open_.push_back({n});
        at_++;
        ahead_ = line_;
    }

    void take_remark()
    {
        const ULO from = at_;
        const piece_index n = add(piece_kind::REMARK);
        skip_token();
        finish(n, from);
        link(n);
    }

    // Whether a note follows on the line, behind any closing parentheses: a run of them is looked
    // through once.
    bool note_follows()
    {
        if (at_ > closing_end_)
            closing_end_ = std::min(text_.find_first_not_of(" \t)", at_), text_.size());
        return closing_end_ < text_.size() && text_[closing_end_] == '#';
    }

    void close_form()
    {
        at_++;
        if (open_.size() == 1) {
            is_balanced_ = false;
            return;
        }
        if (note_follows()) settle_note();
        const open_form closed = open_.back();
        const ULO from = text_.size() - pieces_[closed.form].text.size();
        open_.pop_back();
        finish(closed.form, from);
        open_.back().note = closed.note;
    }
};

} // namespace

outline outline_of(std::string_view text, bool *is_balanced)
{
    return scanner(text).scan(is_balanced);
}
