// Every change that would bring a text nearer to balance is tried, and the one is taken after which
// the lines lie as the forms say, and the checker finds least. Lines lie so if each is indented
// deeper than the line in which its innermost open form begins, and as deep as the first line in
// that form; a line that begins by closing a form stands below it and closes no more than forms.

#include "workshop/balance.h"

#include <algorithm>
#include <tuple>

namespace {

constexpr ULO MOST_CHANGES = 16;           // one after the other: what needs more is not mended
constexpr ULO SHORT_TEXT = 4000;           // tokens that are all looked at
constexpr ULO MOST_CHECKS = 300;           // of texts in balance
constexpr ULO MOST_CHECKED = ULO(4) << 20; // bytes of them
constexpr ULO SAMPLED = 16;                // tokens of which one is tried first
constexpr ULO MOST_MISPLACED = 64;         // forms that a line is behind

struct token {
    ULO from, to; // bytes of the text
    file_place at;
    CHR kind; // '(' ')' or 'a' for all else
};

bool ends_word(CHR c) { return static_cast<UCH>(c) <= ' ' || c == '(' || c == ')' || c == '#'; }

// Where a token that is no parenthesis ends; strings may be part of it.
ULO end_of_word(std::string_view text, ULO i)
{
    bool in_string = false;
    for (; i < text.size() && text[i] != '\n' && (in_string || !ends_word(text[i])); i++) {
        if (text[i] == '"') in_string = !in_string;
        if (in_string && text[i] == '\\') i++;
    }
    return std::min(i, text.size());
}

std::vector<token> tokens_of(std::string_view text)
{
    std::vector<token> found;
    ULO line = 1, begin = 0;
    for (ULO i = 0; i < text.size();) {
        const CHR c = text[i];
        if (c == '\n') {
            line++;
            begin = ++i;
        } else if (c == '#') {
            i = std::min(text.find('\n', i), text.size());
        } else if (static_cast<UCH>(c) <= ' ') {
            i++;
        } else {
            const bool is_bracket = c == '(' || c == ')';
            const ULO end = is_bracket ? i + 1 : end_of_word(text, i);
            found.push_back({i, end, {line, i - begin + 1}, is_bracket ? c : 'a'});
            i = end;
        }
    }
    return found;
}

// -- What a text looks like with a change ------------------------------------------------------

enum change_kind { NO_CHANGE, CLOSE_BEHIND, OPEN_BEFORE, LEAVE_OUT };

// A change at a token.
struct change {
    change_kind kind = NO_CHANGE;
    ULO token = 0;
};

// Less is better, the first first.
struct score {
    ULO unmatched = 0, misplaced = 0;
    auto key() const { return std::tie(unmatched, misplaced); }
    bool operator<(const score &other) const { return key() < other.key(); }
    bool operator==(const score &other) const { return key() == other.key(); }
};

// The open forms along a walk over the tokens.
class layout {
public:
    // The next token, with a change at it.
    void pass(const token &t, change_kind made = NO_CHANGE);
    ULO depth() const { return left_out_ + forms_.size(); }
    ULO alone() const { return result_.unmatched; } // closing parentheses
    ULO misplaced() const { return result_.misplaced; }
    score result() const { return {alone() + depth(), misplaced()}; }
    // Only the innermost forms are looked at from here on: a walk over fewer tokens is cheap to
    // copy.
    void keep_innermost(ULO forms)
    {
        if (forms >= forms_.size()) return;
        left_out_ += forms_.size() - forms;
        forms_.erase(forms_.begin(), forms_.end() - static_cast<SLO>(forms));
    }

private:
    void begin_line(ULO column, bool closes);
    void open(ULO column) { forms_.push_back({column_, column, 0}); }
    void close()
    {
        if (forms_.empty())
            result_.unmatched++;
        else
            forms_.pop_back();
    }
    struct open_form {
        ULO line; // column of the first token in its line
        ULO column;
        ULO inside; // of the first line in it, 0 if there was none
    };
    std::vector<open_form> forms_;
    ULO left_out_ = 0; // around them
    ULO line_ = 0, column_ = 0, outermost_ = 0;
    bool closes_only_ = false; // the line, so far
    score result_;
};

void layout::begin_line(ULO column, bool closes)
{
    column_ = column;
    closes_only_ = closes;
    if (closes) {
        const bool is_below =
            !forms_.empty() && (column == forms_.back().line || column == forms_.back().column);
        result_.misplaced += !is_below;
        return;
    }
    ULO &wanted = forms_.empty() ? outermost_ : forms_.back().inside;
    ULO still_open = 0; // of the forms that the line should be behind
    for (ULO i = forms_.size();
         i > 0 && column <= forms_[i - 1].line && still_open < MOST_MISPLACED; i--)
        still_open++;
    if (still_open != 0)
        result_.misplaced += still_open;
    else if (wanted == 0)
        wanted = column;
    else
        result_.misplaced += wanted != column;
}

void layout::pass(const token &t, change_kind made)
{
    if (t.at.line != line_) begin_line(t.at.column, t.kind == ')' && made != LEAVE_OUT);
    line_ = t.at.line;
    if (t.kind != ')' && closes_only_) result_.misplaced++;
    closes_only_ = closes_only_ && t.kind == ')';
    if (made == OPEN_BEFORE) open(t.at.column);
    if (t.kind == '(' && made != LEAVE_OUT) open(t.at.column);
    if (t.kind == ')' && made != LEAVE_OUT) close();
    if (made == CLOSE_BEHIND) close();
}

layout walk_over(const std::vector<token> &tokens)
{
    layout walk;
    for (const token &t : tokens) walk.pass(t);
    return walk;
}

// -- The search --------------------------------------------------------------------------------

// Parentheses of a text without their partners in it.
class balance {
public:
    balance(ULO alone, ULO open) : alone_(alone), open_(open) {}
    void put_behind(CHR kind)
    {
        if (kind == '(') open_++;
        if (kind == ')') open_ == 0 ? alone_++ : open_--;
    }
    void put_ahead(CHR kind)
    {
        if (kind == '(') alone_ == 0 ? open_++ : alone_--;
        if (kind == ')') alone_++;
    }
    ULO unmatched_with(const balance &behind) const
    {
        const ULO pairs = std::min(open_, behind.alone_);
        return alone_ + open_ + behind.alone_ + behind.open_ - 2 * pairs;
    }

private:
    ULO alone_, open_;
};

class search {
public:
    search(const std::string &text, const std::function<ULO(const std::string &)> &count_faults)
        : text_(text), tokens_(tokens_of(text)), plain_(walk_over(tokens_)),
          count_faults_(count_faults)
    {
    }
    // How many parentheses are alone.
    ULO unmatched() const { return plain_.result().unmatched; }
    change find();
    fault tell(const change &made, mended_text *file) const;
    std::string text_with(const change &made) const;
    // Where a parenthesis is put behind a token, or any token's change is made.
    file_place place_of(const change &made) const;

private:
    struct attempt {
        change_kind kind;
        CHR letter; // of the tokens, 0 for any
    };
    void choose_range();
    void sum_up();
    void try_all(const attempt &tried, ULO step);
    void take(const change &made, const layout &ahead);
    ULO unmatched_with(const change &made, const layout &ahead) const;
    ULO first_alone() const;
    ULO open_form_at(ULO token) const;
    std::string_view word_behind(ULO token) const;

    const std::string &text_;
    const std::vector<token> tokens_;
    const layout plain_; // without a change
    const std::function<ULO(const std::string &)> &count_faults_;
    ULO from_ = 0, to_ = 0;       // tokens at which changes are tried
    ULO seen_to_ = 0;             // and whose consequences are looked at up to here
    layout before_;               // the walk up to from_
    std::vector<balance> behind_; // of the tokens from each of these up to seen_to_
    score best_ = {~ULO(0), ~ULO(0)};
    std::vector<change> equals_; // all changes with that score
};

// All tokens, or of a long text those around the first line that is out of its place.
void search::choose_range()
{
    seen_to_ = to_ = tokens_.size();
    if (to_ <= SHORT_TEXT) return;
    layout walk;
    ULO suspect = 0;
    while (suspect < to_ && walk.result().misplaced == 0) walk.pass(tokens_[suspect++]);
    from_ = suspect > SHORT_TEXT / 4 ? suspect - SHORT_TEXT / 4 : 0;
    to_ = std::min(suspect + SHORT_TEXT / 16, to_);
    seen_to_ = std::min(to_ + SHORT_TEXT / 4, seen_to_);
    for (ULO i = 0; i < from_; i++) before_.pass(tokens_[i]);
    before_.keep_innermost(seen_to_ - from_ + MOST_MISPLACED);
}

void search::sum_up()
{
    behind_.assign(seen_to_ - from_ + 1, {0, 0});
    for (ULO i = seen_to_; i > from_; i--) {
        behind_[i - 1 - from_] = behind_[i - from_];
        behind_[i - 1 - from_].put_ahead(tokens_[i - 1].kind);
    }
}

ULO search::unmatched_with(const change &made, const layout &ahead) const
{
    balance sum(ahead.alone(), ahead.depth());
    if (made.kind == OPEN_BEFORE) sum.put_behind('(');
    if (made.kind != LEAVE_OUT) sum.put_behind(tokens_[made.token].kind);
    if (made.kind == CLOSE_BEHIND) sum.put_behind(')');
    return sum.unmatched_with(behind_[made.token + 1 - from_]);
}

// The walk is given up where it can only become worse than the best so far.
void search::take(const change &made, const layout &ahead)
{
    const ULO unmatched = unmatched_with(made, ahead);
    if (unmatched > best_.unmatched) return;
    const ULO most = unmatched < best_.unmatched ? ~ULO(0) : best_.misplaced;
    layout walk = ahead;
    for (ULO i = made.token; i < seen_to_ && walk.misplaced() <= most; i++)
        walk.pass(tokens_[i], made.token == i ? made.kind : NO_CHANGE);
    if (walk.misplaced() > most) return;
    const score now = {unmatched, walk.misplaced()};
    if (now < best_) equals_.clear();
    best_ = now;
    equals_.push_back(made);
}

// Tries a change at each token, or at one in so many.
void search::try_all(const attempt &tried, ULO step)
{
    layout ahead = before_;
    for (ULO i = from_; i < to_; i++) {
        const bool fits = tried.letter == 0 || tokens_[i].kind == tried.letter;
        if (fits && (i - from_) % step == 0) take({tried.kind, i}, ahead);
        ahead.pass(tokens_[i]);
    }
}

// The first closing parenthesis without a partner.
ULO search::first_alone() const
{
    ULO depth = 0, i = 0;
    for (; i + 1 < tokens_.size(); i++) {
        if (tokens_[i].kind == ')' && depth == 0) break;
        depth += (tokens_[i].kind == '(') - (tokens_[i].kind == ')');
    }
    return i;
}

// Of the changes that leave the best layout the one that the checker likes best; of equals the
// last.
change search::find()
{
    constexpr attempt closing_alone[] = {{OPEN_BEFORE, 'a'}, {LEAVE_OUT, ')'}};
    constexpr attempt opening_alone[] = {{LEAVE_OUT, '('}, {CLOSE_BEHIND, 0}};
    choose_range();
    sum_up();
    const auto &attempts = plain_.depth() < unmatched() ? closing_alone : opening_alone;
    // A good change that is known early lets bad ones be given up early.
    for (const attempt &tried : attempts) try_all(tried, SAMPLED);
    equals_.clear();
    for (const attempt &tried : attempts) try_all(tried, 1);
    if (equals_.empty()) return {LEAVE_OUT, first_alone()};
    change chosen = equals_.back();
    if (unmatched() > 1) return chosen;
    const ULO most = std::min(MOST_CHECKS, MOST_CHECKED / text_.size() + 1);
    ULO least = ~ULO(0), checks = 0;
    for (ULO i = equals_.size(); i > 0 && least > 0 && checks < most; i--, checks++) {
        const ULO faults = count_faults_(text_with(equals_[i - 1]));
        if (faults >= least) continue;
        least = faults;
        chosen = equals_[i - 1];
    }
    return chosen;
}

std::string search::text_with(const change &made) const
{
    const token &t = tokens_[made.token];
    std::string text = text_;
    if (made.kind == CLOSE_BEHIND) text.insert(t.to, ")");
    if (made.kind == OPEN_BEFORE) text.insert(t.from, "(");
    if (made.kind == LEAVE_OUT) text[t.from] = ' ';
    return text;
}

// The innermost form that is open behind a token, as the number of its parenthesis.
ULO search::open_form_at(ULO token) const
{
    std::vector<ULO> open;
    for (ULO i = 0; i <= token; i++) {
        if (tokens_[i].kind == '(') open.push_back(i);
        if (tokens_[i].kind == ')' && !open.empty()) open.pop_back();
    }
    return open.empty() ? 0 : open.back();
}

std::string_view search::word_behind(ULO token) const
{
    if (token + 1 >= tokens_.size() || tokens_[token + 1].kind != 'a') return {};
    const auto &word = tokens_[token + 1];
    return std::string_view(text_).substr(word.from, word.to - word.from);
}

file_place search::place_of(const change &made) const
{
    const token &t = tokens_[made.token];
    return {t.at.line, t.at.column + (made.kind == CLOSE_BEHIND ? t.to - t.from : 0)};
}

fault search::tell(const change &made, mended_text *file) const
{
    const file_place at = file->in_file(place_of(made));
    if (made.kind == OPEN_BEFORE) return {at, "`(' is missing in front of this"};
    if (made.kind == LEAVE_OUT)
        return {at, tokens_[made.token].kind == ')' ? "this `)' is one too many"
                                                    : "this `(' is never closed"};
    const ULO open = open_form_at(made.token);
    const file_place of = file->in_file(tokens_[open].at);
    file->closed.push_back(of);
    const std::string where = std::to_string(of.line) + ":" + std::to_string(of.column);
    return {at, "`)' is missing: `(" + std::string(word_behind(open)) + "' of " + where +
                    " is not closed"};
}

} // namespace

file_place mended_text::in_file(file_place at) const
{
    for (auto last = put_in.rbegin(); last != put_in.rend(); ++last)
        if (last->line == at.line && last->column < at.column) at.column--;
    return at;
}

bool mend_balance(mended_text *file, std::vector<fault> *faults,
                  const std::function<ULO(const std::string &)> &count_faults)
{
    for (;;) {
        search here(file->text, count_faults);
        if (here.unmatched() == 0) return true;
        const change made = here.find();
        const fault found = here.tell(made, file);
        const auto stands_there = [&](const fault &f) { return f.at.line == found.at.line; };
        if (std::none_of(faults->begin(), faults->end(), stands_there)) faults->push_back(found);
        if (here.unmatched() > MOST_CHANGES) return false;
        std::string changed = here.text_with(made);
        if (made.kind != LEAVE_OUT) file->put_in.push_back(here.place_of(made));
        file->text = std::move(changed);
    }
}
