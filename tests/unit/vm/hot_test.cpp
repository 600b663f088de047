// When a function is hot: at its second call, also where others share its counter.

#include <gtest/gtest.h>

#include <vector>

#include "vm/hot.h"

namespace {

std::vector<const ULO *> made;
void note(const ULO *image) { made.push_back(image); }

const native_maker at_second_call = {50, 2, nullptr, note, nullptr},
                   at_first_call = {1, 1, nullptr, note, nullptr};

class HotFunctions : public ::testing::Test {
protected:
    void start(const native_maker *maker)
    {
        made.clear();
        the_engine.native = maker;
        counters_ = fresh_counters();
        rt_ctrl = &control_;
        control_.counters = &counters_;
    }
    void TearDown() override
    {
        rt_ctrl = before_;
        the_engine.native = nullptr;
    }
    void call(const ULO *image) { count_call(&control_, image); }

    std::vector<ULO> code_ = std::vector<ULO>(hot_counters::COUNT * 1000);
    // All share a counter.
    const ULO *image(ULO number) const { return &code_[number * hot_counters::COUNT]; }

private:
    rt_control control_ = {}, *before_ = rt_ctrl;
    hot_counters counters_ = {};
};

TEST_F(HotFunctions, CalledOnceEachAreLeftAlone)
{
    start(&at_second_call);
    for (ULO k = 0; k < 1000; k++) call(image(k));
    EXPECT_TRUE(made.empty());
    call(image(999));
    EXPECT_EQ(made, std::vector<const ULO *>{image(999)});
}

TEST_F(HotFunctions, ThatTakeTurnsAreMadeInTheEnd)
{
    start(&at_second_call);
    for (unsigned k = 0; k < PATIENCE / 2; k++) call(image(1)), call(image(2));
    EXPECT_TRUE(made.empty());
    for (unsigned k = 0; k < 2 * LEFT_ALONE + 2; k++) call(image(1)), call(image(k % 3));
    EXPECT_GE(made.size(), 2u);
}

TEST_F(HotFunctions, AreMadeAtFirstSightIfThatIsAsked)
{
    start(&at_first_call);
    call(image(3));
    EXPECT_EQ(made, std::vector<const ULO *>{image(3)});
    start(nullptr);
    for (unsigned k = 0; k < 2 * LEFT_ALONE; k++) call(image(3));
    EXPECT_TRUE(made.empty());
}

} // namespace
