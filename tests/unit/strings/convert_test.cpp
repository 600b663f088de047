// Printed numbers, raw images and dump.
#include "kit.h"

#include <bit>
#include <cmath>

namespace {

TEST(Numbers, PrintedAsTheSystemPrintsThem)
{
    std::mt19937_64 random(5);
    std::vector<ULO> words = {0, 1, 9, 10, 255, ~ULO(0), ULO(1) << 63, (ULO(1) << 63) - 1};
    for (DFL value : {-0.0, 255.0, 0.1, 1e300, 5e-324, double(INFINITY), -double(INFINITY),
                      double(NAN), -double(NAN)})
        words.push_back(std::bit_cast<ULO>(value));
    for (int i = 0; i < 100000; ++i) words.push_back(random() >> (i % 2 ? random() % 64 : 0));
    scratch made;
    const auto check = [&](const CHR *format, auto value) {
        CHR expected[64];
        snprintf(expected, sizeof expected, format, value);
        EXPECT_EQ(expected, bytes_of(made.s));
    };
    for (ULO word : words) {
        const DFL value = std::bit_cast<DFL>(word);
        equ_num(&made.s, SLO(word));
        check("%ld", SLO(word));
        equ_unum(&made.s, word);
        check("%lu", word);
        equ_numhex(&made.s, word);
        check("0x%016lX", word);
        equ_fnum(&made.s, value);
        check("%.16E", value);
        EXPECT_TRUE(std::isnan(value) || word == std::bit_cast<ULO>(atof(made.s))) << made.s;
    }
}

TEST(RawImages, RoundTripAndLength)
{
    std::mt19937_64 random(6);
    scratch made;
    for (int i = 0; i < 1000; ++i) {
        const ULO word = i == 0 ? 0x7FF8000000000123 : random(); // a NaN keeps its payload
        EXPECT_EQ(SCH(word), str2sch(sch2str(&made.s, SCH(word))));
        EXPECT_EQ(1u, bytes_of(made.s).size());
        EXPECT_EQ(SSH(word), str2ssh(ssh2str(&made.s, SSH(word))));
        EXPECT_EQ(2u, bytes_of(made.s).size());
        EXPECT_EQ(SLO(word), str2slo(slo2str(&made.s, SLO(word))));
        EXPECT_EQ(8u, bytes_of(made.s).size());
        EXPECT_EQ(word, std::bit_cast<ULO>(str2dfl(dfl2str(&made.s, std::bit_cast<DFL>(word)))));
        EXPECT_EQ(&made, str2ptr(ptr2str(&made.s, &made)));
    }
    EXPECT_EQ(0x030201, str2slo(text("\1\2\3").s));
    EXPECT_EQ(-1, str2sch(text("\xFF\1").s));
    EXPECT_EQ(0, str2sch(text("").s) | str2ssh(nullptr) | str2slo(nullptr));
    EXPECT_EQ(nullptr, str2ptr(text("").s));
}

TEST(Dump, ThreeCharactersForEachByte)
{
    for (int c = 0; c < 256; ++c) {
        const bool hidden = c != 0 && strchr("\"#()\\", c), shown = c > 32 && c < 127;
        CHR expected[8] = " __";
        if (c != 32)
            snprintf(expected, sizeof expected, hidden ? " \\%c" : shown ? "  %c" : " %02X", c);
        expect_each_target(expected, std::string(1, CHR(c)), strdump);
    }
    expect_each_target("  a __ \\(", "a (", strdump);
}

} // namespace
