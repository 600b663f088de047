// Any bytes as the edits of a document. After each the text is that of a model that knows nothing
// of lines but how they end, and every question gets an answer. In a program without faults a name
// that is replaced brings none in; the faults that are told are those of kst check.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vm/stack.h"
#include "workshop/check.h"
#include "workshop/completion.h"
#include "workshop/lsp_answers.h"
#include "workshop/program.h"

namespace {

void require(bool holds)
{
    if (!holds) abort();
}

struct piece_of_text {
    std::string_view utf8;
    std::u16string_view utf16;
};
#define PIECE(text)                                                                                \
    {                                                                                              \
        text, u##text                                                                              \
    }
constexpr piece_of_text pieces[] = {PIECE("("),
                                    PIECE(")"),
                                    PIECE("(setq "),
                                    PIECE(" a"),
                                    PIECE(" b"),
                                    PIECE("(defun "),
                                    PIECE("f"),
                                    PIECE(" g"),
                                    PIECE("$1"),
                                    PIECE(" "),
                                    PIECE("\n"),
                                    PIECE("\r\n"),
                                    PIECE("\r"),
                                    PIECE("\""),
                                    PIECE("#"),
                                    PIECE("\\"),
                                    PIECE(" 1"),
                                    PIECE("é"),
                                    PIECE("𝒳"),
                                    PIECE("(rem "),
                                    PIECE("(defun f (+ $1 1))\n"),
                                    PIECE("(setq a (f 2)) "),
                                    PIECE("(f a)"),
                                    PIECE("(progn (defun g (progn (setq b $1) (f b))) (g 2))\n"),
                                    PIECE(""),
                                    PIECE("(nosuch a)"),
                                    PIECE("(for i 1 1 9 (setq a i))\n"),
                                    PIECE("\"text\"")};

// A program without faults is made of any of these, in this order.
constexpr piece_of_text sound_parts[] = {
    PIECE("(defun f (progn (defun h (+ $1 1)) (setq a (h $1)) a)) # é\n"),
    PIECE("(defun g (progn (setq a 1) (setq b 2) (defun k (progn (setq a 3) A)) (+ a b)))\n"),
    PIECE("(setq a 1) (setq b (+ a 1))\n(for i 1 1 9 (setq a (+ i b)))\n"),
    PIECE("(defun m (if $1 (M (- $1 1)) 0)) (m (m 3))\n")};
#undef PIECE

template <class Char> class model {
public:
    ULO at(text_place place) const
    {
        ULO begin = 0, line = 0;
        for (ULO i = 0; i < text.size() && line < place.line; i++)
            if (ends_line(i)) begin = i + 1, line++;
        if (line < place.line) return text.size();
        ULO end = begin;
        while (end < text.size() && text[end] != '\n' && text[end] != '\r') end++;
        ULO found = begin + std::min<ULO>(place.character, end - begin);
        while (found < end && goes_on(text[found])) found--;
        return found;
    }
    void change(text_place from, text_place to, std::basic_string_view<Char> by)
    {
        const ULO begin = at(from), end = std::max(begin, at(to));
        text.replace(begin, end - begin, by);
    }

    std::basic_string<Char> text;

private:
    bool ends_line(ULO i) const
    {
        return text[i] == '\n' ||
               (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'));
    }
    static bool goes_on(Char unit)
    {
        return sizeof(Char) == 1 ? (unit & 0xC0) == 0x80 : (unit & 0xFC00) == 0xDC00;
    }
};

class choices {
public:
    choices(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}
    bool are_left() const { return size_ > 0; }
    ULO below(ULO n)
    {
        if (size_ == 0) return 0;
        size_--;
        return *data_++ % n;
    }
    text_place place()
    {
        const ULO line = below(8), character = below(40);
        return {line, character == 39 ? ~ULO(0) : character};
    }

private:
    const std::uint8_t *data_;
    std::size_t size_;
};

std::string texts_of(const std::vector<fault> &faults)
{
    std::string texts;
    for (const fault &one : faults) texts.append(one.text).append("\n");
    return texts;
}

// What is told of the text is what is told of one that came in whole.
void check_diagnostics(const document &doc, units counted)
{
    const json told = diagnostics_of(doc);
    require(told == diagnostics_of(document(doc.text(), 1, counted)));
    std::string texts;
    for (const json &one : told) texts.append(string_in(member(one, {"message"}))).append("\n");
    require(texts == texts_of(check_source({"", doc.text()})));
}

json place_json(text_place place) { return {{"line", place.line}, {"character", place.character}}; }

bool is_sound(const std::string &text)
{
    for (const fault &one : check_source({"", text}))
        if (!one.is_warning) return false;
    return true;
}

// From the last edit on: places ahead of it stay.
void make_edits(document *doc, const json &edits)
{
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit)
        doc->change(place_in(member(*edit, {"range", "start"})),
                    place_in(member(*edit, {"range", "end"})),
                    string_in(member(*edit, {"newText"})));
}

json rename(const document &doc, const surroundings &around, text_place at, std::string_view name)
{
    const json params = {
        {"textDocument", {{"uri", "u"}}}, {"position", place_json(at)}, {"newName", name}};
    for (const lsp_method &method : lsp_methods())
        if (method.name == "textDocument/rename")
            return member(method.run({params, &doc, around}).result, {"changes", "u"});
    abort();
}

// What is one under the new name is what was one under the old one.
void check_rename(const document &doc, units counted, text_place at, std::string_view name)
{
    const name_use *use = doc.names().use_at(doc.byte_at(at));
    const surroundings around;
    const json edits = rename(doc, around, at, name);
    if (!edits.is_array() || !is_sound(doc.text())) return;
    const std::string old = doc.text().substr(use->from, use->size);
    ULO from = use->from;
    for (const json &edit : edits)
        if (doc.byte_at(place_in(member(edit, {"range", "start"}))) < use->from)
            from += name.size() - old.size();
    document renamed(doc.text(), 1, counted);
    make_edits(&renamed, edits);
    require(is_sound(renamed.text()));
    make_edits(&renamed, rename(renamed, around, renamed.place_at(from), old));
    require(lower_case(renamed.text()) == lower_case(doc.text()));
}

void ask_all(const document &doc, units counted, choices *from)
{
    const surroundings around = {nullptr, "", true, from->below(2) == 1, true, false};
    constexpr const char *names[] = {"a", "g", "new_name", "SETQ", "2", "f#", "F", ""};
    const json params = {{"textDocument", {{"uri", "u"}}},
                         {"position", place_json(from->place())},
                         {"context", {{"includeDeclaration", true}}},
                         {"newName", names[from->below(8)]}};
    for (const lsp_method &method : lsp_methods()) method.run({params, &doc, around});
    check_rename(doc, counted, place_in(member(params, {"position"})),
                 string_in(member(params, {"newName"})));
}

std::string utf8_of(const std::string &text) { return text; }

// Halves of pairs do not stand alone.
std::string utf8_of(const std::u16string &text)
{
    std::string bytes;
    for (ULO i = 0; i < text.size(); i++) {
        ULO code = text[i];
        if (code >= 0xD800 && code < 0xDC00)
            code = 0x10000 + ((code - 0xD800) << 10) + (ULO(text[++i]) - 0xDC00);
        const ULO parts = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
        constexpr ULO marks[] = {0, 0xC0, 0xE0, 0xF0};
        bytes.push_back(static_cast<char>(marks[parts] | code >> (6 * parts)));
        for (ULO part = parts; part-- > 0;)
            bytes.push_back(static_cast<char>(0x80 | (code >> (6 * part) & 0x3F)));
    }
    return bytes;
}

template <class Char> void edit(choices from, units counted)
{
    document doc("", 1, counted);
    model<Char> wanted;
    const auto put = [&](text_place begin, text_place end, const piece_of_text &by) {
        doc.change(begin, end, by.utf8);
        if constexpr (sizeof(Char) == 1)
            wanted.change(begin, end, by.utf8);
        else
            wanted.change(begin, end, by.utf16);
    };
    for (const piece_of_text &part : sound_parts)
        if (from.below(2) == 1) put({8, 0}, {8, 0}, part);
    while (from.below(8) > 2) ask_all(doc, counted, &from);
    while (from.are_left()) {
        const text_place begin = from.place(), end = from.below(2) == 0 ? begin : from.place();
        put(begin, end, pieces[from.below(std::size(pieces))]);
        require(doc.text() == utf8_of(wanted.text));
        const text_place place = doc.place_at(doc.byte_at(begin));
        require(doc.byte_at(place) == doc.byte_at(begin));
        if (from.below(4) == 0) ask_all(doc, counted, &from);
    }
    check_diagnostics(doc, counted);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool started = (start_workshop(), find_stack_floor(), true);
    require(started);
    if (size < 300 && size % 2 == 0)
        edit<char16_t>({data, size}, units::UTF16);
    else
        edit<char>({data, std::min<std::size_t>(size, 300)}, units::UTF8);
    return 0;
}
