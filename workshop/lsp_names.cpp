#include "workshop/lsp_names.h"

#include <algorithm>
#include <unordered_map>

#include "frontend/token.h"
#include "frontend/words.h"

namespace {

// 'V' a variable, 'P' an argument, 0 what has no name.
UCH class_of(std::string_view token, std::string *folded)
{
    folded->clear();
    const UCH letter = kestrin_type(token, folded);
    return letter == 'V' || letter == 'P' ? letter : 0;
}

} // namespace

// The letter in front lets a name begin with what a variable's can't.
bool is_function_name(std::string_view token)
{
    return !token.empty() && is_variable_name("U" + std::string(token));
}

bool is_variable_name(std::string_view token)
{
    std::string folded;
    return token.find('#') == token.npos && class_of(token, &folded) == 'V';
}

text_names::text_names(std::string_view text)
    : text_(text), pieces_(outline_of(text, &is_balanced_))
{
    functions_.push_back({{}, 0, 0, 0, text.size(), NO_FUNCTION, NO_NAME});
    walk();
    find_missing();
}

// -- The walk ----------------------------------------------------------------------------------

void text_names::walk()
{
    open_.push_back({pieces_[0].first, false, 0});
    while (!open_.empty()) {
        const piece_index n = open_.back().next;
        if (n == NO_PIECE) {
            leave_form(open_.back());
            open_.pop_back();
            continue;
        }
        open_.back().next = pieces_[n].next;
        if (pieces_[n].kind == piece_kind::FORM)
            enter_form(n);
        else if (pieces_[n].kind == piece_kind::TOKEN)
            add_value(n, role::READ);
    }
}

piece_index text_names::next_code(piece_index n) const
{
    while (n != NO_PIECE && !pieces_[n].is_code()) n = pieces_[n].next;
    return n;
}

// Remarks may stand ahead of it.
piece_index text_names::word_of_form(piece_index form) const
{
    const piece_index first = form == 0 ? NO_PIECE : next_code(pieces_[form].first);
    return first != NO_PIECE && pieces_[first].kind == piece_kind::TOKEN ? first : NO_PIECE;
}

void text_names::enter_form(piece_index form)
{
    const piece_index word = word_of_form(form);
    if (word == NO_PIECE) return open_.push_back({pieces_[form].first, false, 0});
    const group_set groups = word_groups(names_.text(fold(pieces_[word].text)));
    piece_index rest = pieces_[word].next;
    const piece_index target = next_code(rest);
    const bool has_target = target != NO_PIECE && pieces_[target].kind == piece_kind::TOKEN;
    add_word(word);
    if (has_target && (groups & in(GROUP_DEFUN)) && is_function_name(pieces_[target].text))
        return define(form, target);
    if (has_target && (groups & SETS_VARIABLE)) {
        add_value(target, role::ASSIGNED);
        rest = pieces_[target].next;
    }
    open_.push_back({rest, false, 0});
}

void text_names::define(piece_index form, piece_index name)
{
    const std::string_view text = pieces_[name].text;
    const auto made = static_cast<function_index>(functions_.size());
    const name_id folded = fold(text);
    functions_.push_back(
        {text, from(pieces_[name]), form, from(pieces_[form]), to(pieces_[form]), inside_, folded});
    add(name, role::DEFINED, folded).meant = made;
    known_.set(folded, made + 1);
    open_.push_back({pieces_[name].next, true, known_.mark()});
    inside_ = made;
}

void text_names::leave_form(const open_form &left)
{
    if (!left.is_definition) return;
    known_.undo(left.mark);
    inside_ = functions_[inside_].around;
}

name_id text_names::fold(std::string_view token)
{
    std::string folded;
    append_folded(&folded, token);
    return names_.enter(folded);
}

name_use &text_names::add(piece_index token, role what, name_id name)
{
    const piece &p = pieces_[token];
    uses_.push_back({from(p), p.text.size(), what, name, inside_});
    return uses_.back();
}

void text_names::add_word(piece_index word)
{
    const name_id name = fold(pieces_[word].text);
    if (find_word(names_.text(name)) != nullptr) return void(add(word, role::INSTRUCTION, name));
    if (pieces_[word].text[0] == '"') return;
    const function_index known = known_.get(name);
    add(word, role::CALLED, name).meant = known == 0 ? NO_FUNCTION : known - 1;
}

void text_names::add_value(piece_index token, role what)
{
    std::string folded;
    const UCH letter = class_of(pieces_[token].text, &folded);
    if (letter == 0) return;
    add(token, letter == 'P' ? role::ARGUMENT : what, names_.enter(folded));
    if (letter != 'P') return;
    const ULO number = static_cast<ULO>(leading_number(std::string_view(folded).substr(1)));
    functions_[inside_].arguments = std::max(functions_[inside_].arguments, number);
}

// A call that no function stands ahead of means one of the text's own level: that is a fault, but
// it is clear which is meant.
void text_names::find_missing()
{
    std::unordered_map<name_id, function_index> outermost;
    for (function_index i = 1; i < functions_.size(); i++)
        if (functions_[i].around == PROGRAM) outermost.emplace(functions_[i].folded, i);
    for (name_use &use : uses_) {
        if (use.what != role::CALLED || use.meant != NO_FUNCTION) continue;
        const auto found = outermost.find(use.name);
        if (found != outermost.end()) use.meant = found->second;
    }
}

// -- Questions ---------------------------------------------------------------------------------

const name_use *text_names::use_at(ULO byte) const
{
    const auto behind = std::upper_bound(uses_.begin(), uses_.end(), byte,
                                         [](ULO at, const name_use &use) { return at < use.from; });
    if (behind == uses_.begin() || byte > behind[-1].from + behind[-1].size) return nullptr;
    return &behind[-1];
}

function_index text_names::function_at(ULO byte) const
{
    function_index found = PROGRAM;
    for (function_index i = 1; i < functions_.size(); i++)
        if (functions_[i].from < byte && byte < functions_[i].to) found = i;
    return found;
}

bool text_names::is_in_text(ULO byte) const
{
    const auto behind = std::lower_bound(pieces_.begin() + 1, pieces_.end(), byte,
                                         [&](const piece &p, ULO at) { return from(p) < at; });
    const piece &last = behind[-1];
    switch (last.kind) {
    case piece_kind::FORM: return false;
    case piece_kind::REMARK: return byte < to(last);
    case piece_kind::NOTE: return text_.substr(0, byte).find('\n', from(last)) == text_.npos;
    case piece_kind::TOKEN: break;
    }
    const bool is_closed = last.text.size() > 1 && last.text.back() == '"';
    return last.text[0] == '"' && (byte < to(last) || (byte == to(last) && !is_closed));
}

piece_index text_names::form_at(ULO byte) const
{
    piece_index found = 0;
    for (piece_index n = 1; n < pieces_.size() && from(pieces_[n]) < byte; n++)
        if (pieces_[n].kind == piece_kind::FORM && byte < to(pieces_[n])) found = n;
    return found;
}

// Pieces stand in the order in which they begin.
piece_index text_names::piece_from(ULO byte) const
{
    const auto found = std::lower_bound(pieces_.begin() + 1, pieces_.end(), byte,
                                        [&](const piece &p, ULO at) { return from(p) < at; });
    if (found == pieces_.end() || from(*found) != byte) return NO_PIECE;
    return static_cast<piece_index>(found - pieces_.begin());
}

bool text_names::are_one(const name_use &a, const name_use &b) const
{
    const auto is_function = [](const name_use &use) {
        return use.what == role::DEFINED || use.what == role::CALLED;
    };
    const auto is_variable = [](const name_use &use) {
        return use.what == role::READ || use.what == role::ASSIGNED;
    };
    if (a.name != b.name) return false;
    if (is_function(a)) return is_function(b) && a.meant == b.meant;
    if (is_variable(a)) return is_variable(b) && a.inside == b.inside;
    return a.what == b.what && (a.what == role::INSTRUCTION || a.inside == b.inside);
}

function_index text_names::find(std::string_view folded) const
{
    for (function_index i = 1; i < functions_.size(); i++)
        if (functions_[i].around == PROGRAM && names_.text(functions_[i].folded) == folded)
            return i;
    return NO_FUNCTION;
}

bool text_names::is_within(function_index inner, function_index outer) const
{
    return functions_[outer].from <= functions_[inner].from &&
           functions_[inner].to <= functions_[outer].to;
}
