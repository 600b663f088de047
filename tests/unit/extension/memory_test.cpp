// Lack of memory in the calls that a unit's main may make ahead of _Main_: each allocation of each
// call fails once, alone and with all that follow, and the process ends by the fatal report.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "kestrin/ckst_udf.h"
#include "strings/scratch.h"
#include "tests/kit/sanitizers.h"

#ifndef ADDRESS_SANITIZER

extern "C" {
void *__libc_malloc(size_t size) noexcept;
void *__libc_calloc(size_t count, size_t size) noexcept;
void *__libc_realloc(void *block, size_t size) noexcept;
}

namespace {

long calls_left = -1; // until an allocation fails; negative: none does
bool all_fail = false;

bool fails()
{
    if (calls_left < 0) return false;
    if (calls_left > 0) return --calls_left == 0;
    return all_fail;
}

} // namespace

// In the place of the system's: `new` of the C++ library and the engine's own calls come here,
// so the names are visible.
#pragma GCC visibility push(default)
extern "C" {
void *malloc(size_t size) noexcept { return fails() ? nullptr : __libc_malloc(size); }
void *calloc(size_t count, size_t size) noexcept
{
    return fails() ? nullptr : __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) noexcept
{
    return fails() ? nullptr : __libc_realloc(block, size);
}
}
#pragma GCC visibility pop

namespace {

enum : int { WITHOUT_FAILURE = 42, SURVIVED = 43 };

struct ending {
    int status;
    std::string report;
};

// A call in a process of its own, in which the n-th allocation fails.
ending end_of(void (*prepare)(), void (*call)(), long n, bool then_all)
{
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        dup2(ends[1], 2);
        prepare();
        all_fail = then_all;
        calls_left = n;
        call();
        _exit(calls_left > 0 ? WITHOUT_FAILURE : SURVIVED);
    }
    close(ends[1]);
    std::string report;
    char bytes[512];
    for (ssize_t got; (got = read(ends[0], bytes, sizeof bytes)) > 0;)
        report.append(bytes, size_t(got));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), report};
}

scratch text, table;

void prepare_text()
{
    setup_quarne_thread_safe_functionality_for_local_thread();
    const std::string name(40, 'N'), letters(40, 'I'), address(20, '0');
    assign(&text.s, name);
    assign(&table.s, "(" + name + " 40 I \"" + letters + "\" " + address + ")(TWO 1 I \"I\")");
}

constexpr const char new_site[] = "operator new(), Location=140.", text_site[] = "Location=5.";

const struct memory_case {
    const char *name;
    void (*call)();
    std::set<std::string> sites;
} cases[] = {
    {"thread",
     [] {
         cleanup_quarne_thread_safe_functionality_for_local_thread();
         setup_quarne_thread_safe_functionality_for_local_thread();
     },
     {"local_thread(), Location=142."}},
    {"mnemonics_get", [] { _internal_ISA_COP_mnemonics_get(&text.s); }, {new_site, text_site}},
    {"mnemonics_set", [] { _internal_ISA_COP_mnemonics_set(text.s); }, {text_site}},
    {"COPs_get", [] { _internal_ISA_COPs_get(&text.s); }, {new_site, text_site}},
    {"COPs_set",
     [] { _internal_ISA_COPs_set(table.s); },
     {new_site, text_site, "_internal_ISA_COPs_set(), Location=35.",
      "_internal_ISA_COPs_set(), Location=36."}},
    {"ISAext_set",
     [] { _internal_ISAext_COPs_set(table.s); },
     {new_site, "_internal_ISAext_COPs_set(), Location=38."}},
    {"ISAext_get",
     [] {
         _internal_ISAext_COPs_set(table.s);
         _internal_ISAext_COPs_get(&text.s);
     },
     {new_site, text_site}},
    {"set_error_dbg", [] { set_error_dbg(&text.s, nullptr); }, {new_site, text_site}},
    {"rise_error_dbg", [] { rise_error_dbg(nullptr); }, {new_site, text_site}},
    {"set_error_info_dbg",
     [] { set_error_info_dbg(255, &text.s, text.s, nullptr); },
     {new_site, text_site}},
    {"rise_error_info_dbg",
     [] { rise_error_info_dbg(17, text.s, nullptr); },
     {new_site, text_site}},
};

class ahead_of_main : public testing::TestWithParam<memory_case> {};

TEST_P(ahead_of_main, lack_of_memory_is_reported)
{
    for (const bool then_all : {false, true}) {
        std::string reports;
        for (long n = 1;; n++) {
            const ending end = end_of(prepare_text, GetParam().call, n, then_all);
            if (end.status == WITHOUT_FAILURE) break;
            ASSERT_TRUE(end.status == 1 || end.status == SURVIVED) << n << ": " << end.status;
            EXPECT_EQ(end.status == 1, end.report.find("ut of memory.\n") != std::string::npos);
            reports += end.report;
        }
        for (const std::string &site : GetParam().sites)
            EXPECT_NE(std::string::npos, reports.find(site)) << site << reports;
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, ahead_of_main, testing::ValuesIn(cases),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace

#endif
