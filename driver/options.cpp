// Environment and option scan. There is at most one option and it comes first.

#include "driver/options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "driver/usage.h"
#include "strings/scratch.h"

namespace {

enum request { NO_REQUEST, HELP, VERSIONS, VERSIONS_SLOWLY };

struct option_row {
    const CHR *word, *long_word;
    request asks;
    bool verbose;
    disk_mode mode;
};

constexpr option_row option_rows[] = {
    {"-h", "--help", HELP, true, DISK_NONE},
    {"-V", "-V", VERSIONS, true, DISK_NONE},
    {"--versions", "--versions", VERSIONS_SLOWLY, true, DISK_NONE},
    {"-q", "--quiet", NO_REQUEST, false, DISK_NONE},
    {"-c", "--compile2disk", NO_REQUEST, true, DISK_COMPILE},
    {"-cm", "--compileMinimized2disk", NO_REQUEST, true, DISK_COMPILE_MINIMISED},
    {"-sd", "--showDebugInfo", NO_REQUEST, true, DISK_SHOW_DEBUG_INFO},
};

const option_row *find_option(const CHR *word)
{
    for (const option_row &row : option_rows)
        if (!strcmp(word, row.word) || !strcmp(word, row.long_word)) return &row;
    return nullptr;
}

[[noreturn]] void refuse(const session *s)
{
    usage_info(stderr, *s);
    exit(1);
}

[[noreturn]] void answer(const session *s, request asked)
{
    if (asked == HELP)
        usage_info(stdout, *s);
    else
        print_versions(asked == VERSIONS_SLOWLY);
    exit(0);
}

} // namespace

std::vector<const CHR *> option_words()
{
    std::vector<const CHR *> words;
    for (const option_row &row : option_rows) {
        words.push_back(row.word);
        if (strcmp(row.word, row.long_word) != 0) words.push_back(row.long_word);
    }
    return words;
}

void read_environment(session *s)
{
    for (int i = 0; i < SWITCHES; i++) {
        const CHR *text = getenv(switch_rows[i].variable);
        s->switches[i] = text == nullptr ? switch_rows[i].value : static_cast<UCH>(atoi(text)) == 1;
    }
    const CHR *path = getenv("KESTRIN_CFGPROFILE_path");
    if (path != nullptr && *path != 0)
        assign(&s->cfg_profile_path, path);
    else if (s->argc > 0)
        assign(&s->cfg_profile_path, std::string(s->argv[0]).append(".cfg"));
}

void scan_options(session *s)
{
    if (s->argc < 2) refuse(s);
    const option_row *option = find_option(s->argv[1]);
    s->verbose = true;
    s->mode = DISK_NONE;
    s->first_arg_index = 1;
    if (option == nullptr) return;
    const bool alone = s->argc == 2;
    if (alone && option->asks != NO_REQUEST) answer(s, option->asks);
    if (alone || option->asks != NO_REQUEST) refuse(s);
    s->verbose = option->verbose;
    s->mode = option->mode;
    s->first_arg_index = 2;
}
