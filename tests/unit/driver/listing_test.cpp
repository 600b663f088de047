// Listings of source text: what stands between the separators is a source of the same program,
// inside the width, and laid out as a plain second layout says.

#include "driver/listing.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

#include "frontend/reader.h"
#include "tests/kit/passes.h"
#include "tests/kit/random_program.h"

namespace {

std::string listed(const std::string &text, const listing_style &style)
{
    testing::internal::CaptureStdout();
    kestrin_print(text, style);
    return testing::internal::GetCapturedStdout();
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (std::size_t from = 0, end; (end = text.find('\n', from)) != text.npos; from = end + 1)
        lines.push_back(text.substr(from, end - from));
    return lines;
}

// -- The plain layout --------------------------------------------------------------------------

struct plain_layout {
    ULO width;
    std::string out;

    void line(ULO indent, const std::string &text)
    {
        out += std::string(indent, ' ') + text + "\n";
    }
    void form(const std::string &text, ULO indent);
    void atoms(std::string *first, std::string *rest, ULO indent);
    void string(std::string raw, ULO indent);
};

template <class F> std::string through(F function, const std::string &text)
{
    scratch source;
    assign(&source.s, text);
    return std::string(view(function(&source.s, source.s)));
}

void plain_layout::string(std::string raw, ULO indent)
{
    line(indent + 2, "(");
    while (!raw.empty()) {
        ULO size = std::min<ULO>(6, raw.size());
        while (raw.size() >= 7 && size < raw.size() &&
               through(strunraw, raw.substr(0, size + 1)).size() + indent + 7 <= width)
            size++;
        std::string piece = through(rtrim_utf8, raw.substr(0, size));
        if (piece.empty()) piece = raw.substr(0, size);
        line(indent + 4, "\"" + through(strunraw, piece) + "\"");
        raw.erase(0, piece.size());
    }
    line(indent + 2, ")");
}

// An atom with those behind it that fit its line.
void plain_layout::atoms(std::string *first, std::string *rest, ULO indent)
{
    std::string joined = *first, next = through(lsp_head, *rest);
    while (!next.empty() && next[0] != '(' && joined.size() + next.size() + indent + 2 < width) {
        joined += " " + next;
        *rest = through(lsp_tail, *rest);
        next = through(lsp_head, *rest);
    }
    if (joined == *first && joined[0] == '"' && joined.size() + indent + 4 > width) {
        const std::string raw = through(strraw, joined.substr(1, joined.size() - 2));
        if (raw.size() > 6) return string(raw, indent);
    }
    line(indent + 2, joined);
}

void plain_layout::form(const std::string &text, ULO indent)
{
    if (text.size() + indent <= width || text[0] != '(') return line(indent, text);
    std::string rest = text.substr(1, text.size() - 2);
    line(indent, "(" + through(lsp_head, rest));
    rest = through(lsp_tail, rest);
    while (!rest.empty()) {
        std::string element = through(lsp_head, rest);
        rest = through(lsp_tail, rest);
        if (element[0] == '(')
            form(element, indent + 2);
        else
            atoms(&element, &rest, indent);
    }
    line(indent, ")");
}

std::string plainly_listed(const std::string &text, ULO width)
{
    plain_layout layout = {width, ""};
    layout.line(0, std::string(width, '-'));
    layout.form(text, 0);
    layout.line(0, std::string(width, '-'));
    return layout.out;
}

// -- Random texts ------------------------------------------------------------------------------

std::string random_string(std::mt19937 &random)
{
    const char *pieces[] = {"a",    " ",    "\n", "\"",   "\\",   "(",        ")",
                            "\x7F", "#",    "\t", "\x01", "\xC3", "\xC3\xA9", "\xE2\x82\xAC",
                            "word", "\x80", "@I", "\x1B"};
    std::string raw;
    for (unsigned n = random() % 80; n > 0; n--) raw += pieces[random() % std::size(pieces)];
    return "\"" + through(strunraw, raw) + "\"";
}

// A random program with long strings in it, as the stages before the listing leave it.
std::string random_text(unsigned seed)
{
    std::mt19937 random(seed);
    std::string text = kit::random_program(seed, false, "(IRND 1)", "(IADD 0").text();
    const std::string from = "\"x\"";
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at)) {
        const std::string string = random_string(random);
        text.replace(at, from.size(), string);
        at += string.size();
    }
    return kit::squeezed(kit::checked(text));
}

std::string prepared(const CHR *path)
{
    scratch text;
    read_from_file(&text.s, path);
    return kit::squeezed(kit::checked("(PROGN " + std::string(view(text.s)) + ")"));
}

std::string read_again(const std::string &source)
{
    char path[] = "/tmp/kestrin-listing-XXXXXX";
    const int file = mkstemp(path);
    EXPECT_EQ(write(file, source.data(), source.size()), SLO(source.size()));
    close(file);
    const std::string text = prepared(path);
    unlink(path);
    return text;
}

class Listing : public testing::Test {
protected:
    void SetUp() override { kit::start_passes(); }
    template <class F> static void for_random_texts(F test)
    {
        for (unsigned seed = 0; seed < 150; seed++)
            for (const ULO width : {39, 79, 131}) {
                const std::string text = random_text(seed);
                ASSERT_EQ(text[0], '(') << text;
                SCOPED_TRACE(seed);
                test(text, width);
            }
    }
};

TEST_F(Listing, AgreesWithThePlainLayout)
{
    for_random_texts([](const std::string &text, ULO width) {
        EXPECT_EQ(listed(text, {width, false}), plainly_listed(text, width));
    });
}

TEST_F(Listing, IsASourceOfTheSameProgram)
{
    for_random_texts([](const std::string &text, ULO width) {
        const std::string listing = listed(text, {width, false});
        EXPECT_EQ(read_again(listing.substr(width + 1, listing.size() - 2 * (width + 1))), text);
    });
}

TEST_F(Listing, OfWholeProgramsIsASource)
{
    const auto root = std::filesystem::absolute(__FILE__).parent_path() / "../../..";
    ULO programs = 0;
    for (const char *folder : {"tutorial/examples", "bench/programs"})
        for (const auto &file : std::filesystem::directory_iterator(root / folder)) {
            if (file.path().extension() != ".kst") continue;
            const std::string text = prepared(file.path().c_str());
            ASSERT_NE(text[0], '[') << text << file.path();
            programs++;
            for (const ULO width : {39, 79}) {
                const std::string listing = listed(text, {width, false});
                EXPECT_EQ(read_again(listing.substr(width + 1, listing.size() - 2 * (width + 1))),
                          text);
            }
        }
    EXPECT_GT(programs, 10u);
}

// Far to the right, a name and the shortest pieces of a string have no room to keep inside.
TEST_F(Listing, KeepsInsideItsWidth)
{
    for_random_texts([](const std::string &text, ULO width) {
        for (const std::string &line : lines_of(listed(text, {width, false}))) {
            const auto indent = line.find_first_not_of(' ');
            EXPECT_TRUE(line.size() <= width || indent + 40 > width) << line;
        }
    });
}

TEST_F(Listing, AddsTheRawTextInPieces)
{
    for_random_texts([](const std::string &text, ULO width) {
        const std::string plain = listed(text, {width, false}),
                          dumped = listed(text, {width, true});
        const std::string separator = std::string(width, '-') + "\n";
        ASSERT_EQ(dumped.substr(0, plain.size()), plain);
        std::string together;
        for (const std::string &line : lines_of(dumped.substr(plain.size()))) {
            EXPECT_LE(line.size(), width);
            together += line;
        }
        EXPECT_EQ(together, text + std::string(width, '-'));
    });
}

struct edge_case {
    const char *text, *listing; // of 20 columns
};

const edge_case edges[] = {
    {"(CAT \"12345\" \"67890\")", "(CAT\n  \"12345\" \"67890\"\n)\n"},
    {"(CAT \"1234\" \"67890\")", "(CAT \"1234\" \"67890\")\n"},
    {"A", "A\n"},
    {"(LEN \"123456 89 123\")", "(LEN\n  \"123456 89 123\"\n)\n"},
    {"(LEN \"123456 89 123456\")", "(LEN\n  (\n    \"123456 89 123\"\n    \"456\"\n  )\n)\n"},
    // Six raw bytes stay whole, however they are written.
    {R"((LEN "\0x01\0x01\0x01\0x01\0x01\0x01"))",
     "(LEN\n  \"\\0x01\\0x01\\0x01\\0x01\\0x01\\0x01\"\n)\n"},
    {R"((LEN "\0x01\0x01\0x01\0x01\0x01\0x01a"))",
     "(LEN\n  (\n    \"\\0x01\\0x01\\0x01\\0x01\\0x01\\0x01\"\n    \"a\"\n  )\n)\n"},
    // A character is not torn apart.
    {"(LEN \"123456789012\xC3\xA9 4567\")",
     "(LEN\n  (\n    \"123456789012\"\n    \"\xC3\xA9 4567\"\n  )\n)\n"},
    {"(SUBSTR A 100000000 B)", "(SUBSTR\n  A 100000000 B\n)\n"},
    {"(SUBSTR A 10000000000 BBBB)", "(SUBSTR\n  A 10000000000 BBBB\n)\n"},
    {"(SUBSTR A 10000000000 BBBBB)", "(SUBSTR\n  A 10000000000\n  BBBBB\n)\n"},
    {"(IADD (IADD AAAA BBBB) 1)", "(IADD\n  (IADD AAAA BBBB)\n  1\n)\n"},
    {"(DEFUN F (PROGN 1)) (DEFUN G (PROGN 2))", "(DEFUN F (PROGN 1))\n(DEFUN G (PROGN 2))\n"},
};

TEST_F(Listing, Edges)
{
    const std::string separator = std::string(20, '-') + "\n";
    for (const edge_case &e : edges)
        EXPECT_EQ(listed(e.text, {20, false}), separator + e.listing + separator) << e.text;
}

} // namespace
