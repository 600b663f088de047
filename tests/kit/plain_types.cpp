// The plain type pass; one function for each rule.

#include "tests/kit/plain_types.h"

#include <vector>

#include "frontend/groups.h"
#include "frontend/isa.h"
#include "strings/scratch.h"

namespace kit {
namespace {

std::string head_of(const std::string &text)
{
    scratch source, token;
    assign(&source.s, text);
    return std::string(view(lsp_head(&token.s, source.s)));
}

std::string tail_of(const std::string &text)
{
    scratch source, rest;
    assign(&source.s, text);
    return std::string(view(lsp_tail(&rest.s, source.s)));
}

std::vector<std::string> tokens_of(std::string text)
{
    std::vector<std::string> tokens;
    for (; !text.empty(); text = tail_of(text)) tokens.push_back(head_of(text));
    return tokens;
}

std::string inside(const std::string &form) { return form.substr(1, form.size() - 2); }

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

struct plain_pass {
    std::string *udf_types;
    type_rows *types;
    array_rows *arrays;

    UCH row(const std::string &name) const
    {
        const auto found = types->find(name);
        return found == types->end() ? 0 : found->second;
    }

    UCH walk(std::string *text, bool deep);
    UCH walk_copy(std::string text, bool deep) { return walk(&text, deep); }
    UCH walk_token(std::string *token);
    UCH progn(std::vector<std::string> *a, bool deep);
    UCH setq(std::string *word, std::vector<std::string> *a, bool deep);
    UCH arsetq(std::string *word, std::vector<std::string> *a, bool deep);
    UCH index(std::string *word, std::vector<std::string> *a, bool deep);
    UCH alindex(std::string *word, std::vector<std::string> *a, bool deep);
    UCH defun(std::vector<std::string> *a);
    UCH branches(std::string *word, std::vector<std::string> *a, bool deep);
    UCH loop(std::string *word, std::vector<std::string> *a, bool deep);
    UCH counted_loop(std::string *word, std::vector<std::string> *a, bool deep);
    UCH instruction(std::string *word, std::vector<std::string> *a, bool deep, UCH result,
                    std::string letters);
    UCH call(const std::string &word, std::vector<std::string> *a, bool deep);
};

void sweep(std::string *text, const type_rows &types)
{
    if ((*text)[0] != '(') {
        const UCH kind = class_of(*text);
        if ((kind != 'V' && kind != 'P') || text->find('@') == text->npos) return;
        const std::string name = text->substr(0, text->size() - 2);
        const auto found = types.find(name);
        if (found == types.end() || found->second != UCH(text->back())) *text = name;
        return;
    }
    std::vector<std::string> all = tokens_of(inside(*text));
    if (is_a(all[0], GROUP_DEFUN)) return;
    for (ULO i = 1; i < all.size(); i++) sweep(&all[i], types);
    const bool marked = all[0].size() > 2 && all[0][all[0].size() - 2] == '@';
    const std::string bare = marked ? all[0].substr(0, all[0].size() - 2) : all[0];
    if ((is_a(bare, GROUP_ARSETQ) || is_a(bare, GROUP_INDEX)) && all[1].find('@') == all[1].npos)
        all[0] = bare;
    *text = "(" + all[0];
    for (ULO i = 1; i < all.size(); i++) *text += " " + all[i];
    *text += ")";
}

UCH plain_pass::walk_token(std::string *token)
{
    const UCH kind = class_of(*token);
    if (kind != 'V' && kind != 'P') return kind;
    const UCH letter = row(*token);
    if (letter == 0) return 'U';
    if (letter != 'U' && kind == 'V') *token += suffix(letter);
    return letter;
}

UCH plain_pass::progn(std::vector<std::string> *a, bool deep)
{
    UCH result = 'U', at_break = 0;
    for (std::string &argument : *a) {
        const bool ends = argument[0] == '(' && is_a(head_of(inside(argument)), GROUP_BREAK);
        result = walk(&argument, deep);
        if (ends) at_break = result;
    }
    return at_break ? at_break : result;
}

UCH plain_pass::setq(std::string *word, std::vector<std::string> *a, bool deep)
{
    std::string &target = (*a)[0];
    const std::string name = target;
    const UCH t = walk(&(*a)[1], deep);
    if (t == 'U') {
        (*types)[name] = 'U';
        return t;
    }
    if (row(name) == 0) (*types)[name] = t;
    if (row(name) == t) {
        if (class_of(name) != 'P') target += suffix(t);
    } else
        (*types)[name] = 'U';
    *word += suffix(t);
    return t;
}

UCH plain_pass::arsetq(std::string *word, std::vector<std::string> *a, bool deep)
{
    const std::string name = (*a)[0], value = (*a)[2];
    const UCH ti = walk(&(*a)[1], deep), t = walk(&(*a)[2], deep);
    arrays->insert(name);
    const bool copies = class_of(value) == 'V' && arrays->count(value);
    if (copies || t == 'U' || ti != 'I') {
        (*types)[name] = 'U';
        return 'U';
    }
    *word += suffix(t);
    if (row(name) == 0) (*types)[name] = t;
    if (row(name) == t)
        (*a)[0] += suffix(t);
    else
        (*types)[name] = 'U';
    return t;
}

UCH plain_pass::index(std::string *word, std::vector<std::string> *a, bool deep)
{
    const UCH ti = walk(&(*a)[1], deep), letter = row((*a)[0]);
    if (letter == 0 || letter == 'U') return 'U';
    if (class_of((*a)[0]) == 'V') (*a)[0] += suffix(letter);
    if (ti == 'I') *word += suffix(letter);
    return letter;
}

UCH plain_pass::alindex(std::string *word, std::vector<std::string> *a, bool deep)
{
    if (walk(&(*a)[1], deep) == 'I') *word += "@J";
    const UCH letter = row((*a)[0]);
    if (letter != 0 && letter != 'U' && class_of((*a)[0]) == 'V') (*a)[0] += suffix(letter);
    return 'U';
}

UCH plain_pass::defun(std::vector<std::string> *a)
{
    const std::string name = (*a)[0] + "\xFE";
    std::string first_types = *udf_types + name + "U\xFF";
    type_rows first_rows, second_rows;
    array_rows private_arrays;
    plain_pass first = {&first_types, &first_rows, &private_arrays};
    const UCH r1 = first.walk_copy((*a)[1], true);
    std::string second_types = *udf_types + name + CHR(r1) + "\xFF";
    plain_pass second = {&second_types, &second_rows, &private_arrays};
    const UCH r2 = second.walk(&(*a)[1], true);
    sweep(&(*a)[1], second_rows);
    *udf_types += name + CHR(r2) + "\xFF";
    return 'S';
}

UCH plain_pass::branches(std::string *word, std::vector<std::string> *a, bool deep)
{
    if (walk(&(*a)[0], deep) == 'I') *word += "@J";
    const UCH yes = walk(&(*a)[1], deep), no = walk(&(*a)[2], deep);
    return yes == no ? yes : 'U';
}

UCH plain_pass::loop(std::string *word, std::vector<std::string> *a, bool deep)
{
    if (deep)
        for (const std::string &part : *a) walk_copy(part, false);
    const UCH condition = walk(&(*a)[0], false);
    walk(&(*a)[1], false);
    if (condition == 'I') *word += "@J";
    return 'I';
}

UCH plain_pass::counted_loop(std::string *word, std::vector<std::string> *a, bool deep)
{
    const std::string name = (*a)[0];
    walk_copy("(SETQ " + name + " " + (*a)[1] + ")", false);
    if (deep)
        for (ULO i = 2; i < 5; i++) walk_copy((*a)[i], false);
    const UCH ts = walk(&(*a)[1], false);
    if (ts != 'U' && row(name) == ts)
        (*a)[0] += suffix(ts);
    else
        (*types)[name] = 'U';
    const UCH ti = walk(&(*a)[2], false), te = walk(&(*a)[3], false);
    walk(&(*a)[4], false);
    if (ts == 'I' && ti == 'I' && te == 'I') *word += "@J";
    return 'I';
}

UCH plain_pass::instruction(std::string *word, std::vector<std::string> *a, bool deep, UCH result,
                            std::string letters)
{
    std::string actual;
    for (std::string &argument : *a) actual += CHR(walk(&argument, deep));
    const std::string d = letters.substr(0, a->size());
    if (d.empty() || actual.back() == 'U' || d.find_first_not_of('-') == d.npos) return result;
    if (d[0] == 'U' || (d.find_first_not_of('E') == d.npos &&
                        actual.find_first_not_of(actual.back()) == actual.npos))
        *word += suffix(UCH(actual.back()));
    else if (d == actual)
        *word += "@J";
    return result;
}

UCH plain_pass::call(const std::string &word, std::vector<std::string> *a, bool deep)
{
    for (std::string &argument : *a) walk(&argument, deep);
    const auto place = udf_types->find("\xFF" + word + "\xFE");
    return place == udf_types->npos ? 'U' : UCH((*udf_types)[place + word.size() + 2]);
}

UCH plain_pass::walk(std::string *text, bool deep)
{
    if ((*text)[0] != '(') return walk_token(text);
    std::string word = head_of(inside(*text));
    const std::string plain = word;
    std::vector<std::string> a = tokens_of(tail_of(inside(*text)));
    UCH result = 0;
    if (is_a(plain, GROUP_PROGN))
        result = progn(&a, deep);
    else if (is_a(plain, GROUP_SETQ) || is_a(plain, GROUP_ALSETQ))
        result = setq(&word, &a, deep);
    else if (is_a(plain, GROUP_ARSETQ))
        result = arsetq(&word, &a, deep);
    else if (is_a(plain, GROUP_INDEX))
        result = index(&word, &a, deep);
    else if (is_a(plain, GROUP_ALINDEX))
        result = alindex(&word, &a, deep);
    else if (is_a(plain, GROUP_DEFUN))
        result = defun(&a);
    else if (is_a(plain, GROUP_IF))
        result = branches(&word, &a, deep);
    else if (is_a(plain, GROUP_WHILE))
        result = loop(&word, &a, deep);
    else if (is_a(plain, GROUP_FOR))
        result = counted_loop(&word, &a, deep);
    for (ULO i = 0; i < isa_count && result == 0; i++)
        if (view(*isa_table[i].mnemonic) == plain)
            result = instruction(&word, &a, deep, isa_table[i].ret_type,
                                 std::string(view(isa_table[i].op_type)));
    for (ULO i = 0; i < isaext_count && result == 0; i++)
        if (isaext_table[i].fnc_name == plain)
            result = instruction(&word, &a, deep, isaext_table[i].ret_type,
                                 std::string(operand_letters(isaext_table[i])));
    if (result == 0) result = call(plain, &a, deep);
    *text = "(" + word;
    for (const std::string &argument : a) *text += " " + argument;
    *text += ")";
    return result;
}

} // namespace

UCH plain_types(std::string *text, std::string *udf_types)
{
    type_rows types;
    array_rows arrays;
    plain_pass pass = {udf_types, &types, &arrays};
    const UCH letter = pass.walk(text, true);
    sweep(text, types);
    return letter;
}

} // namespace kit
