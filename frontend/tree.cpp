// Parsing and writing of trees. A text in balance is parsed by descent alone. Where that meets a
// parenthesis or a quote without its partner, a table of the text's brackets is made and the text
// is parsed by it: a form then reaches to where the table says, whatever its inside looks like.

#include "frontend/tree.h"

#include <algorithm>
#include <utility>

#include "frontend/forms.h"
#include "frontend/token.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/fatal.h"
#include "strings/large_pages.h"
#include "strings/scratch.h"
#include "strings/tokens.h"
#include "vm/stack.h"

FATAL_SITE(STACK_CHECK, "kestrin", "kestrin_check", 123)
FATAL_SITE(STACK_PRINT, "kestrin", "kestrin_print", 132)

namespace {

constexpr SLO ELSEWHERE = INT64_MIN / 2; // the place of a part that is not of the file

// For each opening parenthesis outside quotes its closing one. One that never closes reaches the
// end, and so does one in quotes, which a walk may come upon that began inside them.
class brackets {
public:
    explicit brackets(std::string_view text)
        : close_(text.size(), static_cast<std::uint32_t>(text.size()))
    {
        std::vector<std::uint32_t> open;
        for (ULO i = 0; i < text.size(); i = text[i] == '"' ? behind_quotes(text, i) : i + 1) {
            if (text[i] == '(') open.push_back(static_cast<std::uint32_t>(i));
            if (text[i] != ')' || open.empty()) continue;
            close_[open.back()] = static_cast<std::uint32_t>(i);
            open.pop_back();
        }
    }
    ULO close_of(ULO open) const { return close_[open]; }

private:
    std::vector<std::uint32_t> close_;
};

class parser {
public:
    // Parses what stands in the tree's text from `base` on, by a table if there is one.
    parser(tree *t, reading how, ULO base, const brackets *table = nullptr)
        : nodes_(t->nodes), names_(names()), text_(std::string_view(t->text).substr(base)),
          table_(table), how_(how), base_(base)
    {
        if (t->text.size() >= UINT32_MAX) fatal(site::MEMORY_NEW);
        nodes_.reserve(nodes_.size() + text_.size() / 3 + 8);
        use_large_pages(nodes_.data(), nodes_.capacity() * sizeof(node));
    }
    node_index form(ULO open, ULO to, ULO *end);
    node_index inside(ULO from, ULO to);
    node_index atom(ULO from, ULO to, ULO *end);

    bool is_balanced() const { return is_balanced_; }
    // Whether what has been parsed would be written as it stands and parsed as it is.
    bool is_plain() const { return is_plain_ && is_balanced_; }

private:
    node_index add(ULO at, CHR letter);
    ULO end_of(ULO from, ULO to);
    ULO skip_gap(ULO i, ULO to, ULO wanted);
    bool take_word(node_index form, ULO *i, ULO to);
    void enter_word(node *form, std::string_view word);
    ULO take_arguments(node_index form, ULO i, ULO to);
    void class_atom(node *n, std::string_view token);
    bool is_comment_form(ULO open);

    std::vector<node> &nodes_;
    name_table &names_;
    std::string_view text_;
    const brackets *table_;
    reading how_;
    ULO base_;
    bool is_balanced_ = true, is_plain_ = true;
    std::string folded_;
};

node_index parser::add(ULO at, CHR letter)
{
    node n;
    n.text = static_cast<std::uint32_t>(base_ + at);
    n.letter = letter;
    nodes_.push_back(n);
    return static_cast<node_index>(nodes_.size() - 1);
}

// The end of the token that begins at `from`.
ULO parser::end_of(ULO from, ULO to)
{
    if (table_ == nullptr) {
        const token_end end = end_of_token(text_, from);
        if (!end.sound && end.position == text_.size()) is_balanced_ = false;
        return end.position;
    }
    ULO i = from;
    while (i < to && !is_blank(text_[i]) && text_[i] != ')') {
        if (text_[i] == '(') return std::min(table_->close_of(i) + 1, to);
        i = text_[i] == '"' ? std::min(behind_quotes(text_.substr(0, to), i), to) : i + 1;
    }
    return i;
}

// The next token or the end of the form. A text that is to be settled has single blanks in front of
// arguments and none elsewhere.
ULO parser::skip_gap(ULO from, ULO to, ULO wanted)
{
    ULO i = from;
    while (i < to && is_blank(text_[i])) i++;
    if (i >= to || text_[i] == ')') wanted = 0;
    if (i - from != wanted || (wanted == 1 && text_[from] != ' ')) is_plain_ = false;
    return i;
}

// Whether the first word of the form at `open` makes it a comment.
bool parser::is_comment_form(ULO open)
{
    const std::string_view rest = left_trimmed(text_.substr(open + 1));
    if (rest.starts_with('(')) return false;
    folded_.clear();
    append_folded(&folded_, first_token(rest));
    return (word_groups(folded_) & in(GROUP_COMMENTS)) != 0;
}

void parser::enter_word(node *form, std::string_view word)
{
    if (how_ == TYPED) {
        form->suffix = suffix_of(word);
        word = without_suffix(word);
    } else if (how_ != SOURCE && word.find('@') != word.npos)
        is_plain_ = false;
    if (how_ != SOURCE) {
        form->name = names_.enter(word);
        return;
    }
    folded_.clear();
    append_folded(&folded_, word);
    form->name = names_.enter(folded_);
}

// The first word of a form. Comment forms in front of it are no part of source, and a row of
// strings has none there. False if the form is a comment at once.
bool parser::take_word(node_index form, ULO *i, ULO to)
{
    *i = skip_gap(*i, to, 0);
    bool is_first = true;
    while (how_ == SOURCE && *i < to && text_[*i] == '(' && is_comment_form(*i)) {
        *i = skip_gap(end_of(*i, to), to, 0);
        is_first = false;
    }
    if (how_ == SOURCE && (*i >= to || text_[*i] == ')' || text_[*i] == '"')) return true;
    const ULO end = end_of(*i, to);
    enter_word(&nodes_[form], text_.substr(*i, end - *i));
    *i = end;
    if (how_ != SOURCE || !(groups_of(word_of(nodes_[form].name)) & in(GROUP_COMMENTS)))
        return true;
    nodes_[form].letter = 'C';
    return !is_first;
}

// Parses the tokens up to the end of the form and returns where that is.
ULO parser::take_arguments(node_index form, ULO i, ULO to)
{
    node_index last = NO_NODE;
    while (i = skip_gap(i, to, 1), i < to && text_[i] != ')') {
        const node_index n = text_[i] == '(' ? this->form(i, to, &i) : atom(i, to, &i);
        if (n == NO_NODE) continue;
        (last == NO_NODE ? nodes_[form].first : nodes_[last].next) = n;
        last = n;
    }
    return i;
}

// The form whose parenthesis stands at `open`; `*end` is behind it. NO_NODE for a comment in
// source.
node_index parser::form(ULO open, ULO to, ULO *end)
{
    check_stack(site::STACK_CHECK);
    if (table_ != nullptr) {
        *end = std::min(table_->close_of(open) + 1, to);
        return inside(open, *end);
    }
    const node_index n = add(open, 'U');
    ULO i = open + 1;
    if (!take_word(n, &i, to)) {
        nodes_.resize(n);
        *end = end_of(open, to);
        return NO_NODE;
    }
    i = take_arguments(n, i, to);
    if (i >= to) is_balanced_ = false;
    *end = std::min(i + 1, to);
    nodes_[n].size = static_cast<std::uint32_t>(*end - open);
    return n;
}

// What stands in text[from, to) as a form, by the table: its first and last byte are not looked at.
node_index parser::inside(ULO from, ULO to)
{
    const node_index n = add(from, 'U');
    nodes_[n].size = static_cast<std::uint32_t>(to - from);
    ULO i = from + 1;
    to = std::max(to, i + 1) - 1;
    take_word(n, &i, to);
    take_arguments(n, i, to);
    return n;
}

node_index parser::atom(ULO from, ULO to, ULO *end)
{
    const node_index n = add(from, 0);
    *end = end_of(from, to);
    nodes_[n].size = static_cast<std::uint32_t>(*end - from);
    if (how_ == CHECKED || how_ == TYPED) class_atom(&nodes_[n], text_.substr(from, *end - from));
    return n;
}

void parser::class_atom(node *n, std::string_view token)
{
    n->letter = static_cast<CHR>(kestrin_type1(token));
    if (n->letter != 'V' && n->letter != 'P') return;
    if (how_ == TYPED && slot_of_suffix(suffix_of(token)) != 0 && suffix_of(token) != 'J') {
        n->suffix = suffix_of(token);
        token = without_suffix(token);
    } else if (token.find('@') != token.npos)
        is_plain_ = false;
    n->name = names_.enter(token);
}

// The constant of a string, as far as escapes can tell it.
void append_string(std::string_view bytes, std::string *out)
{
    scratch shown;
    assign(&shown.s, bytes);
    strunraw(&shown.s, shown.s);
    out->append("\"").append(view(shown.s)).append("\"");
}

} // namespace

void tree::clear()
{
    text.clear();
    nodes.clear();
    parts_.clear();
    root = NO_NODE;
    settled = true;
}

void tree::read(std::string_view whole, reading how)
{
    clear();
    text = whole;
    if (text.empty()) return;
    parser pass(this, how, 0);
    ULO end = 0;
    if (text.front() == '(')
        root = pass.form(0, text.size(), &end);
    else {
        root = pass.atom(0, text.size(), &end);
        nodes[root].size = static_cast<std::uint32_t>(text.size());
        nodes[root].letter = static_cast<CHR>(kestrin_type1(text));
    }
    settled = how != TYPED && pass.is_plain() && end == text.size();
    if (pass.is_balanced() || nodes[root].letter != 'U') return;
    const brackets table(text);
    nodes.clear();
    root = parser(this, how, 0, &table).inside(0, text.size());
}

node_index tree::add_source(std::string source, SLO place, bool *sound)
{
    const ULO base = text.size(), size = source.size();
    if (base == 0)
        text = std::move(source);
    else
        text.append(source);
    parts_.push_back({base, place});
    parser pass(this, SOURCE, base);
    ULO end = 0;
    const node_index n = pass.form(0, size, &end);
    *sound = pass.is_balanced() && end == size;
    return n;
}

node_index tree::add_checked(std::string_view forms)
{
    const ULO base = text.size(), known = nodes.size();
    text.append(forms);
    parts_.push_back({base, ELSEWHERE});
    parser pass(this, CHECKED, base);
    ULO end = 0;
    const node_index n = pass.form(0, forms.size(), &end);
    if (pass.is_plain() && end == forms.size()) return n;
    text.resize(base);
    nodes.resize(known);
    return NO_NODE;
}

node_index tree::add_form(isa_id word, node_index first)
{
    node n;
    n.letter = 'U';
    n.name = names().enter(mnemonic(word));
    n.first = first;
    nodes.push_back(n);
    return static_cast<node_index>(nodes.size() - 1);
}

node_index tree::opened(node_index atom, reading how)
{
    settled = false;
    const brackets table(text);
    const node opened = atom == NO_NODE ? node() : nodes[atom];
    return parser(this, how, 0, &table).inside(opened.text, opened.text + opened.size);
}

void tree::make_string(node_index atom, std::string_view bytes)
{
    replace_text(&nodes[atom], bytes);
    nodes[atom].letter = 'S';
    nodes[atom].is_raw = true;
}

void tree::keep_as_it_stands(node_index form)
{
    settled = false;
    nodes[form].letter = 'S';
    nodes[form].name = NO_NAME;
}

// A token, or the first word of a form, as it is written.
inline std::string_view tree::spelling(const node &n) const
{
    if (n.name != NO_NAME) return names().text(n.name);
    if (n.letter == 'U') return {};
    return n.letter == 'Z' ? "NIL" : text_of(n);
}

std::string_view tree::token_of(const node &n) const { return settled ? spelling(n) : text_of(n); }

SLO tree::joined_place(ULO byte) const
{
    const auto behind = std::upper_bound(parts_.begin(), parts_.end(), byte,
                                         [](ULO at, const part &p) { return at < p.from; });
    if (behind == parts_.begin()) return ELSEWHERE;
    return behind[-1].place + static_cast<SLO>(byte - behind[-1].from);
}

file_place tree::place_of(const node &n) const
{
    const SLO place = n.size == 0 ? ELSEWHERE : joined_place(n.text);
    return place < 0 ? file_place{0, 0} : file.find(static_cast<ULO>(place));
}

void tree::replace_text(node *atom, std::string_view own)
{
    parts_.push_back({text.size(), joined_place(atom->text)});
    atom->text = static_cast<std::uint32_t>(text.size());
    atom->size = static_cast<std::uint32_t>(own.size());
    text.append(own);
}

SLO tree::argument_number(const node &n) const { return leading_number(text_of(n).substr(1)); }

void tree::write(node_index index, std::string *out) const
{
    check_stack(site::STACK_PRINT);
    const node &n = nodes[index];
    if (n.letter == 'U') out->push_back('(');
    if (n.is_raw)
        append_string(text_of(n), out);
    else
        out->append(spelling(n));
    if (n.suffix != 0) {
        out->push_back('@');
        out->push_back(n.suffix);
    }
    if (n.letter != 'U') return;
    for (node_index i = n.first; i != NO_NODE; i = nodes[i].next) {
        out->push_back(' ');
        write(i, out);
    }
    out->push_back(')');
}

std::string tree::written() const
{
    if (!settled) return text;
    std::string out;
    if (root == NO_NODE) return out;
    out.reserve(text.size() + text.size() / 4);
    write(root, &out);
    return out;
}

void tree::settle(reading how)
{
    if (settled) return;
    std::string anew;
    if (root != NO_NODE) write(root, &anew);
    read(anew, how);
}
