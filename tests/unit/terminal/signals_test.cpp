// Signals around a wait for a key. So that no moment is missed, a signal follows each system call
// of term_keypressed() once: the calls come here first.
#include <csignal>
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/select.h>

#include "terminal/keypress.h"
#include "terminal/terminal.h"
#include "tests/unit/terminal/kit.h"

namespace {

int calls_left = 0; // until the signal comes
int coming = 0;     // its number

template <class Call> Call *real(const char *name)
{
    return reinterpret_cast<Call *>(dlsym(RTLD_NEXT, name));
}

template <class Result> Result followed(Result result)
{
    if (calls_left == 0 || --calls_left > 0) return result;
    const int fault = errno;
    kill(getpid(), coming);
    errno = fault;
    return result;
}

} // namespace

#define FOLLOWED(result, name, parameters, arguments)                                              \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        static const auto call = real<result parameters>(#name);                                   \
        return followed(call arguments);                                                           \
    }
FOLLOWED(int, tcdrain, (int fd), (fd))
FOLLOWED(int, tcgetattr, (int fd, termios *state), (fd, state))
FOLLOWED(int, tcsetattr, (int fd, int how, const termios *state), (fd, how, state))
FOLLOWED(int, sigaction, (int number, const struct sigaction *action, struct sigaction *former),
         (number, action, former))
FOLLOWED(sighandler_t, signal, (int number, sighandler_t handler), (number, handler))
FOLLOWED(int, pthread_sigmask, (int how, const sigset_t *set, sigset_t *former), (how, set, former))
FOLLOWED(int, select, (int count, fd_set *in, fd_set *out, fd_set *other, timeval *limit),
         (count, in, out, other, limit))
FOLLOWED(ssize_t, read, (int fd, void *bytes, size_t size), (fd, bytes, size))

namespace {

struct Signals : at_terminal {
    // The pseudo-terminal is opened ahead of the moments that count.
    pid_t start(const std::function<int()> &program) const
    {
        return window.start([&program] {
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            term_init(nullptr);
            return program();
        });
    }
};

constexpr int WITHOUT_SIGNAL = 42;

} // namespace

TEST_F(Signals, FindNoMomentThatLeavesTheTerminalRaw)
{
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
        int moments = 0;
        for (int end = 0; end != WITHOUT_SIGNAL; moments++) {
            end = end_of(start([&] {
                coming = number;
                calls_left = moments + 1;
                term_keypressed(5);
                return calls_left > 0 ? WITHOUT_SIGNAL : 0;
            }));
            const std::string where = std::to_string(number) + " behind call " +
                                      std::to_string(moments + 1) + ": " + std::to_string(end);
            // Alone in its session a process is not stopped. SIGINT outside of the wait is the
            // system's.
            const bool interrupted = number == SIGINT && end == 1;
            EXPECT_TRUE(end == WITHOUT_SIGNAL || interrupted ||
                        end == (number == SIGTSTP ? 0 : -number))
                << where;
            expect_former_state(where);
        }
        EXPECT_LT(15, moments);
    }
}

TEST_F(Signals, EndAWaitAsTheyEndTheProcess)
{
    for (ULO wait : {ULO(1), ULO(15000000)})
        for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            const pid_t child = start([wait] { return int(term_keypressed(wait)); });
            window.await_raw();
            kill(child, number);
            EXPECT_EQ(number == SIGINT ? 1 : -number, end_of(child));
            expect_former_state();
        }
}

TEST_F(Signals, StopAWaitAndLetItGoOn)
{
    // A process group that is not alone in its session can be stopped.
    const pid_t session = start([] {
        const pid_t child = fork();
        if (child == 0) {
            setpgid(0, 0);
            signal(SIGTTOU, SIG_IGN);
            tcsetpgrp(0, getpid());
            signal(SIGTTOU, SIG_DFL);
            _exit(term_keypressed(1) == 'k' && term_keypressed(15000000) == 'l' ? 0 : 1);
        }
        for (int stops = 0; stops < 2; stops++) {
            int status = 0;
            waitpid(child, &status, WUNTRACED);
            termios state;
            tcgetattr(0, &state);
            if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGTSTP) return 2;
            if (!(state.c_lflag & ICANON) || !(state.c_lflag & ECHO)) return 3;
            kill(child, SIGCONT);
        }
        return end_of(child);
    });
    for (const char *key : {"k", "l"}) {
        window.await_raw();
        usleep(20000);
        window.type("\x1a"); // the key that stops
        usleep(100000);
        window.await_raw();
        window.type(key);
        usleep(20000);
    }
    EXPECT_EQ(0, end_of(session));
    expect_former_state();
}
