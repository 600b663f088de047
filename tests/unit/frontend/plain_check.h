// The syntax checker a second time, as plainly as its rules read: texts are copied at every step,
// and the body of a definition is checked twice, so that the cost doubles with each nesting. Tests
// hold the real checker against it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "tests/kit/passes.h"

class plain_checker {
public:
    int code = 0;
    std::string message;

    plain_checker()
    {
        for (ULO i = 0; i < isa_count; i++)
            table_[std::string(view(*isa_table[i].mnemonic))] = {0, isa_table[i].operands};
    }

    SLO check(std::string *text, const std::string &path)
    {
        argument_set arguments;
        *text = std::string(trimmed(*text));
        return form(text, {path, &arguments, true, 1});
    }

private:
    struct known {
        ULO scope;
        SLO operands;
    };
    std::map<std::string, known> table_;
    ULO scope_ = 1;

    // Where a form stands. Level 1: the text, 2: a body, 3: in a PROGN of these, 0: further in.
    struct place {
        std::string path;
        argument_set *arguments;
        bool terminators;
        int level;
    };
    struct word {
        std::string name;
        group_set groups;
        bool is(group g) const { return (groups & in(g)) != 0; }
    };

    SLO error(int which, const std::string &text)
    {
        code = which;
        message = text;
        return -1;
    }
    SLO error(int which, const place &at, const std::string &text)
    {
        return error(which, "In function `" + at.path + "': " + text);
    }
    static word word_of(const std::string &token)
    {
        std::string folded;
        append_folded(&folded, token);
        return {folded, word_groups(folded)};
    }
    static bool framed(const std::string &t, char open, char close)
    {
        return t.size() >= 2 && t.front() == open && t.back() == close;
    }
    static std::string cut(const std::string &t) { return t.substr(1, t.size() - 2); }

    // False if the text is out of balance.
    bool head(std::string *token, std::string_view text)
    {
        std::string_view found;
        if (!kestrin_head(&found, text))
            return error(rt_ctrl->rt_run_flag, std::string(view(rt_ctrl->rt_run_text))) >= 0;
        *token = std::string(found);
        return true;
    }
    bool split(std::string_view text, std::vector<std::string> *tokens)
    {
        while (!text.empty()) // the tail ends where the head does
            if (!head(&tokens->emplace_back(), text) || !kestrin_tail(&text, text)) return false;
        return true;
    }

    bool drop_comments(std::vector<std::string> *tokens)
    {
        std::vector<std::string> kept;
        for (const std::string &token : *tokens) {
            std::string inner;
            const bool list = framed(token, '(', ')');
            if (list && !head(&inner, cut(token))) return false;
            if (!list || !word_of(inner).is(GROUP_COMMENTS)) kept.push_back(token);
        }
        *tokens = kept;
        return true;
    }
    static void join_strings(std::vector<std::string> *tokens)
    {
        std::string joined;
        for (const std::string &token : *tokens) {
            if (!framed(token, '"', '"')) return;
            joined += cut(token);
        }
        if (!tokens->empty()) *tokens = {"PROGN", "\"" + joined + "\""};
    }

    SLO form(std::string *text, const place &at)
    {
        const std::string t = *text;
        if (!framed(t, '(', ')'))
            return error(1, at, "parentheses-unterminated function: `" + t + "'");
        const std::string body(trimmed(cut(t)));
        std::string first;
        std::vector<std::string> a; // word and arguments
        if (!head(&first, body)) return -1;
        if (word_of(first).is(GROUP_COMMENTS)) return text->clear(), 0;
        if (!split(body, &a) || !drop_comments(&a)) return -1;
        join_strings(&a);
        const word m = word_of(a.empty() ? "" : a[0]);
        if (m.is(GROUP_COMMENTS)) return text->clear(), 0;
        if (m.name.empty()) return error(3, at, "void function name: " + t);
        const auto row = table_.find(m.name);
        if (row == table_.end())
            return error(3, at, "undefined function name `" + m.name + "': " + t);
        const SLO n = row->second.operands, count = SLO(a.size()) - 1;
        if (n == -1 && count == 0) return error(4, at, "at least one argument required: " + t);
        if (n >= 0 && n != count)
            return error(4, at,
                         std::to_string(n) + " argument" + (n == 1 ? " is" : "s are") +
                             " required instead of " + std::to_string(count) + ": " + t);
        return m.is(GROUP_DEFUN) ? definition(text, a, at) : write(text, m, a, at);
    }

    SLO definition(std::string *text, const std::vector<std::string> &a, const place &at)
    {
        const std::string t = *text;
        if (at.level == 0) return error(8, at, "UDF is nested too deep: " + t);
        std::string name, body = a[2];
        argument_set none;
        if (kestrin_type("U" + a[1], &name, &none) != 'V')
            return error(8, at, "invalid UDF name: " + t);
        name.erase(0, 1);
        if (table_.count(name)) return error(8, at, "UDF is already defined before: " + t);
        SLO result = -2;
        for (int pass = 1; pass <= 2; pass++) {
            table_[name] = {scope_++, result};
            argument_set own;
            result = form(&body, {at.path + ":" + name, &own, true, 2});
            scope_--;
            std::erase_if(table_, [this](const auto &row) { return row.second.scope > scope_; });
            if (result < 0) return -1;
        }
        *text = "(DEFUN " + name + " " + body + ")";
        return result;
    }

    SLO write(std::string *text, const word &m, const std::vector<std::string> &a, const place &at)
    {
        const std::string t = *text;
        std::string made = "(" + m.name, folded;
        argument_set none;
        if ((m.is(GROUP_BREAK) || m.is(GROUP_EXIT)) && !at.terminators)
            return error(9, at, "terminator is nested on the way of value calculation: " + t);
        const bool reads = m.is(GROUP_INDEX) || m.is(GROUP_ALINDEX);
        const bool sets =
            m.is(GROUP_SETQ) || m.is(GROUP_ALSETQ) || m.is(GROUP_ARSETQ) || m.is(GROUP_FOR);
        if (reads || sets) {
            const UCH letter = kestrin_type(a[1], &folded, &none);
            if (letter != 'V' && !(letter == 'P' && (reads || at.path == "Main_Modified")))
                return error(7, at,
                             std::string("invalid variable name ") +
                                 (reads ? "or argument `" : "`") + (letter == 0 ? a[1] : folded) +
                                 "': " + t);
            if (sets) made += " " + folded;
        }
        int places = m.is(GROUP_PROGN)                     ? 0
                     : m.is(GROUP_FOR)                     ? 3
                     : m.is(GROUP_WHILE) || m.is(GROUP_IF) ? 1
                                                           : -1;
        const int below = at.level != 0 && m.is(GROUP_PROGN) ? 3 : 0;
        for (ULO i = sets ? 2 : 1; i < a.size(); i++) {
            std::string token = a[i];
            const place inner = {at.path, at.arguments, at.terminators && places == 0, below};
            if (token.front() == '(' ? form(&token, inner) < 0 : !atom(&token, at)) return -1;
            if (token.empty()) continue;
            made += " " + token;
            if (places > 0) places--;
        }
        *text = made + ")";
        return at.level == 1 || at.level == 2 ? enumerate(at) : 0;
    }

    bool atom(std::string *token, const place &at)
    {
        std::string folded;
        if (kestrin_type(*token, &folded, at.arguments) == 0) {
            std::string told(view(rt_ctrl->rt_run_text));
            if (!told.empty() && told[0] >= 'A' && told[0] <= 'Z') told[0] += 32;
            return error(rt_ctrl->rt_run_flag, at, told) >= 0;
        }
        const auto is_raw = [](CHR c) { return static_cast<UCH>(c) < 32; };
        if (token->front() == '"' && std::any_of(token->begin() + 1, token->end(), is_raw)) {
            const auto shown = [](CHR **targ) { strunraw(targ, *targ); };
            return error(2, at,
                         "string is in a raw format: \"" + kit::passed(cut(*token), shown) +
                             "\"") >= 0;
        }
        *token = folded;
        return true;
    }

    SLO enumerate(const place &at)
    {
        for (ULO k = 1; k <= at.arguments->size(); k++)
            if (!at.arguments->count(k))
                return error(6, at,
                             "$" + std::to_string(k) +
                                 " is missed in the enumerated argument sequence.");
        return static_cast<SLO>(at.arguments->size());
    }
};
