// Random source texts: forms of many shapes, right and wrong, and plain garbage.
#pragma once

#include <map>
#include <string>

#include "tests/kit/dice.h"

class random_source : kit::dice {
public:
    explicit random_source(unsigned seed) : dice(seed) {}

    // One form; now and then a byte of it is exchanged for another.
    std::string form(int depth)
    {
        std::string text = made(depth);
        if (below(8) == 0)
            text[static_cast<std::size_t>(below(static_cast<int>(text.size())))] =
                " ()\"\\$#@x"[below(9)];
        return text;
    }
    std::string garbage(int longest)
    {
        std::string text;
        for (int n = below(longest); n > 0; n--) text += pick(pieces);
        return text;
    }

private:
    static constexpr const char *pieces[] = {
        "(",        ")",      "\"",       " ",    "\\",      "$",
        "@",        "a",      "1",        ".",    "E",       "#",
        ";",        "\n",     "(",        ")",    "$1",      "progn ",
        "defun f ", "(setq ", "(iadd 1 ", "(f ",  "if ",     "nil",
        "(rem ",    "break",  "-",        "\"\"", "(for i ", "$99999999999",
        "\xC3\xA9", "\xFF"};
    static constexpr const char *words[] = {
        "progn", "progn", "progn", "iadd", "ineg", "if", "while", "for", "setq", "index", "arsetq",
        "break", "exit",  "outf",  "time", "f",    "g",  "h",     "F",   "&&",   "nope"};
    static constexpr const char *right[] = {"0",  "1",        "-5",    "2.",    "1e5",     "nil",
                                            "a",  "B",        "abc-1", "\"x\"", "\"a b\"", "$1",
                                            "$2", "\"\\\"\"", "a",     "1",     "$1"};
    static constexpr const char *wrong[] = {"007",    "1.50",   "a:b",  "$0", "$01",
                                            "\"\t\"", "\"a\"b", "x(1)", "$3", "1x"};

    std::string atom() { return below(40) == 0 ? pick(wrong) : pick(right); }
    std::string argument(int depth)
    {
        return depth <= 0 || below(3) == 0 ? atom() : made(depth - 1);
    }
    int arguments_of(const std::string &word)
    {
        static const std::map<std::string, int> counts = {
            {"ineg", 1},   {"break", 0}, {"exit", 0}, {"time", 0},  {"if", 3},
            {"arsetq", 3}, {"for", 5},   {"iadd", 2}, {"while", 2}, {"index", 2},
            {"outf", 2},   {"&&", 2},    {"setq", 2}};
        const auto known = counts.find(word);
        if (known != counts.end() && below(30) != 0) return known->second;
        return word == "progn" ? 1 + below(4) : below(3);
    }
    std::string made(int depth)
    {
        if (below(30) == 0) return "(\"a\" \"" + std::string(below(2) ? "\" \"b" : "\\") + "\")";
        if (below(4) == 0) {
            const char *const names[] = {"f", "g", "h", "2x"};
            return "(defun " + pick(names) + " " +
                   (below(20) ? "(progn " + argument(depth - 1) + " " + argument(depth - 1) + ")"
                              : argument(depth - 1)) +
                   ")";
        }
        const std::string word = pick(words);
        std::string text = "(" + word;
        for (int n = arguments_of(word), i = 0; i < n; i++) {
            const bool target =
                i == 0 && (word == "setq" || word == "for" || word == "arsetq" || word == "index");
            text += below(20) ? " " : "\t ";
            text += target && below(20) ? "v" : argument(depth);
        }
        return text + (below(20) ? ")" : " )");
    }
};
