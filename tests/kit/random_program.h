// Random programs that the checker accepts, rich in what types can go wrong with: arrays of all
// classes and arrays in arrays, variables of changing type, aliases through IF, PROGN and ALINDEX,
// BREAK in functions and loops, FOR over any name, nested definitions and recursion.
//
// What the type pass takes for proved is so in sound programs only: not where a BREAK further in
// ends a function whose body has another type, nor behind a FOR that starts at no integer.
//
// They end: every round and every call passes a tick, an expression that the caller gives and that
// ends the run when it has been passed too often. Stores that may nest arrays go through a gate
// likewise.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/kit/dice.h"

namespace kit {

class random_program : dice {
public:
    // `tick` is an expression of no operand; `gate` a form's beginning, to which an index is added.
    random_program(unsigned seed, bool sound, std::string tick, std::string gate)
        : dice(seed), sound_(sound), tick_(std::move(tick)), gate_(std::move(gate))
    {
    }

    std::string text() { return body(2, ""); } // once

private:
    struct function {
        std::string name;
        int arguments;
    };

    std::string constant()
    {
        switch (below(6)) {
        case 0: return pick("2.5", "-0.5", "1E5", "0.");
        case 1: return pick("\"x\"", "\"\"", "\"12\"", "\"a longer string value\"", "\"\\n\"");
        case 2: return "NIL";
        default: return pick("0", "1", "2", "3", "-1", "7", "100");
        }
    }

    std::string variable() { return pick("A", "B", "C", "D", "P", "Q", "R"); }
    std::string array() { return one_in(6) ? variable() : pick("P", "Q", "R"); }
    // Of a member that is read: a store could ask for more memory than there is.
    std::string any_index() { return one_in(8) ? variable() : index(); }
    std::string index()
    {
        if (one_in(8)) return "(IAND " + value(1) + " 131)";
        if (one_in(12)) return pick("128", "-1", "\"1\"", "1.5", "NIL");
        return pick("0", "1", "1", "2");
    }

    std::string leaf()
    {
        if (arguments_ > 0 && one_in(4)) return "$" + std::to_string(1 + below(arguments_));
        return one_in(3) ? constant() : variable();
    }

    // An expression of any type; no BREAK or EXIT may stand in it.
    std::string value(int depth)
    {
        if (depth <= 0 || one_in(4)) return leaf();
        switch (below(20)) {
        case 19: return "(" + pick("HEAD", "TAIL", "LEN", "ASC") + " " + member_or_variable() + ")";
        case 17: return division(depth);
        case 18:
            return "(== (TYPE " + value(depth - 1) + ") " + pick("\"I\"", "\"S\"", "\"F\"") + ")";
        case 0: return operation(pick("IADD", "-", "*", "IAND", "<<", "AND", "||"), 2, depth);
        case 1: return operation(pick("+.", "FSUB", "*.", "FDIV", "POW"), 2, depth);
        case 2: return operation(pick("==", "<", ">=", "NOTEQUAL"), 2, depth);
        case 3: return "(LEFT " + operation("CAT", 2, depth) + " 40)";
        case 4: return cast(depth);
        case 5: return operation(pick("INDICES", "++", "CHR", "UPPER", "FABS"), 1, depth);
        case 6: return operation("IF", 3, depth);
        case 7: return operation("PROGN", 2, depth);
        case 8:
        case 9: return assignment(depth);
        case 10: return "(INDEX " + source() + " " + any_index() + ")";
        case 11:
            return "(ALINDEX " + source() + " " + pick("1", "2", "2", "3", "\"2\"", "1.") + ")";
        case 12:
        case 13:
        case 14: return call(depth);
        case 15:
            return "(SUBSTR " + value(depth - 1) + " " + index() + " " + value(depth - 1) + ")";
        default: return leaf();
        }
    }

    // Casts by themselves only forward an operand of the proved type, an array as the array.
    std::string cast(int depth)
    {
        switch (below(4)) {
        case 0: return "(+ 0 " + operation("IVAL", 1, depth) + ")";
        case 1: return "(*. 1. " + operation("FVAL", 1, depth) + ")";
        case 2: return "(LEFT " + operation("STR", 1, depth) + " 40)";
        default: return operation(pick("LEN", "NOT", "TYPE", "ASC"), 1, depth);
        }
    }

    std::string operation(const std::string &name, int operands, int depth)
    {
        std::string text = "(" + name;
        for (int i = 0; i < operands; i++) text += " " + value(depth - 1);
        return text + ")";
    }

    // By constants: the smallest integer divided by -1 would end the test.
    std::string division(int depth)
    {
        return "(" + pick("/", "IMOD") + " " + value(depth - 1) + " " +
               pick("2", "8", "1", "3", "-2", "0", "4611686018427387904") + ")";
    }

    std::string source()
    {
        return arguments_ > 0 && one_in(4) ? "$" + std::to_string(1 + below(arguments_)) : array();
    }

    std::string assignment(int depth)
    {
        switch (below(6)) {
        case 4: return append(depth);
        case 5: return "(SETQ " + variable() + " " + member_or_variable() + ")";
        case 0: return "(SETQ " + variable() + " " + value(depth - 1) + ")";
        case 1: return "(ALSETQ " + variable() + " " + value(depth - 1) + ")";
        case 2: return "(ARSETQ " + array() + " " + index() + " " + constant() + ")";
        }
        return "(ARSETQ " + array() + " " + gate_ + " " + index() + ") " + value(depth - 1) + ")";
    }

    std::string member_or_variable()
    {
        return one_in(3) ? variable() : "(INDEX " + source() + " " + any_index() + ")";
    }

    // A text that grows, of a variable or a member.
    std::string append(int depth)
    {
        const std::string more = " (LEFT " + value(depth - 1) + " 9))";
        const std::string v = variable(), i = index();
        if (one_in(2)) return "(SETQ " + v + " (CAT " + (one_in(4) ? variable() : v) + more + ")";
        return "(ARSETQ " + v + " " + i + " (CAT (INDEX " + v + " " + (one_in(4) ? index() : i) +
               ")" + more + ")";
    }

    std::string call(int depth)
    {
        if (functions_.empty()) return leaf();
        const function f = functions_[static_cast<std::size_t>(below(int(functions_.size())))];
        std::string text = "(" + f.name;
        for (int i = 0; i < f.arguments; i++)
            text += " " + (one_in(3) ? member_or_variable() : value(depth - 1));
        return text + ")";
    }

    // What a function ends with: often a variable of its own.
    std::string answer(int depth)
    {
        if (depth > 0 && one_in(4))
            return "(IF " + value(1) + " " + answer(depth - 1) + " " + answer(depth - 1) + ")";
        return one_in(2) ? one_in(2) ? array() : variable() : value(depth);
    }

    // Where a statement stands: directly in a function's body, in a branch there, or in a loop.
    enum place { BODY, BRANCH, LOOP };

    std::string round(int depth)
    {
        return " (PROGN " + tick_ + " " + statements(depth - 1, LOOP) + "))";
    }
    std::string for_loop(int depth)
    {
        const std::string start = sound_ ? "(+ 0 " + value(1) + ")" : value(1);
        return "(FOR " + variable() + " " + start + " " + pick("1", "-1", "2", "C", "1.") + " " +
               value(1) + round(depth);
    }

    std::string statement(int depth, place where)
    {
        switch (below(12)) {
        case 0: return "(WHILE " + value(1) + round(depth);
        case 1: return for_loop(depth);
        case 2:
            return "(IF " + value(2) + " (PROGN " +
                   statements(depth - 1, where == LOOP ? LOOP : BRANCH) + ") " + value(2) + ")";
        case 3: return "(PROGN " + statements(depth - 1, where) + ")";
        case 4:
            if (!one_in(3)) return value(3);
            return !sound_ || where != BRANCH ? pick("(BREAK)", "(BREAK)", "(EXIT)") : "(EXIT)";
        case 5:
        case 6:
        case 7: return "(OUTF \"%s,\" (" + pick("STR", "STR", "TYPE") + " " + value(2) + "))";
        case 8: return value(3);
        default: return assignment(3);
        }
    }

    std::string statements(int depth, place where)
    {
        if (depth <= 0) return value(2);
        std::string text = statement(depth, where);
        for (int i = below(3); i > 0; i--) text += " " + statement(depth, where);
        return text;
    }

    // Values for most variables, so that few runs end at once.
    std::string start()
    {
        std::string text = tick_;
        for (const char *name : {"A", "B", "C", "D"})
            if (!one_in(12)) text += std::string(" (SETQ ") + name + " " + constant() + ")";
        for (const char *name : {"P", "Q", "R"}) {
            const std::string same = constant(); // most arrays are of one type
            for (const char *member : {"0", "1", "2"})
                if (!one_in(12))
                    text += std::string(" (ARSETQ ") + name + " " + member + " " +
                            (one_in(6) ? constant() : same) + ")";
        }
        for (int i = 1; i <= arguments_; i++) text += " $" + std::to_string(i);
        return text;
    }

    std::string definition(int nesting, const std::string &outer)
    {
        const function f = {outer + "F" + std::to_string(functions_.size()), below(3)};
        const int arguments = std::exchange(arguments_, f.arguments);
        functions_.push_back(f); // it may call itself
        const std::string text = "(DEFUN " + f.name + " " + body(nesting - 1, f.name) + ")";
        arguments_ = arguments;
        return text;
    }

    std::string body(int nesting, const std::string &outer)
    {
        const auto known = functions_.size();
        std::string text = "(PROGN ";
        if (nesting > 0)
            for (int i = below(3); i > 0; i--) text += definition(nesting, outer) + " ";
        text += start();
        for (int i = 2 + below(6); i > 0; i--) text += " " + statement(2, BODY);
        text += " " + answer(2) + ")";
        functions_.resize(known);
        return text;
    }

    bool sound_;
    std::string tick_, gate_;
    std::vector<function> functions_; // that may be called here
    int arguments_ = 0;
};

} // namespace kit
