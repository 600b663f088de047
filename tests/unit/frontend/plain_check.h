// The syntax checker a second time, as plainly as its rules read: texts are copied at every step,
// and the body of a definition is checked twice, so that the cost doubles with each nesting. Tests
// hold the real checker against it.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "frontend/isa.h"
#include "frontend/token.h"
#include "frontend/walk.h"
#include "frontend/words.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "vm/machine.h"

class plain_checker {
public:
    int code = 0;
    std::string message;

    plain_checker()
    {
        for (ULO i = 0; i < isa_count; i++)
            table_[std::string(view(*isa_table[i].mnemonic))] = {0, isa_table[i].operands};
        scope_ = 1;
    }

    SLO check(std::string *text, std::string path)
    {
        argument_set arguments;
        *text = std::string(trimmed(*text));
        return form(text, path, &arguments, true, 1);
    }

private:
    struct known {
        ULO scope;
        SLO operands;
    };
    std::map<std::string, known> table_;
    ULO scope_ = 0;

    SLO error(int which, const std::string &text)
    {
        code = which;
        message = text;
        return -1;
    }
    SLO take_walk_error()
    {
        return error(rt_ctrl->rt_run_flag, std::string(view(rt_ctrl->rt_run_text)));
    }
    static std::string upper(std::string_view text)
    {
        std::string folded;
        append_folded(&folded, text);
        return folded;
    }
    static bool framed(const std::string &t, char open, char close)
    {
        return t.size() >= 2 && t.front() == open && t.back() == close;
    }
    static std::string cut(const std::string &t) { return t.substr(1, t.size() - 2); }

    bool head(std::string *token, const std::string &text)
    {
        std::string_view found;
        if (!kestrin_head(&found, text)) return take_walk_error(), false;
        *token = std::string(found);
        return true;
    }
    bool tail(std::string *rest, const std::string &text)
    {
        std::string_view found;
        if (!kestrin_tail(&found, text)) return take_walk_error(), false;
        *rest = std::string(found);
        return true;
    }
    void prune()
    {
        std::erase_if(table_, [this](const auto &row) { return row.second.scope > scope_; });
    }

    bool drop_comments(std::string *body)
    {
        std::string kept, token, inner, rest = *body;
        while (!rest.empty()) {
            if (!head(&token, rest) || !tail(&rest, rest)) return false;
            if (framed(token, '(', ')')) {
                if (!head(&inner, cut(token))) return false;
                if (word_groups(upper(inner)) & in(GROUP_COMMENTS)) continue;
            }
            kept += token + " ";
        }
        *body = std::string(right_trimmed(kept));
        return true;
    }
    bool join_strings(std::string *body)
    {
        std::string joined, token, rest = *body;
        if (rest.empty()) return true;
        while (!rest.empty()) {
            if (!head(&token, rest) || !tail(&rest, rest)) return false;
            if (!framed(token, '"', '"')) return true;
            joined += cut(token);
        }
        *body = "PROGN \"" + joined + "\"";
        return true;
    }

    SLO form(std::string *text, const std::string &path, argument_set *arguments, bool terminators,
             int level)
    {
        const std::string t = *text, in_function = "In function `" + path + "': ";
        if (!framed(t, '(', ')'))
            return error(1, in_function + "parentheses-unterminated function: `" + t + "'");
        std::string body(trimmed(cut(t))), m, rest;
        if (!head(&m, body)) return -1;
        if (word_groups(upper(m)) & in(GROUP_COMMENTS)) return text->clear(), 0;
        if (!drop_comments(&body) || !join_strings(&body) || !head(&m, body)) return -1;
        m = upper(m);
        if (word_groups(m) & in(GROUP_COMMENTS)) return text->clear(), 0;
        if (!tail(&rest, body)) return -1;
        if (m.empty()) return error(3, in_function + "void function name: " + t);
        const auto row = table_.find(m);
        if (row == table_.end())
            return error(3, in_function + "undefined function name `" + m + "': " + t);
        const SLO n = row->second.operands;
        SLO count = 0;
        std::string token;
        for (std::string walk = rest; !walk.empty(); count++)
            if (!head(&token, walk) || !tail(&walk, walk)) return -1;
        if (n == -1 && count == 0)
            return error(4, in_function + "at least one argument required: " + t);
        if (n >= 0 && n != count)
            return error(4, in_function + std::to_string(n) + " argument" +
                                (n == 1 ? " is" : "s are") + " required instead of " +
                                std::to_string(count) + ": " + t);
        const group_set groups = word_groups(m);
        if (groups & in(GROUP_DEFUN)) return definition(text, rest, path, level);
        return write(text, m, rest, path, arguments, terminators, level);
    }

    SLO definition(std::string *text, const std::string &rest, const std::string &path, int level)
    {
        const std::string t = *text, in_function = "In function `" + path + "': ";
        if (level == 0) return error(8, in_function + "UDF is nested too deep: " + t);
        std::string name, body, folded;
        argument_set none;
        if (!head(&name, rest) || !tail(&body, rest)) return -1;
        if (kestrin_type("U" + name, &folded, &none) != 'V')
            return error(8, in_function + "invalid UDF name: " + t);
        name = folded.substr(1);
        if (table_.count(name))
            return error(8, in_function + "UDF is already defined before: " + t);
        SLO result = -2;
        for (int pass = 1; pass <= 2; pass++) {
            table_[name] = {scope_, result};
            scope_++;
            argument_set own;
            result = form(&body, path + ":" + name, &own, true, 2);
            scope_--;
            prune();
            if (result < 0) return -1;
        }
        *text = "(DEFUN " + name + " " + body + ")";
        return result;
    }

    SLO write(std::string *text, const std::string &m, std::string rest, const std::string &path,
              argument_set *arguments, bool terminators, int level)
    {
        const std::string t = *text, in_function = "In function `" + path + "': ";
        const group_set groups = word_groups(m);
        std::string token, made = "(" + m, folded;
        argument_set none;
        if ((groups & (in(GROUP_BREAK) | in(GROUP_EXIT))) && !terminators)
            return error(9, in_function +
                                "terminator is nested on the way of value calculation: " + t);
        if (groups & (in(GROUP_INDEX) | in(GROUP_ALINDEX))) {
            if (!head(&token, rest)) return -1;
            const UCH letter = kestrin_type(token, &folded, &none);
            if (letter != 'V' && letter != 'P')
                return error(7, in_function + "invalid variable name or argument `" +
                                    (letter == 0 ? token : folded) + "': " + t);
        }
        if (groups & (in(GROUP_SETQ) | in(GROUP_ALSETQ) | in(GROUP_ARSETQ) | in(GROUP_FOR))) {
            if (!head(&token, rest) || !tail(&rest, rest)) return -1;
            const UCH letter = kestrin_type(token, &folded, &none);
            if (letter != 'V' && !(letter == 'P' && path == "Main_Modified"))
                return error(7, in_function + "invalid variable name `" +
                                    (letter == 0 ? token : folded) + "': " + t);
            made += " " + folded;
        }
        int places = -1;
        if (groups & in(GROUP_PROGN)) places = 0;
        if (groups & in(GROUP_FOR)) places = 3;
        if (groups & (in(GROUP_WHILE) | in(GROUP_IF))) places = 1;
        const int below = level != 0 && (groups & in(GROUP_PROGN)) ? 3 : 0;
        while (!rest.empty()) {
            if (!head(&token, rest) || !tail(&rest, rest)) return -1;
            if (token.front() == '(') {
                if (form(&token, path, arguments, terminators && places == 0, below) < 0) return -1;
                if (token.empty()) continue;
            } else if (!atom(&token, in_function, arguments))
                return -1;
            made += " " + token;
            if (places > 0) places--;
        }
        *text = made + ")";
        return level == 1 || level == 2 ? enumerate(*arguments, in_function) : 0;
    }

    bool atom(std::string *token, const std::string &in_function, argument_set *arguments)
    {
        std::string folded;
        if (kestrin_type(*token, &folded, arguments) == 0) {
            std::string told(view(rt_ctrl->rt_run_text));
            if (!told.empty() && told[0] >= 'A' && told[0] <= 'Z') told[0] += 32;
            error(rt_ctrl->rt_run_flag, in_function + told);
            return false;
        }
        if (token->front() == '"')
            for (ULO i = 1; i < token->size(); i++)
                if (static_cast<UCH>((*token)[i]) < 32) {
                    scratch shown;
                    assign(&shown.s, cut(*token));
                    error(2, in_function + "string is in a raw format: \"" +
                                 std::string(view(strunraw(&shown.s, shown.s))) + "\"");
                    return false;
                }
        *token = folded;
        return true;
    }

    SLO enumerate(const argument_set &arguments, const std::string &in_function)
    {
        for (ULO k = 1; k <= arguments.size(); k++)
            if (!arguments.count(k))
                return error(6, in_function + "$" + std::to_string(k) +
                                    " is missed in the enumerated argument sequence.");
        return static_cast<SLO>(arguments.size());
    }
};
