// The library functions of runtime errors, as an extension unit calls them. Their instructions are
// golden cases.

#include "kestrin/errors.h"

#include <gtest/gtest.h>
#include <string>

#include "strings/scratch.h"
#include "vm/machine.h"

namespace {

class Errors : public testing::Test {
protected:
    void SetUp() override { setup_quarne_thread_safe_functionality_for_local_thread(); }
    void TearDown() override { cleanup_quarne_thread_safe_functionality_for_local_thread(); }

    static std::string text()
    {
        scratch now;
        return std::string(view(get_error_text(&now.s)));
    }
};

struct info_case {
    const char *name;
    void (*call)(UCH code, CHR **targ, const CHR *text);
    bool raises;
    const char *place; // what stands behind the text where no program runs
};

const info_case info_cases[] = {
    {"set_error_info", set_error_info, false, ""},
    {"rise_error_info", [](UCH c, CHR **, const CHR *t) { rise_error_info(c, t); }, true, ""},
    {"set_error_info_dbg",
     [](UCH c, CHR **targ, const CHR *t) { set_error_info_dbg(c, targ, t, nullptr); }, false,
     " (Dbg=0)"},
    {"rise_error_info_dbg", [](UCH c, CHR **, const CHR *t) { rise_error_info_dbg(c, t, nullptr); },
     true, " (Dbg=0)"},
};

class InfoForms : public Errors, public testing::WithParamInterface<info_case> {
protected:
    // Calls the form and gives the text that it leaves, which a set_ form also copies to its
    // target.
    std::string after(UCH code, const char *message)
    {
        scratch source, targ;
        assign(&source.s, message);
        GetParam().call(code, &targ.s, source.s);
        EXPECT_EQ(noterror(), !GetParam().raises);
        EXPECT_EQ(view(targ.s), GetParam().raises ? "" : text());
        return text();
    }
};

TEST_P(InfoForms, TakesCodesForUsersAndItsOwn)
{
    for (const int code : {0, 1, 17, 248}) {
        EXPECT_EQ(after(code, "what happened"), std::string("what happened") + GetParam().place);
        EXPECT_EQ(get_error_code(), code);
    }
}

TEST_P(InfoForms, RefusesReservedCodesInItsOwnName)
{
    for (const int code : {249, 254, 255}) {
        EXPECT_EQ(after(code, "what happened"), std::string(GetParam().name) +
                                                    ": Failed to assign reserved error code!" +
                                                    GetParam().place);
        EXPECT_EQ(get_error_code(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(All, InfoForms, testing::ValuesIn(info_cases),
                         [](const auto &form) { return std::string(form.param.name); });

TEST_F(Errors, EmptyTextGetsOneAndOtherTextsStay)
{
    scratch targ;
    set_error(&targ.s);
    EXPECT_EQ(view(targ.s), "Unknown error!");
    EXPECT_EQ(noterror(), 1);
    set_error_dbg(&targ.s, nullptr);
    set_error_dbg(&targ.s, nullptr);
    EXPECT_EQ(view(targ.s), "Unknown error! (Dbg=0) (Dbg=0)");
    rise_error();
    EXPECT_EQ(noterror(), 0);
    EXPECT_EQ(text(), "Unknown error! (Dbg=0) (Dbg=0)");
}

TEST_F(Errors, TargetMayBeTheSource)
{
    scratch both;
    assign(&both.s, "text");
    set_error_info(20, &both.s, both.s);
    EXPECT_EQ(view(both.s), "text");
    EXPECT_EQ(text(), "text");
}

} // namespace
