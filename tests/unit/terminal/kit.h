// Shared by the terminal's tests: a database of the test's own, questions to the current entry, and
// a pseudo-terminal with a process that it controls. Descriptor 0 must be no terminal where the
// size of a window would otherwise reach a test; use fixture no_window.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "terminal/termcap.h"

// A termcap file that TERMCAP names for as long as this lives.
struct database {
    std::string path = testing::TempDir() + "termcap_test_XXXXXX";

    explicit database(const std::string &text)
    {
        int file = mkstemp(path.data());
        EXPECT_EQ(ssize_t(text.size()), write(file, text.data(), text.size()));
        close(file);
        setenv("TERMCAP", path.c_str(), 1);
    }
    ~database()
    {
        unlink(path.c_str());
        unsetenv("TERMCAP");
        free_entry();
    }
};

// What the current entry answers to "co#", "am:" or "cl="; "-" if it has no such string.
inline std::string ask(const char *question)
{
    const char id[] = {question[0], question[1], '\0'};
    if (question[2] == '#') return std::to_string(tgetnum(id));
    if (question[2] == ':') return std::to_string(tgetflag(id));
    char *text = nullptr;
    std::string answer = tgetstr(id, &text) ? text : "-";
    free(text);
    return answer;
}

// A pseudo-terminal; `far` is the side of the program.
struct pty {
    int near = posix_openpt(O_RDWR | O_NOCTTY);
    int far = -1;

    pty()
    {
        grantpt(near);
        unlockpt(near);
        far = open(ptsname(near), O_RDWR | O_NOCTTY);
        EXPECT_GE(far, 0);
    }
    ~pty()
    {
        close(near);
        close(far);
    }

    termios state() const
    {
        termios now{};
        EXPECT_EQ(0, tcgetattr(far, &now));
        return now;
    }

    void set_window(unsigned short rows, unsigned short columns) const
    {
        winsize window{rows, columns, 0, 0};
        EXPECT_EQ(0, ioctl(near, TIOCSWINSZ, &window));
    }

    void type(const std::string &keys) const
    {
        EXPECT_EQ(ssize_t(keys.size()), write(near, keys.data(), keys.size()));
    }

    // What the program's side has sent so far.
    std::string shown() const
    {
        std::string text;
        char byte;
        for (pollfd ready{near, POLLIN, 0}; poll(&ready, 1, 50) > 0 && read(near, &byte, 1) == 1;) {
            text += byte;
        }
        return text;
    }

    bool is_raw() const { return !(state().c_lflag & ICANON); }

    // Waits until a program reads keys, or does so no longer.
    void await_raw(bool raw = true) const
    {
        for (int i = 0; i < 2500 && is_raw() != raw; i++) usleep(2000);
        EXPECT_EQ(raw, is_raw());
        usleep(20000); // what follows the switch
    }

    // Starts `program` in a session of its own, with this as its terminal on /dev/tty and on
    // descriptors 0 to 2. Its value is the exit status. It ends after 20 seconds at the latest.
    pid_t start(const std::function<int()> &program) const
    {
        pid_t child = fork();
        if (child != 0) return child;
        alarm(20);
        setsid();
        for (int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) signal(number, SIG_DFL);
        ioctl(far, TIOCSCTTY, 0);
        for (int i = 0; i < 3; i++) dup2(far, i);
        _exit(program());
    }
};

// How a process ended: its status, or the signal's number below 0.
inline int end_of(pid_t child)
{
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// Descriptor 0 is no terminal, and no test takes longer than 60 seconds.
struct no_window : testing::Test {
    int input = dup(0);
    no_window()
    {
        alarm(60);
        int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, 0);
        close(nothing);
    }
    ~no_window() override
    {
        dup2(input, 0);
        close(input);
    }
};

// The same with a terminal that a program finds and leaves in one state.
struct at_terminal : no_window {
    pty window;
    termios before = window.state();

    void expect_former_state(const std::string &where = "") const
    {
        const termios after = window.state();
        EXPECT_EQ(before.c_iflag, after.c_iflag) << where;
        EXPECT_EQ(before.c_oflag, after.c_oflag) << where;
        EXPECT_EQ(before.c_cflag, after.c_cflag) << where;
        EXPECT_EQ(before.c_lflag, after.c_lflag) << where;
        EXPECT_TRUE(std::equal(before.c_cc, before.c_cc + NCCS, after.c_cc)) << where;
    }
};
