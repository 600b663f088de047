// The table of verbs, and how words become options and operands.

#include "workshop/verb.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include "workshop/verbs.h"

namespace {

constexpr const verb *all_verbs[] = {
    &run_verb,     &check_verb, &fmt_verb, &test_verb,    &repl_verb,  &doc_verb,
    &explain_verb, &pack_verb,  &lsp_verb, &profile_verb, &trace_verb,
};

std::string command_of(const verb &v) { return std::string("kst ").append(v.name); }

const option *find_option(const verb &v, std::string_view name)
{
    for (const option &o : v.options)
        if (o.name == name) return &o;
    return nullptr;
}

std::string quoted(std::string_view word) { return std::string("`").append(word).append("'"); }

bool asks_for_help(std::string_view word) { return word == "-h" || word == "--help"; }

int print_help(const verb &v)
{
    std::string usage = "usage: kst " + std::string(v.name);
    if (!v.options.empty()) usage += " [option ...]";
    if (!v.operands.empty()) usage.append(" ").append(v.operands);
    printf("%s\n%.*s\n", usage.c_str(), int(v.help.size()), v.help.data());
    if (!v.options.empty()) putchar('\n');
    for (const option &o : v.options) {
        const std::string shown =
            std::string(o.name).append(o.value.empty() ? "" : " ").append(o.value);
        printf("  %-16s %.*s\n", shown.c_str(), int(o.help.size()), o.help.data());
    }
    return STATUS_GOOD;
}

bool is_option(const verb &v, std::string_view word)
{
    if (word.size() < 2 || word[0] != '-') return false;
    return asks_for_help(word) || v.is_operand == nullptr || !v.is_operand(word);
}

} // namespace

std::span<const verb *const> verbs() { return all_verbs; }

const request::given *request::find(std::string_view option) const
{
    for (ULO i = options_.size(); i > 0; i--)
        if (options_[i - 1].name == option) return &options_[i - 1];
    return nullptr;
}

const CHR *request::value(std::string_view option) const
{
    const given *found = find(option);
    return found == nullptr ? nullptr : found->value;
}

int refused(std::string_view command, std::string_view why)
{
    const std::string name(command);
    fprintf(stderr, "%s: %.*s (see %s --help)\n", name.c_str(), int(why.size()), why.data(),
            name.c_str());
    return STATUS_MISUSE;
}

bool read_number(const request &asked, std::string_view option, ULO most, ULO *number)
{
    const CHR *text = asked.value(option);
    if (text == nullptr) return true;
    const CHR *end = text + strlen(text);
    const auto read = std::from_chars(text, end, *number);
    return read.ec == std::errc() && read.ptr == end && *number > 0 && *number <= most;
}

int call_verb(const verb &asked, std::span<CHR *const> words)
{
    request got;
    bool options_end = false;
    for (ULO i = 0; i < words.size(); i++) {
        const std::string_view word = words[i];
        if (options_end || !is_option(asked, word)) {
            got.operands.push_back(words[i]);
            options_end = options_end || asked.passes_words;
            continue;
        }
        if (asks_for_help(word)) return print_help(asked);
        if (word == "--") {
            options_end = true;
            continue;
        }
        const option *found = find_option(asked, word);
        if (found == nullptr) return refused(command_of(asked), "unknown option " + quoted(word));
        const bool has_value = !found->value.empty();
        if (has_value && i + 1 == words.size())
            return refused(command_of(asked), quoted(word) + " wants " + std::string(found->value));
        got.options_.push_back({found->name, has_value ? words[++i] : nullptr});
        options_end = found->name == asked.first_operand;
    }
    const ULO least = got.has(asked.first_operand) ? 0 : asked.least;
    if (got.operands.size() < least)
        return refused(command_of(asked), "missing " + std::string(asked.operands));
    if (got.operands.size() > asked.most)
        return refused(command_of(asked), "too many words: " + quoted(got.operands[asked.most]));
    return asked.run(got);
}
