// Prints what each word of programs is to the engine: "file:line:column:bytes:class". An editor's
// grammar has to say the same.
//
//   word_classes FILE ...
//
// The tokens are those of the outline. What the checked tree of a program without faults says of a
// token is compared with it.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "editors/word_class.h"
#include "frontend/token.h"
#include "workshop/outline.h"
#include "workshop/program.h"

namespace {

using letters = std::map<std::pair<ULO, ULO>, CHR>; // of the tokens of a checked tree, by place

void collect(const tree &t, node_index n, letters *found)
{
    const node &one = t.nodes[n];
    const file_place at = t.place_of(one);
    if (at.line != 0 && one.letter != 'U') found->insert({{at.line, at.column}, one.letter});
    for (node_index i = one.first; i != NO_NODE; i = t.nodes[i].next) collect(t, i, found);
}

std::string_view class_of_letter(UCH letter)
{
    switch (letter) {
    case 'I': return "integer";
    case 'F': return "float";
    case 'S': return "string";
    case 'Z': return "nil";
    case 'P': return "argument";
    case 'V': return "variable";
    default: return "refused";
    }
}

class printer {
public:
    printer(const source &from, letters known) : from_(from), known_(std::move(known)) {}

    void print()
    {
        if (pieces_[0].first != NO_PIECE) print_all(pieces_[0].first, false);
    }

private:
    // The pieces of a form, or of the program, which has no first word of its own.
    void print_all(piece_index n, bool is_form)
    {
        bool is_word = is_form, is_name = false;
        for (; n != NO_PIECE; n = pieces_[n].next) {
            const piece &p = pieces_[n];
            if (p.kind == piece_kind::FORM && p.first != NO_PIECE) print_all(p.first, true);
            if (p.kind == piece_kind::NOTE) print_one(p, "note");
            if (p.kind == piece_kind::REMARK) print_one(p, "remark");
            if (p.kind == piece_kind::TOKEN)
                print_one(p, is_word ? class_of_first(p) : is_name ? "name" : class_of_token(p));
            if (!p.is_code()) continue;
            is_name = is_word && defines(p);
            is_word = false;
        }
    }

    static const instruction_word *instruction(const piece &token)
    {
        std::string folded;
        append_folded(&folded, token.text);
        return find_word(folded);
    }
    static bool defines(const piece &token)
    {
        return (groups_of(instruction(token)) & in(GROUP_DEFUN)) != 0;
    }

    static std::string_view class_of_first(const piece &token)
    {
        if (token.text.starts_with('"')) return "string";
        const instruction_word *word = instruction(token);
        return word == nullptr ? "call" : class_of_word(token.text, word->groups);
    }

    std::string_view class_of_token(const piece &token) const
    {
        std::string ignored;
        const std::string_view name = class_of_letter(kestrin_type(token.text, &ignored));
        const auto known = known_.find({token.begin.line, token.begin.column});
        if (known == known_.end() || class_of_letter(known->second) == name) return name;
        fprintf(stderr, "%s:%lu:%lu: the tree has another class\n", from_.name.c_str(),
                token.begin.line, token.begin.column);
        exit(1);
    }

    void print_one(const piece &p, std::string_view name) const
    {
        printf("%s:%lu:%lu:%lu:%.*s\n", from_.name.c_str(), p.begin.line, p.begin.column,
               p.text.size(), int(name.size()), name.data());
    }

    const source &from_;
    const letters known_;
    const outline pieces_ = outline_of(from_.text);
};

} // namespace

int main(int argc, char **argv)
{
    start_workshop();
    for (int i = 1; i < argc; i++) {
        source from;
        std::string why;
        if (!read_source(argv[i], &from, &why)) {
            fprintf(stderr, "%s\n", why.c_str());
            return 1;
        }
        if (!faults_of_balance(from).empty()) continue;
        known_functions known;
        program p;
        letters found;
        if (check_program(from, &p, &known.table)) collect(p.parsed, p.parsed.root, &found);
        printer(from, std::move(found)).print();
    }
}
