// Compiled example programs with every byte and word changed: what the verifier accepts may be
// linked and run without harm. The runs are made in children: one that loops ends its child by a
// timer, one that takes too much ends it by a report, and no other signal may end one.
// KESTRIN_TEST_SWEEP=1 tries all changes instead of a sample.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bytecode/link.h"
#include "bytecode/verify.h"
#include "tests/kit/code.h"
#include "vm/handler.h"

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

bool is_full_sweep()
{
    const char *value = getenv("KESTRIN_TEST_SWEEP");
    return value != nullptr && *value == '1';
}

// All changes of a program, numbered: each byte to 255 other values, then each word to 16.
struct changes {
    const kit::code &good;
    static constexpr ULO values[] = {0,
                                     1,
                                     2,
                                     3,
                                     ~ULO(0),
                                     ~ULO(0) - 1,
                                     ULO(1) << 63,
                                     (ULO(1) << 63) - 1,
                                     ULO(1) << 61,
                                     ULO(1) << 32,
                                     0x7F,
                                     0x8000,
                                     'V',
                                     'P',
                                     'S',
                                     'U'};

    ULO bytes() const { return good.size() * sizeof(ULO); }
    ULO count() const { return bytes() * 255 + good.size() * std::size(values); }

    kit::code make(ULO n) const
    {
        kit::code words = good;
        if (n >= bytes() * 255) {
            n -= bytes() * 255;
            words[n / std::size(values)] = values[n % std::size(values)];
        } else
            reinterpret_cast<UCH *>(words.data())[n / 255] ^= static_cast<UCH>(n % 255 + 1);
        return words;
    }
};

void run_once(const kit::code &words)
{
    scratch code;
    assign(&code.s, kit::bytes_of(words));
    kestrin_link(code.s);
    rt_ctrl->rt_noterror = 1;
    kestrin_data value = owning_slot;
    kestrin_run(reinterpret_cast<const ULO *>(code.s), &value, 1);
    free_kst_data(&value);
    rt_ctrl->rt_noterror = 1;
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
    const int nowhere = open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 64; fd++) dup2(nowhere, fd); // what is inherited, too
    if (chdir("/proc/self") != 0) _exit(1);            // nothing can be made or removed there
    setsid();
}

void run_batch(const changes &all, const std::vector<ULO> &numbers, ULO *next)
{
    take_limits();
    const itimerval bound = {{}, {0, 20000}};
    while (*next < numbers.size()) {
        const ULO number = numbers[(*next)++];
        setitimer(ITIMER_REAL, &bound, nullptr);
        run_once(all.make(number));
    }
    _exit(0);
}

// Division of the smallest integer by -1 is left to the processor's trap.
bool is_harmless(int status)
{
    if (WIFEXITED(status)) return true;
    return WTERMSIG(status) == SIGALRM || WTERMSIG(status) == SIGFPE;
}

// Runs all, in as many children as end early. Returns the number of harmful changes.
int run_all(const changes &all, const std::vector<ULO> &numbers, ULO *next)
{
    int harmful = 0;
    *next = 0;
    while (*next < numbers.size()) {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) run_batch(all, numbers, next);
        int status = 0;
        waitpid(child, &status, 0);
        if (is_harmless(status)) continue;
        harmful++;
        ADD_FAILURE() << "change " << numbers[*next - 1] << " of " << all.count() << ": signal "
                      << WTERMSIG(status);
    }
    return harmful;
}

class HostileCode : public testing::TestWithParam<const char *> {};

TEST_P(HostileCode, IsFoundOrHarmless)
{
    kit::start_passes();
    auto *next = static_cast<ULO *>(
        mmap(nullptr, sizeof(ULO), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void *>(next));
    for (const UCH level : {0, 1}) {
        const kit::code good = kit::program(GetParam(), level);
        ASSERT_FALSE(good.empty());
        ASSERT_TRUE(verify_bytecode(kit::bytes_of(good)));
        const changes all = {good};
        std::vector<ULO> accepted;
        for (ULO n = 0; n < all.count(); n += is_full_sweep() ? 1 : 389)
            if (verify_bytecode(kit::bytes_of(all.make(n)))) accepted.push_back(n);
        EXPECT_FALSE(accepted.empty());
        EXPECT_EQ(0, run_all(all, accepted, next));
        if (is_full_sweep()) printf("%lu changes, %zu accepted\n", all.count(), accepted.size());
    }
    munmap(next, sizeof(ULO));
}

INSTANTIATE_TEST_SUITE_P(Programs, HostileCode, testing::ValuesIn(programs));

} // namespace
