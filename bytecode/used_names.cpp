// The lists of the debug text: entries behind a 0xFF, fields separated by 0xFE, each entry ended by
// 0xFF.

#include "bytecode/used_names.h"

#include "frontend/token.h"
#include "vm/debug_text.h"

namespace {

numbered_names take_list(std::string_view *text)
{
    numbered_names names;
    if (!text->starts_with('(')) return names;
    text->remove_prefix(1);
    std::string_view list = take_until(text, ')');
    take_until(&list, '\xFF');
    while (!list.empty()) {
        std::string_view entry = take_until(&list, '\xFF');
        const std::string_view name = take_until(&entry, '\xFE');
        const ULO number = ULO(leading_number(take_until(&entry, '\xFE')));
        names.emplace(number, listed_name{name, leading_number(entry)});
    }
    return names;
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
    return {take_list(text), take_list(text), take_list(text)}; // one after the other
}

std::string_view own_name(std::string_view scoped)
{
    const auto colon = scoped.rfind(':');
    return colon == scoped.npos ? scoped : scoped.substr(colon + 1);
}
