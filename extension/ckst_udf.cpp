// The default extension unit: no instructions of its own, and callbacks that do as little as a
// program can count on. A unit of your own takes the place of this file: it defines the same names,
// and includes nothing but the published headers.

#include "kestrin/ckst_udf.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>

// A row that is not counted: an array needs one.
const INSTRUCTION_STRU INSTRUCTION_SET[] = {{nullptr, 0, 0, nullptr, nullptr}};
const ULO INSTRUCTIONS = 0;

const CHR *VERSION_CKSTUDF___ = "Ostrand CKSTUDF v.1.0.0.";

namespace {

constexpr std::size_t path_room = 4096;

std::string_view bytes_of(const CHR *string)
{
    return string == nullptr ? std::string_view() : std::string_view(string, len(string));
}

void answer_directory(CHR **usr_buff)
{
    CHR path[path_room];
    if (getcwd(path, sizeof path) != nullptr) get_std_buff(usr_buff, path);
}

bool asks_for_environment(const CHR *request)
{
    CHR *word = nullptr;
    head(&word, request);
    const bool asks = bytes_of(word) == "GetEnv";
    free_string(&word);
    return asks;
}

void answer_environment(CHR **usr_buff)
{
    tail(usr_buff, *usr_buff);
    get_std_buff(usr_buff, getenv(*usr_buff));
}

// Tells what has come this far without anybody to serve it.
void answer_request_itself(SLO usr_id, CHR **usr_buff)
{
    std::string told = "USER_IO: usr_id=" + std::to_string(usr_id) + ", usr_buff=\"";
    told.append(bytes_of(*usr_buff)).append("\".");
    memcpy(mk_fst_buff(usr_buff, told.size()), told.data(), told.size());
}

} // namespace

void startup_callback() {}

void taskjob_end_callback(ULO) {}

void user_io_callback(SLO usr_id, CHR **usr_buff)
{
    if (bytes_of(*usr_buff) == "PWD")
        answer_directory(usr_buff);
    else if (asks_for_environment(*usr_buff))
        answer_environment(usr_buff);
    else
        answer_request_itself(usr_id, usr_buff);
}

int main(int argc, char **argv) { return _Main_(argc, argv); }
