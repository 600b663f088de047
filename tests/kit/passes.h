// The front end's passes on plain texts, as unit tests use them.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "frontend/check.h"
#include "frontend/justify.h"
#include "frontend/reader.h"
#include "frontend/squeeze.h"
#include "strings/scratch.h"
#include "vm/machine.h"

namespace kit {

inline void start_passes() { setup_quarne_thread_safe_functionality_for_local_thread(); }

// A fixture: a testing::Test whose thread can check and compile.
template <class Test> struct with_passes : Test {
    void SetUp() override { start_passes(); }
};

inline tree read(std::string_view text, reading how = CHECKED)
{
    tree t;
    t.read(text, how);
    return t;
}

// What a pass leaves in the counted string that it is given.
template <class Pass> std::string passed(std::string_view text, Pass pass)
{
    scratch s;
    assign(&s.s, text);
    pass(&s.s);
    return std::string(view(s.s));
}

// The text as the checker leaves it; the checker's message in brackets if it refuses the text.
inline std::string checked(const std::string &text)
{
    lut *known = nullptr;
    tree t;
    const bool refused = kestrin_check(&t, &t.root, text, 0, "Main", &known) < 0;
    lut_free(&known);
    const std::string message(view(rt_ctrl->rt_run_text));
    rt_ctrl->rt_run_flag = 0;
    assign(&rt_ctrl->rt_run_text, "");
    return refused ? "[" + message + "]" : t.written();
}

inline std::string squeezed(const std::string &checked_text)
{
    tree t = read(checked_text);
    progn_squeeze(&t);
    return t.written();
}

struct typed_text {
    std::string text, types; // the text with its suffixes, the UDFs as in "F:I G:U "
    UCH letter;
    bool operator==(const typed_text &) const = default;
};

// `types` is the UDFs that are known.
inline typed_text typed(const std::string &squeezed_text, std::string_view types = "")
{
    std::vector<udf_letter> udfs;
    for (std::string_view rest = types; !rest.empty(); rest.remove_prefix(rest.find(' ') + 1))
        udfs.push_back(
            {std::string(rest.substr(0, rest.find(':'))), UCH(rest[rest.find(':') + 1])});
    typed_text typed = {};
    tree t = read(squeezed_text);
    typed.letter = kestrin_justify(&t, std::vector(udfs), &udfs);
    typed.text = t.written();
    for (const udf_letter &udf : udfs) typed.types += udf.name + ':' + CHR(udf.letter) + ' ';
    return typed;
}

// The project's own programs below these folders, in no fixed order.
inline std::vector<std::string> own_files(std::initializer_list<const char *> folders)
{
    const std::filesystem::path root = KESTRIN_SOURCES;
    std::vector<std::string> contents;
    for (const char *folder : folders)
        for (const auto &file : std::filesystem::recursive_directory_iterator(root / folder)) {
            if (file.path().extension() != ".kst") continue;
            std::stringstream source;
            source << std::ifstream(file.path()).rdbuf();
            contents.push_back(source.str());
        }
    return contents;
}

// The same with their lines joined.
inline std::vector<std::string> own_programs(std::initializer_list<const char *> folders)
{
    std::vector<std::string> programs;
    for (const std::string &contents : own_files(folders))
        join_lines(&programs.emplace_back(), contents, true);
    return programs;
}

} // namespace kit
