// What lives from entry to entry of an interactive session: the variables with their values, the
// functions, and the text that was entered.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "frontend/names.h"
#include "kestrin/value.h"
#include "workshop/fault.h"

struct lut;
struct program;

enum class outcome {
    NOTHING,     // blanks and comments
    REFUSED,     // faults of the text, which were told; nothing has changed
    FAILED,      // a runtime error, which was told; functions and assignments ahead of it stay
    INTERRUPTED, // by the interrupt key; the same holds
    DEFINED,     // functions and nothing else
    VALUE        // value() is what it gave
};

// One in a process. Starts the engine. Entries are programs of any number of forms, whose faults go
// to stderr.
class workspace {
public:
    // `name` is what faults are told by.
    explicit workspace(std::string name);
    ~workspace();
    workspace(const workspace &) = delete;
    workspace &operator=(const workspace &) = delete;

    // Checks a text, takes its functions over and runs it. Functions that are there already are
    // replaced, for those that call them too. The text ends with a newline.
    outcome enter(const std::string &text);
    // Counts lines that are not entered.
    void pass_over(const std::string &text);
    kestrin_data *value() { return &value_; }

    // Checks a text without entering it, lists it with the types that are proved and its compiled
    // code. The name of a function stands for its definition. False with faults told.
    bool list_code(const std::string &text);

    // Names of functions and of variables that have a value.
    std::vector<std::string> functions() const;
    std::vector<std::string> variables() const;
    // The functions and all that was run without a fault, as the text of a program.
    std::string saved_text() const;

private:
    // A function of the session: where its form stands in all that was entered.
    struct function {
        std::string name;
        file_place at;
    };
    source source_of(const std::string &text) const;
    void leave_out_defined(const std::string &text, lut *table) const;
    bool find_faults(const source &entry, program *into) const;
    bool check(const source &entry, program *into) const;
    std::vector<function> definitions_of(const program &checked) const;
    bool take_definitions(const std::vector<function> &fresh);
    std::vector<fault> build(std::vector<function> wanted);
    std::string text_of(const function &f) const;
    outcome run(const source &entry);
    std::vector<name_id> number_variables() const;
    void remember(const std::string &text, const std::vector<function> &fresh);

    source entered_; // all lines so far, those that were refused left empty
    std::vector<function> functions_;
    std::unordered_map<name_id, kestrin_data> variables_;
    kestrin_data value_ = owning_slot;
    std::vector<std::string> done_; // texts that were run
};
