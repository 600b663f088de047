// The lists of the debug text: entries behind a 0xFF, fields separated by 0xFE, each entry ended by
// 0xFF.

#include "bytecode/used_names.h"

#include "frontend/token.h"
#include "vm/debug_text.h"

namespace {

// Calls `enter` with the name and the rest of each entry. The first of several entries counts.
template <class F> void read_list(std::string_view *text, F enter)
{
    if (text->empty() || text->front() != '(') return;
    text->remove_prefix(1);
    std::string_view list = take_until(text, ')');
    take_until(&list, '\xFF');
    while (!list.empty()) {
        std::string_view entry = take_until(&list, '\xFF');
        const std::string_view name = take_until(&entry, '\xFE');
        enter(name, entry);
    }
}

void read_cops(std::string_view *text, numbered<listed_cop> *cops)
{
    read_list(text, [cops](std::string_view name, std::string_view fields) {
        const ULO row = ULO(leading_number(take_until(&fields, '\xFE')));
        cops->emplace(row, listed_cop{name, leading_number(fields)});
    });
}

} // namespace

void begin_used_names(std::string *text) { text->push_back('('); }

void append_used_name(std::string_view name, std::initializer_list<SLO> numbers, std::string *text)
{
    if (text->back() == '(') text->push_back('\xFF');
    text->append(name);
    for (const SLO number : numbers) text->append("\xFE").append(std::to_string(number));
    text->push_back('\xFF');
}

void end_used_names(std::string *text) { text->push_back(')'); }

used_names take_used_names(std::string_view *text)
{
    used_names names;
    read_list(text, [&names](std::string_view name, std::string_view number) {
        names.global_udfs.emplace(leading_number(number), name);
    });
    read_cops(text, &names.isa);
    read_cops(text, &names.isaext);
    return names;
}

std::string_view own_name(std::string_view scoped)
{
    const auto colon = scoped.rfind(':');
    return colon == scoped.npos ? scoped : scoped.substr(colon + 1);
}
