// The key table: order, scopes, the last place that a walk does not read, and random use against a
// plain map.

#include "strings/lut.h"

#include <gtest/gtest.h>
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
    std::string order() const
    {
        std::string all;
        for (ULO i = 0; i < l->lut_count; i++)
            all += std::string(view(l->lut_entries[i]->key)) +
                   std::to_string(l->lut_entries[i]->scope) + " ";
        return all;
    }
};

TEST(lut, entries_by_key_and_scope)
{
    table t;
    EXPECT_EQ(0, t.add("m", 1));
    EXPECT_EQ(0u, t.l->lut_scope);
    EXPECT_EQ(128u, t.l->lut_capacity);
    EXPECT_EQ(1, t.add("m", 2)) << "replaced";
    EXPECT_EQ(2, t.get("m"));
    t.l->lut_scope = 2;
    EXPECT_EQ(0, t.add("m", 3));
    t.l->lut_scope = 1;
    EXPECT_EQ(0, t.add("m", 4));
    EXPECT_EQ(0, t.add("\xFF", 5));
    EXPECT_EQ(0, t.add("ma", 6));
    EXPECT_EQ(0, t.add("a", 7));
    EXPECT_EQ("a1 m0 m1 m2 ma1 \xFF"
              "1 ",
              t.order())
        << "bytes without sign, shorter first";
    EXPECT_EQ(3, t.get("m")) << "the latest scope";
    EXPECT_EQ(5, t.get("\xFF"));
    EXPECT_EQ(-1000, t.get("b"));
    lut_prune(t.l);
    EXPECT_EQ("a1 m0 m1 ma1 \xFF"
              "1 ",
              t.order());
    t.l->lut_scope = 0;
    lut_prune(t.l);
    EXPECT_EQ("m0 ", t.order());
    EXPECT_EQ(2, t.get("m")) << "a single key in the last place is found";
}

// A run of one key that reaches the end of the table answers with the entry before the last.
TEST(lut, last_place_is_not_reached_by_walking)
{
    table t;
    t.add("a", 1);
    for (ULO scope = 0; scope < 4; scope++) {
        t.l->lut_scope = scope;
        t.add("z", SLO(scope) + 10);
        EXPECT_EQ(scope == 0 ? 10 : SLO(scope) + 9, t.get("z"));
    }
    t.add("zz", 5);
    EXPECT_EQ(13, t.get("z")) << "no longer at the end";
}

TEST(lut, random_use_against_a_map)
{
    std::mt19937 random(50);
    for (int round = 0; round < 20; round++) {
        table t;
        std::map<std::pair<std::string, ULO>, SLO> plain;
        for (int i = 0; i < 600; i++) {
            if (t.l != nullptr) t.l->lut_scope = random() % 3;
            const ULO scope = t.l == nullptr ? 0 : t.l->lut_scope;
            const std::string key(1 + random() % 3, CHR('a' + random() % 26));
            const bool known = plain.count({key, scope});
            ASSERT_EQ(known, t.add(key, i));
            plain[{key, scope}] = i;
        }
        ASSERT_EQ(plain.size(), t.l->lut_count);
        EXPECT_EQ(0u, t.l->lut_capacity % 128);
        ULO place = 0;
        for (const auto &[key, value] : plain) {
            const lut_entry *entry = t.l->lut_entries[place++];
            ASSERT_EQ(key.first, view(entry->key));
            ASSERT_EQ(key.second, entry->scope);
            ASSERT_EQ(value, entry->value);
        }
    }
}

// Entering many at once is entering them one by one.
TEST(lut, sorted_keys_at_once)
{
    std::mt19937 random(51);
    for (int round = 0; round < 50; round++) {
        table one, many;
        for (table *t : {&one, &many})
            for (const char *key : {"M", "B", "X", "BB"}) t->add(key, 1);
        one.l->lut_scope = many.l->lut_scope = 1;
        std::map<std::string, SLO> fresh;
        for (ULO n = random() % 300; n > 0; n--)
            fresh["k" + std::to_string(random() % 1000)] = SLO(n);
        if (round % 2) fresh["A"] = fresh["Z"] = 7;
        std::vector<lut_pair> pairs;
        for (const auto &[key, value] : fresh) {
            one.add(key, value);
            pairs.push_back({key, value});
        }
        lut_add_sorted(many.l, pairs.data(), pairs.size());
        ASSERT_EQ(one.order(), many.order());
        ASSERT_EQ(one.l->lut_capacity, many.l->lut_capacity);
        for (const auto &[key, value] : fresh) ASSERT_EQ(value, many.get(key));
    }
}

} // namespace
