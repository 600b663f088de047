// The plain type pass; one function for each rule.

#include "tests/kit/plain_types.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "tests/kit/passes.h"

namespace kit {
namespace {

using type_rows = std::map<std::string, UCH>;
using token_list = std::vector<std::string>;

token_list tokens_of(std::string text)
{
    token_list tokens;
    while (!text.empty()) {
        tokens.push_back(passed(text, [](CHR **targ) { lsp_head(targ, *targ); }));
        text = passed(text, [](CHR **targ) { lsp_tail(targ, *targ); });
    }
    return tokens;
}

// Word and arguments of a form, and the form again.
token_list parts_of(const std::string &form) { return tokens_of(form.substr(1, form.size() - 2)); }

std::string form_of(const token_list &parts)
{
    std::string text = "(";
    for (const std::string &part : parts) text += (text.size() > 1 ? " " : "") + part;
    return text + ")";
}

UCH class_of(const std::string &token)
{
    switch (token[0]) {
    case '"': return 'S';
    case '$': return 'P';
    case '(': return 'U';
    }
    if (token == "NIL") return 'Z';
    if (token[0] >= 'A' && token[0] <= 'Z') return 'V';
    return token.find_first_of(".Ee") == token.npos ? 'I' : 'F';
}

std::string suffix(UCH letter) { return std::string("@") + CHR(letter); }

bool is_a(const std::string &word, group g) { return cmp_mnm(word, group_string(g)); }

// Takes back the suffixes of variables that the table at the end does not confirm.
void sweep(std::string *text, const type_rows &types)
{
    const auto mark = text->size() < 3 ? 0 : text->size() - 2;
    if ((*text)[0] != '(') {
        if (class_of(*text) != 'V' || (*text)[mark] != '@') return;
        const auto found = types.find(text->substr(0, mark));
        if (found == types.end() || found->second != UCH(text->back())) text->resize(mark);
        return;
    }
    token_list all = parts_of(*text);
    if (is_a(all[0], GROUP_DEFUN)) return;
    for (ULO i = 1; i < all.size(); i++) sweep(&all[i], types);
    const std::string bare = all[0].substr(0, all[0].find('@'));
    if ((is_a(bare, GROUP_ARSETQ) || is_a(bare, GROUP_INDEX)) && all[1].find('@') == all[1].npos)
        all[0] = bare;
    *text = form_of(all);
}

// One function. The arguments of a form are a[1], a[2] and so on.
struct plain_pass {
    std::string *udf_types;
    type_rows *types;
    std::set<std::string> *arrays;
    bool deep = true; // loops are rehearsed

    UCH row(const std::string &name) const
    {
        const auto found = types->find(name);
        return found == types->end() ? 0 : found->second;
    }
    UCH walk_copy(std::string text) { return walk(&text); }

    UCH token(std::string *token)
    {
        const UCH kind = class_of(*token);
        if (kind != 'V' && kind != 'P') return kind;
        const UCH letter = row(*token);
        if (letter == 0) return 'U';
        if (letter != 'U' && kind == 'V') *token += suffix(letter);
        return letter;
    }

    UCH progn(token_list &a)
    {
        UCH result = 'U', at_break = 0;
        for (ULO i = 1; i < a.size(); i++) {
            const bool ends = a[i][0] == '(' && is_a(parts_of(a[i])[0], GROUP_BREAK);
            result = walk(&a[i]);
            if (ends) at_break = result;
        }
        return at_break ? at_break : result;
    }

    // The variable `*target` gets a value of a known type.
    void confirm(std::string *target, UCH t)
    {
        types->try_emplace(*target, t);
        if (row(*target) != t)
            (*types)[*target] = 'U';
        else if (class_of(*target) != 'P')
            *target += suffix(t);
    }

    UCH setq(token_list &a)
    {
        const UCH t = walk(&a[2]);
        if (t == 'U') return (*types)[a[1]] = 'U';
        confirm(&a[1], t);
        a[0] += suffix(t);
        return t;
    }

    UCH arsetq(token_list &a)
    {
        const std::string value = a[3];
        const UCH index = walk(&a[2]), t = walk(&a[3]);
        arrays->insert(a[1]);
        const bool copies = class_of(value) == 'V' && arrays->count(value);
        if (copies || t == 'U' || index != 'I') return (*types)[a[1]] = 'U';
        confirm(&a[1], t);
        a[0] += suffix(t);
        return t;
    }

    UCH index(token_list &a)
    {
        const bool by_integer = walk(&a[2]) == 'I';
        const UCH letter = token(&a[1]);
        if (by_integer && letter != 'U') a[0] += suffix(letter);
        return letter;
    }

    UCH alindex(token_list &a)
    {
        if (walk(&a[2]) == 'I') a[0] += "@J";
        token(&a[1]);
        return 'U';
    }

    UCH defun(token_list &a)
    {
        std::set<std::string> own_arrays; // the second walk knows those of the first
        const auto walk_body = [&](std::string *body, UCH result) {
            std::string known = *udf_types + a[1] + "\xFE" + CHR(result) + "\xFF";
            type_rows rows;
            const UCH letter = plain_pass{&known, &rows, &own_arrays}.walk(body);
            sweep(body, rows);
            return letter;
        };
        std::string copy = a[2];
        const UCH letter = walk_body(&a[2], walk_body(&copy, 'U'));
        *udf_types += a[1] + "\xFE" + CHR(letter) + "\xFF";
        return 'S';
    }

    UCH branches(token_list &a)
    {
        if (walk(&a[1]) == 'I') a[0] += "@J";
        const UCH yes = walk(&a[2]), no = walk(&a[3]);
        return yes == no ? yes : 'U';
    }

    UCH loop(token_list &a)
    {
        const bool outer = std::exchange(deep, false);
        for (ULO i = 1; outer && i < a.size(); i++) walk_copy(a[i]);
        if (walk(&a[1]) == 'I') a[0] += "@J";
        walk(&a[2]);
        deep = outer;
        return 'I';
    }

    UCH counted_loop(token_list &a)
    {
        const bool outer = std::exchange(deep, false);
        walk_copy(form_of({"SETQ", a[1], a[2]}));
        for (ULO i = 3; outer && i < a.size(); i++) walk_copy(a[i]);
        const UCH start = walk(&a[2]);
        if (start != 'U' && row(a[1]) == start)
            a[1] += suffix(start);
        else
            (*types)[a[1]] = 'U';
        const UCH increment = walk(&a[3]), end = walk(&a[4]);
        walk(&a[5]);
        if (start == 'I' && increment == 'I' && end == 'I') a[0] += "@J";
        deep = outer;
        return 'I';
    }

    // By the letters of the operands. 0 if the word is of no table.
    UCH instruction(token_list &a)
    {
        std::string letters, actual;
        UCH result = 0;
        for (ULO i = 0; i < isa_count; i++)
            if (view(*isa_table[i].mnemonic) == a[0])
                result = isa_table[i].ret_type, letters = view(isa_table[i].op_type);
        if (result == 0) return 0;
        for (ULO i = 1; i < a.size(); i++) actual += CHR(walk(&a[i]));
        const std::string d = letters.substr(0, actual.size());
        if (d.empty() || actual.back() == 'U' || d.find_first_not_of('-') == d.npos) return result;
        if (d[0] == 'U' || (d.find_first_not_of('E') == d.npos &&
                            actual.find_first_not_of(actual.back()) == actual.npos))
            a[0] += suffix(UCH(actual.back()));
        else if (d == actual)
            a[0] += "@J";
        return result;
    }

    UCH call(token_list &a)
    {
        for (ULO i = 1; i < a.size(); i++) walk(&a[i]);
        const auto place = udf_types->find("\xFF" + a[0] + "\xFE");
        return place == udf_types->npos ? 'U' : UCH((*udf_types)[place + a[0].size() + 2]);
    }

    UCH rule(token_list &a)
    {
        const std::string word = a[0];
        if (is_a(word, GROUP_PROGN)) return progn(a);
        if (is_a(word, GROUP_SETQ) || is_a(word, GROUP_ALSETQ)) return setq(a);
        if (is_a(word, GROUP_ARSETQ)) return arsetq(a);
        if (is_a(word, GROUP_INDEX)) return index(a);
        if (is_a(word, GROUP_ALINDEX)) return alindex(a);
        if (is_a(word, GROUP_DEFUN)) return defun(a);
        if (is_a(word, GROUP_IF)) return branches(a);
        if (is_a(word, GROUP_WHILE)) return loop(a);
        if (is_a(word, GROUP_FOR)) return counted_loop(a);
        const UCH result = instruction(a);
        return result == 0 ? call(a) : result;
    }

    UCH walk(std::string *text)
    {
        if ((*text)[0] != '(') return token(text);
        token_list parts = parts_of(*text);
        const UCH result = rule(parts);
        *text = form_of(parts);
        return result;
    }
};

} // namespace

UCH plain_types(std::string *text, std::string *udf_types)
{
    type_rows types;
    std::set<std::string> arrays;
    const UCH letter = plain_pass{udf_types, &types, &arrays}.walk(text);
    sweep(text, types);
    return letter;
}

} // namespace kit
