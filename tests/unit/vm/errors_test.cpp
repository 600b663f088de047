// The library functions of runtime errors, as an extension unit calls them. Their instructions are
// golden cases.

#include "kestrin/errors.h"

#include <gtest/gtest.h>

#include "tests/kit/passes.h"

namespace {

struct Errors : kit::with_passes<testing::Test> {
    void TearDown() override { cleanup_quarne_thread_safe_functionality_for_local_thread(); }
};

std::string text()
{
    return kit::passed("", [](CHR **targ) { get_error_text(targ); });
}

const struct {
    const char *name;
    void (*call)(UCH code, CHR **targ, const CHR *text);
    bool raises;
    const char *place; // what stands behind the text where no program runs
} forms[] = {
    {"set_error_info", set_error_info, false, ""},
    {"rise_error_info", [](UCH c, CHR **, const CHR *t) { rise_error_info(c, t); }, true, ""},
    {"set_error_info_dbg",
     [](UCH c, CHR **targ, const CHR *t) { set_error_info_dbg(c, targ, t, nullptr); }, false,
     " (Dbg=0)"},
    {"rise_error_info_dbg", [](UCH c, CHR **, const CHR *t) { rise_error_info_dbg(c, t, nullptr); },
     true, " (Dbg=0)"},
};

// Codes are for users up to 248. A set_ form copies the text to its target, which may be the
// source.
TEST_F(Errors, FormsWithACodeAndAText)
{
    for (const auto &form : forms)
        for (const int code : {0, 1, 17, 248, 249, 254, 255}) {
            scratch both;
            assign(&both.s, "what happened");
            rt_ctrl->rt_noterror = 1;
            form.call(static_cast<UCH>(code), &both.s, both.s);
            const std::string refused =
                std::string(form.name) + ": Failed to assign reserved error code!";
            EXPECT_EQ(text(), (code < 249 ? "what happened" : refused) + form.place);
            EXPECT_EQ(get_error_code(), code < 249 ? code : 0);
            EXPECT_EQ(noterror(), !form.raises);
            EXPECT_EQ(view(both.s), form.raises ? "what happened" : text());
        }
}

TEST_F(Errors, EmptyTextGetsOneAndOtherTextsStay)
{
    scratch targ;
    assign(&rt_ctrl->rt_error_text, "");
    rt_ctrl->rt_noterror = 1;
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

} // namespace
