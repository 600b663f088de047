// Filling in and leaving a syntax error.

#include "frontend/syntax.h"

#include <string>

#include "strings/scratch.h"
#include "vm/machine.h"

SLO leave_syntax_error(const syntax_row &row, std::initializer_list<std::string_view> parts)
{
    std::string message;
    std::string_view rest = row.text;
    for (std::string_view part : parts) {
        const auto place = rest.find("{}");
        message.append(rest.substr(0, place)).append(part);
        rest.remove_prefix(place + 2);
    }
    message.append(rest);
    rt_ctrl->rt_run_flag = row.code;
    assign(&rt_ctrl->rt_run_text, message);
    return FAILED;
}
