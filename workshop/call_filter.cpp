// Whatever is not in the table is refused. The kernel sends a signal in place of a refused call;
// its handler notes the call and lets it fail.

#include "workshop/call_filter.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <vector>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>

#include "kestrin/types.h"

#if defined(__x86_64__)
#define PROCESSOR AUDIT_ARCH_X86_64
#define RESULT_REGISTER gregs[REG_RAX]
#elif defined(__aarch64__)
#define PROCESSOR AUDIT_ARCH_AARCH64
#define RESULT_REGISTER regs[0]
#endif

#ifdef PROCESSOR

namespace {

using instructions = std::vector<sock_filter>;

// Memory, time, standard streams and signals of its own.
constexpr int allowed[] = {
    SYS_read,
    SYS_readv,
    SYS_write,
    SYS_writev,
    SYS_lseek,
    SYS_fstat,
    SYS_close,
    SYS_brk,
    SYS_mmap,
    SYS_munmap,
    SYS_mremap,
    SYS_mprotect,
    SYS_madvise,
    SYS_futex,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_sigaltstack,
    SYS_restart_syscall,
    SYS_pselect6,
    SYS_ppoll,
    SYS_nanosleep,
    SYS_clock_nanosleep,
    SYS_clock_gettime,
    SYS_gettimeofday,
    SYS_setitimer,
    SYS_getrusage,
    SYS_sched_yield,
    SYS_getpid,
    SYS_gettid,
    SYS_getpgid,
    SYS_getrandom,
    SYS_exit,
    SYS_exit_group,
#ifdef __x86_64__
    SYS_select,
    SYS_poll,
    SYS_time,
    SYS_getpgrp,
#endif
};

// Calls that depend on one of their arguments: it has this value, or has this bit.
struct condition {
    int call, argument;
    USH test; // BPF_JEQ or BPF_JSET
    unsigned value;
};

condition conditions[] = {
    {SYS_ioctl, 1, BPF_JEQ, TCGETS},     // whether it is a terminal
    {SYS_ioctl, 1, BPF_JEQ, TCSBRK},     // waits until all is written
    {SYS_ioctl, 1, BPF_JEQ, TIOCGPGRP},  // who is in the foreground
    {SYS_ioctl, 1, BPF_JEQ, TIOCGWINSZ}, // its size
    {SYS_newfstatat, 3, BPF_JSET, AT_EMPTY_PATH},
    {SYS_prlimit64, 1, BPF_JEQ, RLIMIT_FSIZE}, // lifted ahead of the last word
    {SYS_tgkill, 0, BPF_JEQ, 0},               // itself: the number is filled in
};

// What refused calls were for. A call that has no row is told by its number.
struct purpose {
    int call;
    const CHR *text;
};

constexpr purpose purposes[] = {
    {SYS_newfstatat, "looking for a file"}, {SYS_openat, "opening a file"},
    {SYS_unlinkat, "removing a file"},      {SYS_ioctl, "the keys of a terminal"},
    {SYS_dup, "a copy of a stream"},        {SYS_getcwd, "the name of its folder"},
    {SYS_clone, "another process"},         {SYS_clone3, "another process"},
    {SYS_execve, "another program"},        {SYS_socket, "the network"},
#ifdef __x86_64__
    {SYS_open, "opening a file"},           {SYS_creat, "opening a file"},
    {SYS_unlink, "removing a file"},        {SYS_fork, "another process"},
    {SYS_vfork, "another process"},
#endif
};

// By row; the last is for all other calls, of which one is told.
volatile sig_atomic_t was_refused[std::size(purposes) + 1];
volatile sig_atomic_t other_call;

void note_refusal(int call)
{
    ULO row = 0;
    while (row < std::size(purposes) && purposes[row].call != call) row++;
    was_refused[row] = 1;
    if (row == std::size(purposes)) other_call = call;
}

void on_refusal(int, siginfo_t *about, void *context)
{
    note_refusal(about->si_syscall);
    static_cast<ucontext_t *>(context)->uc_mcontext.RESULT_REGISTER = -EPERM;
}

void load(instructions *filter, ULO offset)
{
    filter->push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, unsigned(offset)));
}

// Ends with `verdict` if the test of what was loaded has this answer.
void decide(instructions *filter, USH test, unsigned value, bool answer, unsigned verdict)
{
    const UCH if_true = answer ? 0 : 1, if_false = answer ? 1 : 0;
    filter->push_back(BPF_JUMP(USH(BPF_JMP | test | BPF_K), value, if_true, if_false));
    filter->push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
}

// Lower halves of arguments are what the kernel looks at, in all that are asked about.
void add_condition(instructions *filter, const condition &c)
{
    load(filter, offsetof(seccomp_data, nr));
    filter->push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, unsigned(c.call), 0, 3));
    load(filter, offsetof(seccomp_data, args) + sizeof(std::uint64_t) * ULO(c.argument));
    decide(filter, c.test, c.value, true, SECCOMP_RET_ALLOW);
}

instructions make_filter()
{
    instructions filter;
    load(&filter, offsetof(seccomp_data, arch));
    decide(&filter, BPF_JEQ, PROCESSOR, false, SECCOMP_RET_KILL);
    load(&filter, offsetof(seccomp_data, nr));
    for (const int call : allowed)
        decide(&filter, BPF_JEQ, unsigned(call), true, SECCOMP_RET_ALLOW);
    for (const condition &c : conditions) add_condition(&filter, c);
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    return filter;
}

} // namespace

bool install_call_filter(std::string *why)
{
    std::end(conditions)[-1].value = unsigned(getpid());
    struct sigaction action = {};
    action.sa_sigaction = on_refusal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    instructions filter = make_filter();
    const sock_fprog program = {static_cast<USH>(filter.size()), filter.data()};
    const bool done = sigaction(SIGSYS, &action, nullptr) == 0 &&
                      prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    if (!done) *why = std::string("the system filters no calls: ") + strerror(errno);
    return done;
}

std::string refused_calls()
{
    std::string told;
    const auto add = [&told](const std::string &text) {
        if (told.find(text) == told.npos) told.append(told.empty() ? "" : ", ").append(text);
    };
    for (ULO row = 0; row < std::size(purposes); row++)
        if (was_refused[row]) add(purposes[row].text);
    if (was_refused[std::size(purposes)]) add("system call " + std::to_string(other_call));
    return told;
}

#else

bool install_call_filter(std::string *why)
{
    *why = "calls are not filtered on this processor";
    return false;
}

std::string refused_calls() { return {}; }

#endif
