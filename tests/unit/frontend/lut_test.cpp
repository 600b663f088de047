// The key table: order, scopes, the last place that a walk does not read, and random use against a
// plain map.

#include "frontend/lut.h"

#include <map>

#include "tests/unit/strings/kit.h"

namespace {

struct table {
    lut *l = nullptr;
    ~table() { lut_free(&l); }
    UCH add(const std::string &key, SLO value) { return lut_add(&l, text(key).s, value); }
    SLO get(const std::string &key)
    {
        SLO value = -1000;
        return lut_get(l, text(key).s, &value) ? value : -1000;
    }
    // All entries as "key scope=value".
    std::string order() const
    {
        std::string all;
        for (ULO i = 0; i < l->lut_count; i++) {
            const lut_entry &e = *l->lut_entries[i];
            all += std::string(view(e.key)) + std::to_string(e.scope) + "=" +
                   std::to_string(e.value) + " ";
        }
        return all;
    }
};

TEST(Lut, EntriesByKeyAndScope)
{
    table t;
    EXPECT_EQ(0, t.add("m", 1));
    EXPECT_EQ(1, t.add("m", 2)) << "replaced";
    t.l->lut_scope = 2;
    EXPECT_EQ(0, t.add("m", 3));
    t.l->lut_scope = 1;
    for (const char *key : {"m", "\xFF_", "ma", "a"}) EXPECT_EQ(0, t.add(key, 4));
    EXPECT_EQ("a1=4 m0=2 m1=4 m2=3 ma1=4 \xFF_1=4 ", t.order())
        << "bytes without sign, shorter first";
    EXPECT_EQ(3, t.get("m")) << "the latest scope";
    EXPECT_EQ(4, t.get("\xFF_"));
    EXPECT_EQ(-1000, t.get("b"));
    lut_prune(t.l);
    EXPECT_EQ("a1=4 m0=2 m1=4 ma1=4 \xFF_1=4 ", t.order());
    t.l->lut_scope = 0;
    lut_prune(t.l);
    EXPECT_EQ("m0=2 ", t.order());
    EXPECT_EQ(2, t.get("m")) << "a single key in the last place is found";
}

// Many at once are entered as one by one.
TEST(Lut, RandomUseAgainstAMap)
{
    std::mt19937 random(50);
    for (int round = 0; round < 40; round++) {
        table one, many;
        std::map<std::pair<std::string, ULO>, SLO> plain;
        for (table *t : {&one, &many}) t->add("m", 0);
        plain[{"m", 0}] = 0;
        for (int i = 0; i < 300; i++) {
            const ULO scope = one.l->lut_scope = many.l->lut_scope = random() % 3;
            const std::string key(1 + random() % 3, CHR('a' + random() % 26));
            ASSERT_EQ(plain.count({key, scope}), one.add(key, i));
            many.add(key, i);
            plain[{key, scope}] = i;
        }
        one.l->lut_scope = many.l->lut_scope = 3;
        std::map<std::string, SLO> fresh;
        for (ULO n = random() % 300; n > 0; n--)
            fresh["kz"s[random() % 2] + std::to_string(random() % 1000)] = SLO(n);
        std::vector<lut_pair> pairs;
        for (const auto &[key, value] : fresh) {
            one.add(key, value);
            pairs.push_back({key, value});
            plain[{key, 3}] = value;
        }
        lut_add_sorted(many.l, pairs.data(), pairs.size());
        std::string expected;
        for (const auto &[key, value] : plain)
            expected += key.first + std::to_string(key.second) + "=" + std::to_string(value) + " ";
        ASSERT_EQ(expected, one.order());
        ASSERT_EQ(expected, many.order());
        EXPECT_EQ((plain.size() + 127) / 128 * 128, many.l->lut_capacity);
    }
}

} // namespace
