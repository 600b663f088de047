// The eleven values, their report, and the cursor strings that programs ask for.
#include "terminal/terminal.h"

#include "strings/scratch.h"
#include "tests/unit/terminal/kit.h"

namespace {

// The record starts each test as it starts a process.
struct Values : no_window {
    Values()
    {
        terminal.wants_tty = false;
        unsetenv("TERM");
        setenv("TERMCAP", "/no/such/file", 1);
    }
    ~Values() override
    {
#define TERM_NAME(name, standard) free_string(&terminal.name);
#define TERM_NUMBER(name, capability, standard, few, least, what)
#define TERM_STRING(name, capability, standard, what) free_string(&terminal.name);
#include "terminal/terminal.def"
        free_string(&terminal.init_status);
        free_string(&terminal.reinit_status);
        terminal = terminal_record{};
    }
};

std::string size()
{
    return std::to_string(terminal.LINES_TERM) + "x" + std::to_string(terminal.COLUMNS_TERM);
}

std::string no_capability(const std::string &what)
{
    return "`" + what + "' capability was not found, default value is used!\n";
}

const std::string NO_NAME = "Environment variable TERM has not been found!\n",
                  NO_ENTRY = "Cannot find terminal section in terminal database!\n",
                  TWICE = "Warning: duplicate loading of termcap information!\n",
                  FEW_LINES = "`Number of lines (li)' capability is less than 24!\n",
                  FEW_COLUMNS = "`Number of columns (co)' capability is less than 80!\n",
                  NO_LINES = no_capability("Number of lines (li)"),
                  NO_COLUMNS = no_capability("Number of columns (co)");

std::string reinit_report()
{
    return "Current termcap reinit settings:\n  LINES_TERM=`" +
           std::to_string(terminal.LINES_TERM) + "'; COLUMNS_TERM=`" +
           std::to_string(terminal.COLUMNS_TERM) + "'.\n";
}

std::string default_report(const std::string &type)
{
    return "Current termcap settings:\n  TERM_TYPE=`" + type +
           "'; LINES_TERM=`25'; COLUMNS_TERM=`80';\n"
           "  CLRSCR_TERM=`\\e[m\\e[7h\\e[2J'; REVERSE_TERM=`\\e[7m'; BLINK_TERM=`';\n"
           "  BOLD_TERM=`\\e[1m'; NORMAL_TERM=`\\e[m'; HIDECURSOR_TERM=`';\n"
           "  SHOWCURSOR_TERM=`'; GOTOCURSOR_TERM=`\\e[%i%d;%dH'.\n";
}

} // namespace

TEST_F(Values, AreDefaultsWithoutADatabase)
{
    term_init(nullptr);
    EXPECT_EQ(NO_NAME + NO_ENTRY + default_report("ansi.sys"), view(terminal.init_status));
    EXPECT_TRUE(terminal.warning && terminal.loaded);
    term_init("other");
    term_init(terminal.TERM_TYPE);
    EXPECT_EQ("other", view(terminal.TERM_TYPE));
}

TEST_F(Values, ComeFromTheDatabase)
{
    database file("full:li#30:co#100:cl=C:mr=R:mb=B:md=D:me=E:vi=I:ve=V:cm=%d.%d:\n"
                  "bare:am:\n");
    term_init("full");
    EXPECT_EQ("Current termcap settings:\n"
              "  TERM_TYPE=`full'; LINES_TERM=`30'; COLUMNS_TERM=`100';\n"
              "  CLRSCR_TERM=`C'; REVERSE_TERM=`R'; BLINK_TERM=`B';\n"
              "  BOLD_TERM=`D'; NORMAL_TERM=`E'; HIDECURSOR_TERM=`I';\n"
              "  SHOWCURSOR_TERM=`V'; GOTOCURSOR_TERM=`%d.%d'.\n",
              view(terminal.init_status));
    EXPECT_FALSE(terminal.warning);
    term_init("bare");
    std::string missing = NO_LINES + NO_COLUMNS;
    for (const char *what :
         {"Clear screen and cursor home (cl)", "Start reverse mode (mr)", "Start blinking (mb)",
          "Start bold mode (md)", "End all modes like mb,md,mr (me)", "Cursor invisible (vi)",
          "Cursor visible (ve)", "Cursor move (cm)"})
        missing += no_capability(what);
    EXPECT_EQ(TWICE + missing + default_report("bare"), view(terminal.init_status));
    EXPECT_TRUE(terminal.warning);
}

// The same limits for what the database says and for the window behind it.
TEST_F(Values, KeepTheSizeWithinLimits)
{
    static const struct {
        int lines, columns;
        const char *size;
        std::string messages, database_messages;
    } cases[] = {
        {24, 80, "24x80", "", ""},
        {23, 79, "23x79", FEW_LINES + FEW_COLUMNS, ""},
        {12, 80, "12x80", FEW_LINES, ""},
        {10, 40, "10x40", FEW_LINES + FEW_COLUMNS, ""},
        {9, 39, "10x40", FEW_LINES + FEW_COLUMNS, ""},
        {65535, 65535, "25x80", "", NO_LINES + NO_COLUMNS},
    };
    term_reinit("x");
    EXPECT_EQ(nullptr, terminal.reinit_status) << "the first call loads, nothing else";
    pty window;
    for (auto &row : cases) {
        const std::string lines = std::to_string(row.lines), columns = std::to_string(row.columns);
        database file("t:li#" + lines + ":co#" + columns + ":cl=:mr=:mb=:md=:me=:vi=:ve=:cm=:");
        terminal.loaded = false;
        term_init("t");
        EXPECT_EQ(row.size, size());
        std::string_view status = view(terminal.init_status);
        EXPECT_EQ(row.messages + row.database_messages, status.substr(0, status.find("Current")));
        EXPECT_EQ(status[0] != 'C', terminal.warning);
        window.set_window(static_cast<unsigned short>(row.lines),
                          static_cast<unsigned short>(row.columns));
        terminal.tty = window.far;
        term_reinit(nullptr);
        EXPECT_EQ(row.size, size());
        EXPECT_EQ(row.messages + reinit_report(), view(terminal.reinit_status));
        EXPECT_EQ(status[0] != 'C', terminal.warning);
    }
    window.set_window(0, 0);
    term_reinit(nullptr);
    EXPECT_EQ("25x80", size());
    terminal.tty = -1;
    term_reinit(nullptr);
    EXPECT_EQ("25x80", size()) << "a query that fails reads as 0 by 0";
    EXPECT_TRUE(terminal.warning);
    term_init(nullptr);
    EXPECT_EQ(0U, len(terminal.reinit_status));
}

TEST_F(Values, OpenTheTerminal)
{
    pty window;
    window.set_window(33, 99);
    pid_t child = window.start([] {
        terminal.wants_tty = true;
        term_init(nullptr);
        int first = terminal.tty;
        term_init(nullptr);
        if (first <= 2 || terminal.tty <= first || !isatty(first)) return 1;
        term_reinit(nullptr);
        return size() == "33x99" ? 0 : 2;
    });
    EXPECT_EQ(0, end_of(child));
    child = window.start([] {
        signal(SIGHUP, SIG_IGN);
        ioctl(0, TIOCNOTTY);
        terminal.wants_tty = true;
        term_init(nullptr);
        return terminal.tty;
    });
    EXPECT_EQ(2, end_of(child)) << "without a controlling terminal";
}
