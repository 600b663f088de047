// Compiled example programs with bytes and words changed: what the verifier accepts may be linked
// and run without harm. The runs are made in children: one that loops ends its child by a timer,
// one that takes too much ends it by a report, and no other signal may end one.
// KESTRIN_TEST_SWEEP=1 tries all changes instead of a sample.

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bytecode/verify.h"
#include "tests/kit/code.h"
#include "tests/kit/runner.h"

namespace {

const char *const programs[] = {
    "(defun gcd (if (== $2 0) $1 (gcd $2 (% $1 $2)))) (gcd 252 105)",
    "(defun move (if $1 (progn (move (- $1 1) $3 $2) (+ $2 $3)) 0)) (move 4 1 3)",
    "(setq sum 0) (for i 1 1 9 (setq sum (+ sum (* i i)))) sum",
    "(setq i 0) (while (< i 5) (progn (arsetq a i (fval i)) (setq i (+ i 1)))) (index a 3)",
    "(setq s \"a text\") (setq s (cat s (upper s))) (outf \"%s\\n\" s) (len s)",
    "(defun f (progn (defun g (iadd $1 $2)) (setq a $1) (g a 2))) (f 40)",
    "(arsetq m 2 \"x\") (alsetq n m) (arsetq n 5 2.5) (setq k (alindex n 3)) (index k 2)",
    "(setq x 1.5) (setq y (fmul x 2.)) (if (> y 2.) (cat (str y) \"!\") nil)",
    "(defun even (== (% $1 2) 0)) (&& (even 4) (|| (even 3) (! (even 5))))",
    "(setq t (mapcar \"(+ 1 2)\")) (set_error_info 5 \"no\") (substr \"abc\" (index t 1) 1)",
};

constexpr ULO top = ULO(1) << 63;
constexpr ULO values[] = {0,        1,         2,    3,      ~ULO(0), ~ULO(0) - 1, top, top - 1,
                          top >> 2, top >> 31, 0x7F, 0x8000, 'V',     'P',         'S', 'U'};

// The changes of a program, numbered: each byte to 255 other values, then each word to those above.
ULO changes_of(const kit::code &good)
{
    return good.size() * (sizeof(ULO) * 255 + std::size(values));
}

kit::code changed(kit::code words, ULO n)
{
    const ULO of_bytes = words.size() * sizeof(ULO) * 255;
    if (n < of_bytes)
        reinterpret_cast<UCH *>(words.data())[n / 255] ^= static_cast<UCH>(n % 255 + 1);
    else
        words[(n - of_bytes) / std::size(values)] = values[(n - of_bytes) % std::size(values)];
    return words;
}

// In a child whose limits are tight: the changed code may call any instruction.
void take_limits()
{
    const rlimit file = {0, 0}, none = {0, 0};
    setrlimit(RLIMIT_FSIZE, &file);
    setrlimit(RLIMIT_CORE, &none);
#ifndef __SANITIZE_ADDRESS__
    const rlimit memory = {ULO(1) << 29, ULO(1) << 29};
    setrlimit(RLIMIT_AS, &memory);
#endif
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    const int nowhere = open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 64; fd++) dup2(nowhere, fd); // what is inherited, too
    if (chdir("/proc/self") != 0) _exit(1);            // nothing can be made or removed there
    setsid();
}

void run_batch(const kit::code &good, const std::vector<ULO> &numbers, ULO *next)
{
    take_limits();
    while (*next < numbers.size()) {
        const kit::code words = changed(good, numbers[(*next)++]);
        ualarm(20000, 0);
        kit::run_code(kit::bytes_of(words));
    }
    _exit(0);
}

// Runs all, in as many children as end early. Division of the smallest integer by -1 is left to the
// processor's trap.
void run_all(const kit::code &good, const std::vector<ULO> &numbers, ULO *next)
{
    *next = 0;
    while (*next < numbers.size()) {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) run_batch(good, numbers, next);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) || WTERMSIG(status) == SIGALRM || WTERMSIG(status) == SIGFPE)
            << "change " << numbers[*next - 1] << ": signal " << WTERMSIG(status);
    }
}

class HostileCode : public kit::with_passes<testing::TestWithParam<const char *>> {};

TEST_P(HostileCode, IsFoundOrHarmless)
{
    auto *next = static_cast<ULO *>(
        mmap(nullptr, sizeof(ULO), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void *>(next));
    const ULO step = getenv("KESTRIN_TEST_SWEEP") != nullptr ? 1 : 389;
    for (const UCH level : {0, 1}) {
        const kit::code good = kit::program(GetParam(), level);
        ASSERT_TRUE(!good.empty() && verify_bytecode(kit::bytes_of(good)));
        std::vector<ULO> accepted;
        for (ULO n = 0; n < changes_of(good); n += step)
            if (verify_bytecode(kit::bytes_of(changed(good, n)))) accepted.push_back(n);
        EXPECT_FALSE(accepted.empty());
        run_all(good, accepted, next);
    }
    munmap(next, sizeof(ULO));
}

INSTANTIATE_TEST_SUITE_P(Programs, HostileCode, testing::ValuesIn(programs));

} // namespace
