// Usage, the two banners and the version listing.

#include "driver/usage.h"

#include <cstdio>
#include <ctime>

#include "driver/scrambled.h"
#include "driver/tutorial.h"
#include "frontend/isa.h"
#include "kestrin/unit.h"
#include "strings/tokens.h"
#include "vm/versions.h"

namespace {

constinit const scrambled<292> usage_banner(
    "\n"
    "  Kestrin: a small language in parenthesised prefix form, compiled to threaded code.\n"
    "  Programs, precompiled programs and global functions in one command; your own instructions\n"
    "  in C++ through the extension unit. Mind that a program's value is always printed.\n");

constinit const scrambled<640> version_banner(
    "\n"
    "   _  __        _        _\n"
    "  | |/ /___ ___| |_ _ __(_)_ _\n"
    "  | ' </ -_|_-<|  _| '__| | ' \\\n"
    "  |_|\\_\\___/__/ \\__|_|  |_|_||_|\n"
    "\n"
    "  Compiler and runtime of the Kestrin language. A program is read as text, checked and\n"
    "  squeezed, its types are proved where they can be, and it is compiled to relocatable\n"
    "  bytecode and linked into threaded code, which runs on the native stack.\n"
    "\n");

const CHR *const usage_lines[] = {
    "  Usage0: %s -h|--help\n",
    "  Usage1: %s -V|--versions\n",
    "  Usage2: %s [-q|--quiet] <Kestrin_file_name> [args...]\n",
    "  Usage3: %s [-sd|--showDebugInfo] <Kestrin_file_name> [args...]\n",
    "  Usage4: %s [-c|--compile2disk] <Kestrin_file_name> [args...]\n",
    "  Usage5: %s [-cm|--compileMinimized2disk] <Kestrin_file_name> [args...]\n",
    "  Usage6: %s [-q|--quiet] <Precompiled_Kestrin_file_name>\n",
    "  Usage7: %s [-sd|--showDebugInfo] <Precompiled_Kestrin_file_name>\n\n",
};

// Prints the banner and a newline.
void signature(FILE *stream)
{
    const std::string text = usage_banner.plain();
    fprintf(stream, "%s\n", std::string(right_trimmed(text)).c_str());
}

void print_switches(FILE *stream, const session &s)
{
    fputs("Runtime environment variable dump:\n", stream);
    for (int i = 0; i < SWITCHES; i++)
        fprintf(stream, "  %s=%d;\n%s", switch_rows[i].variable, s.switches[i],
                i + 1 == SWITCHES ? "\n" : "");
}

void print_profile(FILE *stream, const session &s)
{
    const CHR *defun = isa_mnemonics[ISA_DEFUN];
    fprintf(stream,
            "The following environment variable:\n  KESTRIN_CFGPROFILE_path=\"%s\"\n"
            "specifies a configuration profile that can be used for the Global Kestrin\n"
            "function definitions. The format of the configuration profile is:\n"
            "  <(%s ...)>{ <(%s ...)>}  # <EOF>.\n\n",
            s.cfg_profile_path == nullptr ? "" : s.cfg_profile_path, defun, defun);
}

} // namespace

void usage_info(FILE *stream, const session &s)
{
    const CHR *name = s.argc > 0 ? s.argv[0] : "";
    fprintf(stream, "%s ==> %s:\n", name, stream == stderr ? "stderr" : "stdout");
    signature(stream);
    for (const CHR *line : usage_lines) fprintf(stream, line, name);
    print_switches(stream, s);
    print_profile(stream, s);
    fprintf(stream, "Compiled on: \"%s\".\n", compiled_on);
    fprintf(stream, "Compiled by: \"%s\".\n", compiled_by);
    if (time(nullptr) == -1)
        fputs("Sanity check warning: \"time functions are not able to return Epoch time in "
              "seconds\".\n",
              stream);
    if (stream == stderr)
        fputs("RETURNED STATUS: ABNORMAL PROGRAM TERMINATION.\n", stream);
    else
        write_tutorial();
}

void print_versions(bool slow)
{
    // A typewriter whose speed is the machine's.
    constexpr int flushes = 1000000;
    for (CHR c : version_banner.plain()) {
        putc(c, stdout);
        for (int i = 0; slow && i < flushes; i++) fflush(stdout);
    }
    printf("VERSION_KESTRIN___=`%s' # Kestrin RTEngine.\n", VERSION_KESTRIN);
    printf("VERSION_CKSTUDF___=`%s' # Kestrin UDFs in C.\n", VERSION_CKSTUDF___);
    printf("VERSION_TERMCAP___=`%s' # Term capabilities.\n", VERSION_TERMCAP);
    printf("VERSION_STRGLIB___=`%s' # KstString library.\n\n", VERSION_STRGLIB);
}
