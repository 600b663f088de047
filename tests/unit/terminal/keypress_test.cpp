// Single keys from a pseudo-terminal: waits, settings of the terminal, interrupts and failures.
#include "terminal/keypress.h"

#include <chrono>
#include <cstring>

#include "terminal/terminal.h"
#include "tests/unit/terminal/kit.h"

using Keys = at_terminal;

namespace {

double seconds_of(ULO wait)
{
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, term_keypressed(wait));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void say(const char *text)
{
    if (write(1, text, strlen(text)) < 0) _exit(9);
}

interrupt_handler slot = nullptr;

} // namespace

// Of several bytes, the later ones stay in the queue.
TEST_F(Keys, ComeAsTheyAreTyped)
{
    pid_t child = window.start([] {
        std::string text(1, char(term_keypressed(1)));
        while (UCH key = term_keypressed(0)) text += char(key);
        return text == "\033[A\xff" ? 0 : 1;
    });
    window.await_raw();
    termios raw = window.state();
    EXPECT_EQ(before.c_lflag & ~tcflag_t(ICANON | ECHO | ECHOE | ECHOK | ECHONL), raw.c_lflag);
    EXPECT_TRUE(raw.c_lflag & ISIG);
    EXPECT_EQ(before.c_iflag, raw.c_iflag);
    EXPECT_EQ(tcflag_t(OPOST | ONLCR), raw.c_oflag & (OPOST | ONLCR | OCRNL | ONOCR | ONLRET));
    EXPECT_EQ(0x100, raw.c_cc[VMIN] << 8 | raw.c_cc[VTIME]);
    window.type("\033[A\xff");
    EXPECT_EQ(0, end_of(child));
    expect_former_state();
    EXPECT_EQ("", window.shown()) << "no echo";
}

TEST_F(Keys, AreWaitedForAsLongAsAsked)
{
    pid_t child = window.start([] {
        double none = seconds_of(0), short_one = seconds_of(300000), long_one = seconds_of(1100000);
        bool waited = short_one >= 0.29 && long_one >= 1.09;
        return none < 1 && short_one < 1 && long_one < 5 && waited ? 0 : 1;
    });
    EXPECT_EQ(0, end_of(child));
    child = window.start([] { return int(term_keypressed(~ULO(0))); });
    window.await_raw();
    window.type("y");
    EXPECT_EQ('y', end_of(child));
    expect_former_state();
}

TEST_F(Keys, InterruptReachesAFormerHandler)
{
    pid_t child = window.start([] {
        former_interrupt_handler = &slot;
        term_keypressed(0);
        struct sigaction action;
        sigaction(SIGINT, nullptr, &action);
        if (action.sa_handler != SIG_DFL) return 3;
        slot = [](int number) { say(number == SIGINT ? "former" : "?"); };
        term_keypressed(0);
        raise(SIGINT); // now in place again
        return int(term_keypressed(1));
    });
    window.await_raw();
    window.type("\x03");
    EXPECT_EQ(1, end_of(child));
    EXPECT_EQ("formerformer", window.shown().substr(0, 12));
}

TEST_F(Keys, FailuresEndTheProcessWithAReport)
{
    terminal.loaded = true;
    terminal.tty = 40; // not open
    const auto exits = testing::ExitedWithCode(1);
    EXPECT_EXIT(term_keypressed(0), exits,
                "RAW_TTY: synchronous I/O multiplexing error.(.|\n)*keypressed(.|\n)*select");
    EXPECT_EXIT(term_keypressed(1), exits,
                "RAW_TTY: error getting char from /dev/tty.(.|\n)*keypressed(.|\n)*read");
    terminal = terminal_record{};
}
