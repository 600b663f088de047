// A unit that serves requests of its own through USER_IO, and says when a run begins and ends.
//
//     (user_io 0 "PWD")                  the working directory
//     (user_io 0 "GetEnv NAME")          a variable of the environment, empty if it is not set
//     (user_io 0 "SetEnv NAME text")     sets one for this process; answers the text
//     (user_io 0 "PID")                  number of the process
//     (user_io 0 "FileSize path")        bytes of a file, "" if there is none
//     (user_io 0 "List path")            names in a folder, sorted, one a line
//     (user_io 0 "Requests")             how many requests have been served, this one included
//
// A program reads the first two everywhere, so a callback that replaces the default one keeps them.
// `usr_id` is for the program to say whom it means: this unit serves 0 and raises an error for
// anything else and for a request that it does not know.
//
// With REQUESTS_REPORT set in the environment, the callbacks around the run report on stdout. The
// engine writes there by stdio as well, so both kinds of output come in the order they were made.

#include <kestrin/ckst_udf.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum : UCH { UNKNOWN_REQUEST = 30, UNKNOWN_RECEIVER = 31 };

SLO served = 0;

// -- Requests: each gets what follows its word and makes the answer of it ------------------------

std::string working_directory(const std::string &)
{
    std::vector<char> path(256);
    while (getcwd(path.data(), path.size()) == nullptr) {
        if (path.size() > 1 << 20) return "PWD";
        path.resize(path.size() * 2);
    }
    return path.data();
}

std::string environment(const std::string &name)
{
    const char *value = getenv(name.c_str());
    return value == nullptr ? "" : value;
}

std::string set_environment(const std::string &rest)
{
    const auto blank = rest.find(' ');
    const std::string value = blank == rest.npos ? "" : rest.substr(blank + 1);
    setenv(rest.substr(0, blank).c_str(), value.c_str(), 1);
    return value;
}

std::string process_number(const std::string &) { return std::to_string(getpid()); }

std::string file_size(const std::string &path)
{
    struct stat facts;
    return stat(path.c_str(), &facts) == 0 ? std::to_string(facts.st_size) : "";
}

std::string list_folder(const std::string &path)
{
    std::vector<std::string> names;
    DIR *folder = opendir(path.c_str());
    if (folder == nullptr) return "";
    while (const dirent *entry = readdir(folder))
        if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    closedir(folder);
    std::sort(names.begin(), names.end());
    std::string list;
    for (const std::string &name : names) list.append(name).append("\n");
    return list;
}

std::string count_requests(const std::string &) { return std::to_string(served); }

struct request {
    const char *word;
    std::string (*answer)(const std::string &rest);
};

const request requests[] = {
    {"PWD", working_directory},   {"GetEnv", environment}, {"SetEnv", set_environment},
    {"PID", process_number},      {"FileSize", file_size}, {"List", list_folder},
    {"Requests", count_requests},
};

// -- Between the two worlds ----------------------------------------------------------------------

std::string text_of(const CHR *string) { return std::string(string, string + len(string)); }

// The answer takes the place of the request, in the same variable. get_std_buff() would do for
// plain text; this keeps NUL bytes too.
void give(CHR **usr_buff, const std::string &answer)
{
    std::copy(answer.begin(), answer.end(), mk_fst_buff(usr_buff, answer.size()));
}

void rise(UCH code, const char *what, const std::string &which)
{
    CHR *text = nullptr;
    rise_error_info(code, get_std_buff(&text, (std::string(what) + which).c_str()));
    free_string(&text);
}

// Splits by the library's own words: head() and tail() know what a blank is.
void serve(const std::string &word, CHR **usr_buff)
{
    for (const request &known : requests) {
        if (word != known.word) continue;
        served++;
        tail(usr_buff, *usr_buff);
        give(usr_buff, known.answer(text_of(*usr_buff)));
        return;
    }
    rise(UNKNOWN_REQUEST, "Requests: unknown request: ", word);
}

bool reports() { return getenv("REQUESTS_REPORT") != nullptr; }

} // namespace

void user_io_callback(SLO usr_id, CHR **usr_buff)
{
    if (usr_id != 0) {
        rise(UNKNOWN_RECEIVER, "Requests: nobody has the number ", std::to_string(usr_id));
        return;
    }
    CHR *word = nullptr;
    head(&word, *usr_buff);
    serve(text_of(word), usr_buff);
    free_string(&word);
}

// Everything is compiled and linked, and the program is about to run.
void startup_callback()
{
    if (reports()) printf("The run begins.\n");
}

// The run is over, whether well or by an error, and the value has been printed.
void taskjob_end_callback(ULO id_taskjob)
{
    if (!reports()) return;
    printf("The run of task job %lu ends, %ld requests served.\n",
           static_cast<unsigned long>(id_taskjob), static_cast<long>(served));
}

// No instructions: the row is there because an array needs one.
const INSTRUCTION_STRU INSTRUCTION_SET[] = {{nullptr, 0, 0, nullptr, nullptr}};
const ULO INSTRUCTIONS = 0;
const CHR *VERSION_CKSTUDF___ = "Requests example v.1.0.0.";

int main(int argc, char **argv) { return _Main_(argc, argv); }
