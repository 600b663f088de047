// kst pack: the engine and a program in one executable.

#include <csignal>
#include <filesystem>
#include <unistd.h>

#include "driver/packed.h"
#include "driver/precompiled.h"
#include "workshop/program.h"
#include "workshop/replace_file.h"
#include "workshop/verbs.h"

namespace {

namespace fs = std::filesystem;

constexpr mode_t FOR_ALL = 0777;
constexpr std::string_view COMMAND = "kst pack";

// A program that could not start is not packed. Tells its faults.
int check_contents(const source &from)
{
    if (is_precompiled(from.text)) {
        session *s = &start_workshop();
        s->argc = 1; // no words behind it
        load_precompiled(s, from.text);
        return STATUS_GOOD;
    }
    known_functions known;
    program checked;
    if (check_program(from, &checked, &known.table)) return STATUS_GOOD;
    print_faults(stderr, from, checked.faults);
    return STATUS_FAULT;
}

// The global functions go with a source; a stored program has its own.
int take_profile(const CHR *path, std::string *text)
{
    const auto tell = [](const source &from, const std::vector<fault> &faults) {
        print_faults(stderr, from, faults);
    };
    const int status = load_functions(COMMAND, path, tell);
    if (status != STATUS_GOOD) return status;
    const CHR *used = start_workshop().cfg_profile_path;
    source from;
    std::string why;
    if (used != nullptr && read_source(used, &from, &why)) *text = std::move(from.text);
    return STATUS_GOOD;
}

std::string own_path()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error);
}

// kestrin lies beside kst wherever both are installed.
std::string engine_path() { return fs::path(own_path()).replace_filename("kestrin"); }

// What would be lost if the executable took its place; empty: nothing that is in use.
std::string_view used_as(const CHR *to, const CHR *from)
{
    const CHR *profile = start_workshop().cfg_profile_path;
    if (is_standard_stream(to)) return isatty(STDOUT_FILENO) != 0 ? "a terminal" : "";
    if (is_same_file(to, from)) return "the program itself";
    if (profile != nullptr && is_same_file(to, profile)) return "the program's profile";
    if (is_same_file(to, engine_path())) return "kestrin itself";
    return is_same_file(to, own_path()) ? "kst itself" : "";
}

int write_packed(const CHR *to, const packed_program &packed)
{
    source engine;
    std::string why;
    const std::string path = engine_path();
    if (!read_source(path.c_str(), &engine, &why)) return refused(COMMAND, why);
    if (!pack(&engine.text, packed)) return refused(COMMAND, "`" + path + "' can't hold a program");
    if (is_standard_stream(to))
        fwrite(engine.text.data(), 1, engine.text.size(), stdout);
    else if (!make_file(to, engine.text, FOR_ALL, &why))
        return refused(COMMAND, why);
    return STATUS_GOOD;
}

int run_pack(const request &asked)
{
    const CHR *from_path = asked.operands[0], *to = asked.value("-o");
    if (to == nullptr) return refused(COMMAND, "missing -o PROGRAM");
    signal(SIGXFSZ, SIG_IGN); // a bound of files' sizes is a write that fails
    source from;
    std::string why;
    if (!read_source(from_path, &from, &why)) return refused(COMMAND, why);
    packed_program packed;
    int status = take_profile(asked.value("--cfg"), &packed.profile);
    if (const std::string_view used = used_as(to, from_path); !used.empty())
        return refused(COMMAND, "`" + std::string(to) + "' is " + std::string(used));
    if (status == STATUS_GOOD) status = check_contents(from);
    if (status != STATUS_GOOD) return status;
    if (is_precompiled(from.text)) packed.profile.clear();
    packed.program = std::move(from.text);
    return write_packed(to, packed);
}

constexpr option options[] = {
    {"-o", "PROGRAM", "the executable that is made"},
    PROFILE_OPTION,
};

} // namespace

const verb pack_verb = {
    .name = "pack",
    .operands = "FILE",
    .help = "makes one executable of kestrin and a program; FILE - is the standard input",
    .options = options,
    .run = run_pack,
    .least = 1,
    .most = 1,
};
