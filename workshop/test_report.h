// What a run of tests tells: to a reader, as TAP, and as a file in the form of JUnit.
#pragma once

#include <string>
#include <vector>

#include "kestrin/types.h"

struct test_result {
    std::string name;
    std::vector<std::string> differences; // none: passed
    double seconds = 0;
};

enum class telling : UCH { PLAIN, TAP, JUNIT };

// Tells the results in the order of the tests, each as soon as those ahead of it are known; on a
// terminal a line on stderr says how far it has come. As JUNIT nothing is told ahead of
// write_junit().
class test_report {
public:
    test_report(telling how, ULO count);
    void begin();
    void add(ULO number, test_result result);
    void end() const;
    ULO failed() const { return failed_; }
    // To the standard output if the path is "-". False with errno set.
    bool write_junit(const CHR *path) const;

private:
    void tell(ULO number, const test_result &result) const;
    void tell_progress() const;

    telling how_;
    bool on_terminal_;
    std::vector<test_result> results_;
    std::vector<bool> known_;
    ULO told_ = 0, done_ = 0, failed_ = 0;
};
