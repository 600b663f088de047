// The fatal report. Every layer ends the process through fatal(); the driver reports on its own
// where it has more to say. The two forms differ in their last part only: a failed system call adds
// its name, errno and the system's text, which perror() appends to a line of bounded size.
#include "strings/fatal.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <unistd.h>

FATAL_SITE(MEMORY_NEW, "kestrin", "operator new", 140)

const CHR *const memory_fault_text = "Kestrin memory allocation fault / out of memory.";

char **saved_argv = nullptr;
void (*before_fatal)(const CHR *text) = nullptr;

static constexpr size_t LONGEST_SYSCALL_REPORT = 1024;

#define REPORT "\n%s\n%s%s%sPID=%lu, tID=%lu, Module=%s, Function=%s(), Location=%u"

void fprint_error_info(const CHR *text, const CHR *module, const CHR *function, ULO location,
                       const CHR *syscall)
{
    const int error = errno;
    const bool named = saved_argv != nullptr && saved_argv[0] != nullptr;
    const CHR *label = named ? "ProcName=" : "";
    const CHR *name = named ? saved_argv[0] : "";
    const CHR *comma = named ? ", " : "";
    const unsigned long process = static_cast<unsigned long>(getpid());
    const unsigned place = static_cast<UCH>(location);

    // The engine has no thread numbers of its own: the process stands for both.
    if (syscall == nullptr) {
        fprintf(stderr, REPORT ".\n", text, label, name, comma, process, process, module, function,
                place);
    } else {
        CHR line[LONGEST_SYSCALL_REPORT];
        snprintf(line, sizeof line, REPORT ", SysCall=%s(), errno=%lu ", text, label, name, comma,
                 process, process, module, function, place, syscall,
                 static_cast<unsigned long>(error));
        errno = error;
        perror(line);
    }
    fflush(stderr);
}

void report_failing_new()
{
    std::set_new_handler([] { fatal(site::MEMORY_NEW); });
}

void fatal(const fatal_site &site, const CHR *text, const CHR *syscall)
{
    if (before_fatal != nullptr) before_fatal(text);
    fprint_error_info(text, site.module, site.function, site.location, syscall);
    exit(1);
}
