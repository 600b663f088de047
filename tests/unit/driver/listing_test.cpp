// Listings of source text: what stands between the separators is a source of the same program and
// keeps inside the width. How it is laid out shows at the edges of a narrow one.

#include "driver/listing.h"

#include <gtest/gtest.h>
#include <vector>

#include "kestrin/strings.h"
#include "tests/kit/passes.h"
#include "tests/kit/random_program.h"

namespace {

std::string listed(const std::string &text, const listing_style &style)
{
    testing::internal::CaptureStdout();
    kestrin_print(text, style);
    return testing::internal::GetCapturedStdout();
}

std::string listed_plain(const std::string &text, ULO width)
{
    testing::internal::CaptureStdout();
    kestrin_print_form(text, {width, true});
    return testing::internal::GetCapturedStdout();
}

std::string random_string(std::mt19937 &random)
{
    const char *pieces[] = {"a",    " ",    "\n", "\"",   "\\",   "(",        ")",
                            "\x7F", "#",    "\t", "\x01", "\xC3", "\xC3\xA9", "\xE2\x82\xAC",
                            "word", "\x80", "@I", "\x1B"};
    std::string raw;
    for (unsigned n = random() % 80; n > 0; n--) raw += pieces[random() % std::size(pieces)];
    return "\"" + kit::passed(raw, [](CHR **targ) { strunraw(targ, *targ); }) + "\"";
}

std::string prepared(const std::string &source) { return kit::squeezed(kit::checked(source)); }

// Programs as the stages before the listing leave them: random ones with long strings in them, and
// the project's own.
std::vector<std::string> texts()
{
    std::vector<std::string> made;
    for (const std::string &source : kit::own_programs({"tutorial/examples", "bench/programs"}))
        made.push_back(prepared("(PROGN " + source + ")"));
    for (unsigned seed = 0; seed < 150; seed++) {
        std::mt19937 random(seed);
        std::string text = kit::random_program(seed, false, "(IRND 1)", "(IADD 0").text();
        for (auto at = text.find("\"x\""); at != text.npos; at = text.find("\"x\"", at)) {
            const std::string string = random_string(random);
            text.replace(at, 3, string);
            at += string.size();
        }
        made.push_back(prepared(text));
    }
    return made;
}

using Listing = kit::with_passes<testing::Test>;

std::vector<std::string> lines_of(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Far to the right, a name and the shortest pieces of a string have no room to keep inside. The raw
// text follows in pieces where it is asked for.
TEST_F(Listing, IsASourceOfTheSameProgramInsideItsWidth)
{
    for (const std::string &text : texts())
        for (const ULO width : {39, 79, 131}) {
            ASSERT_NE(text[0], '[') << text;
            const std::string whole = listed(text, {width, false}), dashes(width, '-');
            const std::string source = whole.substr(width + 1, whole.size() - 2 * (width + 1));
            EXPECT_EQ(whole, dashes + "\n" + source + dashes + "\n");
            EXPECT_EQ(source, listed_plain(text, width));
            std::string joined, raw;
            join_lines(&joined, source, false);
            EXPECT_EQ(prepared("(PROGN " + joined + ")"), text);
            for (const std::string &line : lines_of(source))
                EXPECT_TRUE(line.size() <= width || line.find_first_not_of(' ') + 40 > width);
            const std::string dumped = listed(text, {width, true});
            ASSERT_TRUE(dumped.starts_with(whole));
            for (const std::string &line : lines_of(dumped.substr(whole.size()))) {
                EXPECT_LE(line.size(), width);
                raw += line;
            }
            EXPECT_EQ(raw, text.size() > width ? text + dashes : "");
        }
}

struct edge_case {
    const char *text, *listing; // of 20 columns
};

const edge_case edges[] = {
    {"(CAT \"12345\" \"67890\")", "(CAT\n  \"12345\" \"67890\"\n)\n"},
    {"(LEN \"123456 89 123456\")", "(LEN\n  (\n    \"123456 89 123\"\n    \"456\"\n  )\n)\n"},
    // Six raw bytes stay whole, however they are written.
    {R"((LEN "\0x01\0x01\0x01\0x01\0x01\0x01a"))",
     "(LEN\n  (\n    \"\\0x01\\0x01\\0x01\\0x01\\0x01\\0x01\"\n    \"a\"\n  )\n)\n"},
    // A character is not torn apart.
    {"(LEN \"123456789012\xC3\xA9 4567\")",
     "(LEN\n  (\n    \"123456789012\"\n    \"\xC3\xA9 4567\"\n  )\n)\n"},
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
