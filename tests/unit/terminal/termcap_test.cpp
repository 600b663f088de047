// Finding, merging and decoding of terminal entries, and padding.
#include "terminal/termcap.h"

#include <cstring>
#include <random>

#include "terminal/capability.h"
#include "tests/unit/terminal/kit.h"

using Termcap = no_window;

namespace {

struct {
    const char *text, *question, *answer;
} const answers[] = {
    // Kinds of capabilities; one of another kind is no hit.
    {"x:co#80:am:cl=^L:", "cl=", "\f"},
    {"x:co#80:", "co:", "0"},
    {"x:co# -7q:", "co#", "-7"},
    {"x:mb=a=b@c#d:", "mb=", "a=b@c#d"},
    // The first definition wins; a cancellation takes the name; a prefix of a node is taken.
    {"x:co#80:co#99:", "co#", "80"},
    {"x:co@:co#80:", "co#", "-1"},
    {"x:cod:co#80:", "co#", "-1"},
    {"x:co#1:c#2:li#3:", "li#", "3"},
    {"x:=y:@:#1:li#3:", "li#", "3"},
    // Fields that count as nothing.
    {"x:.co#80:", "co#", "-1"},
    {"x: \t co#80:", "co#", "80"},
    // Names, several entries, comments, lines that go on.
    {"xy:co#1:\nx:co#2:\n", "co#", "2"},
    {"y|xx:co#1:\n|x:co#2:\n", "co#", "2"},
    {"#x:co#1:\nx:\\\n# co#2:\\\n \t:co#3:\\\n\t:li#4:\nz:am:\n", "co#", "3"},
    {"x:\\\n\t:li#4:\nz:am:\n", "am:", "0"},
    {"x:ab=1\\\n 2:", "ab=", "12"},
    {"x:ab=\\\\\\\n2:", "ab=", "\2"},
    {"x\ny:co#1:", "co#", "-1"},
    // Escapes.
    {"x:ab=\\E[1m\\072\\:^A^?:", "ab=", "\033[1m::\001\037"},
    {"x:ab=\\n\\r\\t\\b\\f\\\\\\q:", "ab=", "\n\r\t\b\fq"},
    {"x:ab=\\1\\12\\0123\\101\\200\\377\\8:", "ab=", "\1\12\0123A\200\3778"},
    {"x:ab=\\134E:", "ab=", "\033"},
    {"x:ab=^\\:y:cd=z:", "ab=", "\034:y"},
    {"x:ab=\\\nmore", "ab=", "more"},
    {"x:co#80:\\", "co#", "80"},
    // References.
    {"x:co#80:tc=y:\ny:co#99:li#5:", "li#", "5"},
    {"x:tc=y:co#80:\ny:co#99:li#5:", "co#", "80"},
    {"x:co@:tc=y:\ny:co#80:", "co#", "-1"},
    {"x:co#80:tc=y:\ny:tc=x:li#5:", "li#", "5"},
    {"x:co#80:tc=none:tc=y:\ny:li#5:", "li#", "-1"},
    {"x:tc=y:tc=z:\ny:co#1:\nz:co#2:li#2:", "co#", "1"},
};

// An entry t0 that leads through `count` references to the only one with co#7.
std::string chain(int count)
{
    std::string text = "t0:tc=t1:";
    for (int i = 1; i < count; i++)
        text += "\nt" + std::to_string(i) + ":am:tc=t" + std::to_string(i + 1) + ":";
    return text + "\nt" + std::to_string(count) + ":co#7:\n";
}

std::string entry_of(const std::string &text)
{
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    char *entry = get_one_entry(stream, "x");
    fclose(stream);
    std::string copy = entry ? entry : "none";
    free(entry);
    return copy;
}

std::string padded;
int collect_byte(int byte)
{
    padded += char(byte);
    return byte;
}

} // namespace

TEST_F(Termcap, AnswersFromTheDatabase)
{
    for (auto &row : answers) {
        database file(row.text);
        tgetent(nullptr, "x");
        EXPECT_EQ(row.answer, ask(row.question)) << row.text << " " << row.question;
    }
}

TEST_F(Termcap, TellsWhatItFound)
{
    free_entry();
    EXPECT_EQ("-1", ask("co#"));
    EXPECT_EQ("-", ask("cl="));
    {
        database file("x:co#80:\ny:\n");
        EXPECT_EQ(1, tgetent(nullptr, "x"));
        EXPECT_EQ(0, tgetent(nullptr, "z"));
        EXPECT_EQ(0, tgetent(nullptr, "y"));
        EXPECT_EQ("80", ask("co#")) << "a failure leaves the entry";
        EXPECT_EQ(-1, tgetnum("c"));
    }
    for (const char *path : {"/no/such/file", "/", "/dev/zero"}) {
        setenv("TERMCAP", path, 1);
        EXPECT_EQ(-1, tgetent(nullptr, "x")) << path;
    }
}

TEST_F(Termcap, FollowsSixteenNames)
{
    for (int references : {1, 15, 16, 40}) {
        database file(chain(references));
        EXPECT_EQ(1, tgetent(nullptr, "t0"));
        EXPECT_EQ(references <= 15 ? 7 : -1, tgetnum("co")) << references;
    }
}

TEST_F(Termcap, TakesAnEntryFromTheEnvironment)
{
    for (const char *variable : {"v|x|long name:co#70:tc=y:li#2:", "x\n:co#70:", "|x:co#70:"}) {
        setenv("TERMCAP", variable, 1);
        free_entry();
        EXPECT_EQ(1, tgetent(nullptr, "x")) << variable;
        EXPECT_EQ(70, tgetnum("co")) << variable;
    }
    EXPECT_EQ(0, chdir(testing::TempDir().c_str()));
    database file("x:co#60:");
    std::string name = "t:" + std::to_string(getpid());
    EXPECT_EQ(0, rename(file.path.c_str(), name.c_str()));
    setenv("TERMCAP", name.c_str(), 1);
    EXPECT_EQ(1, tgetent(nullptr, "x")) << "a colon in second place makes it a path";
    unlink(name.c_str());
}

TEST_F(Termcap, PrefersTheWindow)
{
    pty window;
    dup2(window.far, 0);
    database file("x:li#1:co#2:am:\nnone:li@:am:\nlast:li#1:\n");
    window.set_window(50, 132);
    EXPECT_EQ(1, tgetent(nullptr, "x"));
    EXPECT_EQ("50/132/1", ask("li#") + "/" + ask("co#") + "/" + ask("am:"));
    for (const char *name : {"none", "last"}) {
        EXPECT_EQ(1, tgetent(nullptr, name));
        EXPECT_EQ("50/132", ask("li#") + "/" + ask("co#")) << name;
    }
    window.set_window(0, 132);
    EXPECT_EQ(1, tgetent(nullptr, "x"));
    EXPECT_EQ("1/2", ask("li#") + "/" + ask("co#"));
}

TEST_F(Termcap, ReadsLinesInPieces)
{
    EXPECT_EQ("x:" + std::string(300, 'a'), entry_of("x:" + std::string(300, 'a') + "\nb"));
    // Blanks at the start of the second piece fall out, a piece that starts with # does so whole.
    std::string piece = "x:" + std::string(253, 'a');
    EXPECT_EQ(piece + "b", entry_of(piece + "  b\n"));
    EXPECT_EQ(piece, entry_of(piece + "#b\nc\n").substr(0, 255));
    EXPECT_EQ(piece + "b", entry_of(piece + "\\\nb\n"));
    std::string cut = "x:" + std::string(252, 'a');
    EXPECT_EQ(cut + "b", entry_of(cut + "\\\nb\n")) << "the backslash ends the first piece";
    EXPECT_EQ("x:ab", entry_of(std::string("x:a\0zz\nb\n", 9))) << "a NUL ends a piece";
    EXPECT_EQ("x:a\\", entry_of("x:a\\"));
    EXPECT_EQ("none", entry_of(std::string(3000, '|')));
}

// Whatever the bytes: it ends, and what is answered lies within the entry.
TEST_F(Termcap, SurvivesAnyBytes)
{
    std::mt19937 random(7);
    static const char bytes[] = "xxyab12:::|\\\\\\^^=#@.\n\n\t tc=cl=co#E0789%\0\xff\x80";
    for (int round = 0; round < 4000; round++) {
        std::string text = "x:ab=";
        for (int size = int(random() % 700); size > 0; size--)
            text += bytes[random() % sizeof bytes];
        EXPECT_LE(entry_of(text).size(), 4093U);
        term_texts list, names = {"x"};
        parse_entry(text.c_str(), &list, &names);
        EXPECT_LE(joined_size("x", list), text.size() + 8);
        database file(text);
        if (round % 2) setenv("TERMCAP", text.c_str(), 1);
        tgetent(nullptr, "x");
        for (const char *question : {"ab=", "cl=", "co#", "tc=", "x::"}) {
            EXPECT_LE(ask(question).size(), text.size() + 20);
        }
    }
}

TEST_F(Termcap, PadsForTheLineSpeed)
{
    static const struct {
        const char *text;
        int lines;
        SSH speed;
        std::string sent;
    } cases[] = {
        {"ab", 3, 15, "ab"},
        {"50ab", 3, 15, "ab" + std::string(47, '*')}, // 9,600 baud: 48 bytes, rounded
        {"50.5*a", 2, 15, "a" + std::string(96, '*')},
        {"50a", 1, 3, "a" + std::string(1, '*')},
        {"50a", 1, 0, "a"},
        {"50a", 1, 20, "a"},
        {"50*a", -1, 15, "a"},
        {"9.", 1, 15, std::string(8, '*')},
    };
    PC = '*';
    for (auto &row : cases) {
        padded.clear();
        ospeed = row.speed;
        tputs(row.text, row.lines, collect_byte);
        EXPECT_EQ(row.sent, padded) << row.text << " at speed " << row.speed;
    }
    tputs(nullptr, 1, collect_byte);
}
