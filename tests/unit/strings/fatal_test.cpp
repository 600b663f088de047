// The report word for word, and which site ends the process where memory runs out.
#include "kit.h"

#include <cerrno>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

std::string reported(const std::function<void()> &report)
{
    testing::internal::CaptureStderr();
    report();
    return testing::internal::GetCapturedStderr();
}

TEST(FatalReport, NamesPlaceAndProcess)
{
    const std::string id = std::to_string(getpid());
    const std::string place = "PID=" + id + ", tID=" + id + ", Module=m, Function=f(), Location=";
    EXPECT_EQ("\ntext\n" + place + "7.\n",
              reported([] { fprint_error_info("text", "m", "f", 0xF07, nullptr); }));

    CHR name[] = "kst";
    CHR *arguments[] = {name, nullptr};
    saved_argv = arguments;
    const auto failed_open = [](const CHR *message) {
        return reported([message] {
            errno = ENOENT;
            fprint_error_info(message, "m", "f", 1, "open");
        });
    };
    EXPECT_EQ("\ntext\nProcName=kst, " + place +
                  "1, SysCall=open(), errno=2 : No such file or directory\n",
              failed_open("text"));
    EXPECT_EQ("\n" + std::string(1022, 'x') + ": No such file or directory\n",
              failed_open(std::string(2000, 'x').c_str()));
    saved_argv = nullptr;
}

// Whether the thread has a hook does not matter for these.
TEST(FatalReportDeathTest, SitesThatIgnoreTheHook)
{
    const struct {
        const CHR *place;
        void (*run)(CHR **targ);
    } cases[] = {
        {"space\\(\\), Location=7", [](CHR **targ) { space(targ, HUGE_SIZE); }},
        {"space\\(\\), Location=7", [](CHR **targ) { padc(targ, nullptr, HUGE_SIZE); }},
        {"cat\\(\\), Location=9", [](CHR **targ) { cat(targ, impossible_string()); }},
        {"cat\\(\\), Location=9", [](CHR **targ) { replicate(targ, *targ, HUGE_SIZE / 4 + 2); }},
        {"substr\\(\\), Location=12",
         [](CHR **targ) { left(targ, impossible_string(), HUGE_SIZE); }},
        {"mk_fst_buff\\(\\), Location=2",
         [](CHR **targ) { replicate(targ, text("x").s, HUGE_SIZE); }},
    };
    counted_faults faults;
    for (const auto &c : cases) {
        text target("text");
        EXPECT_EXIT(c.run(&target.s), testing::ExitedWithCode(1),
                    "\nString Library memory allocation fault / out of memory\\.\nPID=[0-9]+, "
                    "tID=[0-9]+, Module=fstchain, Function=" +
                        std::string(c.place) + "\\.\n$");
    }
}

TEST(FatalReportDeathTest, SitesWithoutAHook)
{
    scratch target;
    const auto exits = testing::ExitedWithCode(1);
    EXPECT_EXIT(mk_std_buff(&target.s, HUGE_SIZE), exits, "mk_std_buff\\(\\), Location=1\\.");
    EXPECT_EXIT(mk_fst_buff(&target.s, HUGE_SIZE), exits, "mk_fst_buff\\(\\), Location=2\\.");
    EXPECT_EXIT(equ(&target.s, impossible_string()), exits, "equ\\(\\), Location=5\\.");
    EXPECT_EXIT(assign(&target.s, view(impossible_string())), exits, "equ\\(\\), Location=5\\.");
    // A hook is one thread's own.
    counted_faults faults;
    EXPECT_EXIT(std::thread([&] { mk_fst_buff(&target.s, HUGE_SIZE); }).join(), exits, "tion=2\\.");
}

} // namespace
