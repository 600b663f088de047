// Random programs about values: texts, arrays of texts, arrays of such arrays. Each variable holds
// a value of one level, so that few runs end in an error: level 0 is a text, a value of level n an
// array of a text and two values of level n - 1. Values are assigned, stored as members, passed to
// functions that answer their variables, appended to and shown.
//
// They use instructions of the caller's: (SHOW x) shows a value of any kind, (TICK) bounds the run.
#pragma once

#include <string>
#include <vector>

#include "tests/kit/dice.h"

namespace kit {

class value_program : dice {
public:
    explicit value_program(unsigned seed) : dice(seed) {}

    std::string text() // once
    {
        std::string definitions;
        for (int i = 0; i < 4; i++) definitions += definition(i);
        arguments_.clear();
        return "(PROGN " + definitions + body(8) + " " + value(below(levels), 3) + ")";
    }

private:
    static constexpr int levels = 4;
    struct function {
        std::string name;
        int answers;
        std::vector<int> takes; // levels
    };

    std::string variable(int level)
    {
        return std::string(1, "TXYZ"[level]) + (one_in(2) ? "1" : "2");
    }

    std::string argument(int level)
    {
        const auto count = static_cast<int>(arguments_.size());
        for (int tries = 0; count > 0 && tries < 3; tries++)
            if (const int i = below(count); arguments_[std::size_t(i)] == level)
                return "$" + std::to_string(i + 1);
        return variable(level);
    }
    std::string source(int level) { return one_in(3) ? argument(level) : variable(level); }
    std::string place() { return one_in(9) ? "(+ 0 1)" : one_in(2) ? "1" : "2"; }

    std::string member(int level)
    {
        if (level == 0 && one_in(3)) return "(INDEX " + source(1 + below(levels - 1)) + " 0)";
        if (level + 1 == levels) return source(level);
        return "(INDEX " + source(level + 1) + " " + place() + ")";
    }

    // An argument: what may be lent, or an assignment that what was lent before must survive.
    std::string passed(int level, int depth)
    {
        const int other = 1 + below(levels - 1);
        switch (below(4)) {
        case 0: return value(level, depth);
        case 1: return member(level);
        case 2: return source(level);
        }
        return "(PROGN (SETQ " + variable(other) + " " + variable(other) + ") (ARSETQ " +
               variable(other) + " 1 " + value(other - 1, 1) + ") " + value(level, depth) + ")";
    }

    std::string call(int level, int depth)
    {
        for (const function &f : functions_)
            if (f.answers == level && one_in(2)) {
                std::string text = "(" + f.name;
                for (const int l : f.takes) text += " " + passed(l, depth - 1);
                return text + ")";
            }
        return member(level);
    }

    std::string text_value(int depth)
    {
        switch (below(6)) {
        case 0: return "\"word other words\"";
        case 1: return "\"" + std::string(static_cast<std::size_t>(below(40)), 'x') + "\"";
        case 2: return "(LEFT (CAT " + value(0, depth) + " " + value(0, depth) + ") 50)";
        case 3: return "(" + std::string(one_in(2) ? "HEAD " : "TAIL ") + value(0, depth) + ")";
        case 4: return one_in(30) ? "(STR (/ 1 0))" : "(STR " + std::to_string(below(999)) + ")";
        default: return "(SUBSTR " + value(0, depth) + " 2 " + condition(depth) + ")";
        }
    }

    std::string condition(int depth)
    {
        return "(" + std::string(one_in(2) ? "== " : "< ") + value(0, depth) + " " +
               value(0, depth) + ")";
    }

    // A statement whose value is not asked for, inside an expression: no BREAK may stand there.
    std::string inner_statement(int depth)
    {
        inner_++;
        const std::string text = statement(depth);
        inner_--;
        return text;
    }

    std::string value(int level, int depth)
    {
        if (depth <= 0 || one_in(4)) return source(level);
        switch (below(9)) {
        case 0:
            return "(IF " + condition(depth - 2) + " " + value(level, depth - 1) + " " +
                   value(level, depth - 1) + ")";
        case 1: return "(PROGN " + inner_statement(depth - 2) + " " + value(level, depth - 1) + ")";
        case 2: return "(SETQ " + variable(level) + " " + value(level, depth - 1) + ")";
        case 3: return level == 0 ? text_value(depth - 1) : "(ALINDEX " + source(level) + " 3)";
        case 4:
        case 5: return call(level, depth);
        default: return level == 0 ? text_value(depth - 1) : member(level);
        }
    }

    std::string append(int depth)
    {
        const std::string t = variable(0), a = variable(1), i = place();
        const std::string more = " (LEFT " + value(0, depth) + " 9)))";
        if (one_in(2)) return "(SETQ " + t + " (CAT " + (one_in(5) ? source(0) : t) + more;
        return "(ARSETQ " + a + " " + i + " (CAT (INDEX " + a + " " + (one_in(5) ? place() : i) +
               ")" + more;
    }

    std::string statement(int depth)
    {
        const int level = below(levels);
        switch (below(12)) {
        case 0: return append(depth);
        case 1: return "(SHOW " + value(level, depth) + ")";
        case 2:
            return "(FOR I 1 1 2 (PROGN (TICK) " + statement(depth - 1) + " " +
                   statement(depth - 1) + "))";
        case 3:
            return "(IF " + condition(1) + " " + statement(depth - 1) + " " + statement(depth - 1) +
                   ")";
        case 4:
        case 5:
        case 6:
            if (level == 0) return "(ARSETQ " + variable(1) + " 0 " + value(0, depth) + ")";
            return "(ARSETQ " + variable(level) + " " + place() + " " + value(level - 1, depth) +
                   ")";
        case 7: return inner_ == 0 && one_in(12) ? "(BREAK)" : "(SHOW " + variable(level) + ")";
        default: return "(SETQ " + variable(level) + " " + value(level, depth) + ")";
        }
    }

    // Values for all variables, then statements.
    std::string body(int statements)
    {
        std::string text = "(TICK)";
        for (const char *n : {"1", "2"})
            for (int level = 0; level < levels; level++) {
                const std::string name = "TXYZ"[level] + std::string(n);
                if (level == 0) text += " (SETQ " + name + " \"" + n + " a text\")";
                for (const char *at : {"0", "1", "2"})
                    if (level > 0)
                        text += " (ARSETQ " + name + " " + at + " " +
                                (*at == '0' ? "\"first\"" : "TXYZ"[level - 1] + std::string(n)) +
                                ")";
            }
        for (std::size_t i = 1; i <= arguments_.size(); i++) text += " $" + std::to_string(i);
        for (int i = 0; i < statements; i++) text += " " + statement(3);
        return text;
    }

    std::string definition(int number)
    {
        function f = {"F" + std::to_string(number), below(levels), {}};
        for (int i = below(4); i > 0; i--) f.takes.push_back(below(levels));
        arguments_ = f.takes;
        const std::string text = "(DEFUN " + f.name + " (PROGN " + body(below(6)) + " " +
                                 value(f.answers, below(3)) + ")) ";
        functions_.push_back(f);
        return text;
    }

    std::vector<function> functions_; // that may be called here
    int inner_ = 0;
    std::vector<int> arguments_; // levels of those of the function that is written
};

} // namespace kit
