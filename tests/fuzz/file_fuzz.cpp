// A stored program with any bytes put into it, its checksum made right again, on the road that it
// takes in the program: the reader, the verifier, the linker and a run that a timer ends. The first
// byte of the input says which program and whether it is listed; then come changes, an offset in
// two bytes and the new byte. Each input runs in a child: only the timer may end one by a signal,
// or the division that traps.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sanitizer/common_interface_defs.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bytecode/link.h"
#include "driver/precompiled.h"
#include "frontend/isa.h"
#include "kestrin/strings.h"
#include "strings/scratch.h"
#include "tests/kit/code.h"
#include "vm/handler.h"
#include "vm/image.h"
#include "vm/machine.h"

// A report of a sanitizer must differ from the program's own statuses.
extern "C" const char *__asan_default_options() { return "exitcode=77"; }
extern "C" const char *__ubsan_default_options() { return "exitcode=77"; }

namespace {

const char *const programs[] = {
    "(defun f (if (< $1 2) 1 (* $1 (f (- $1 1))))) (outf \"%ld\\n\" (f 9))",
    "(setq a 0) (while (< a 9) (progn (arsetq b a (str a)) (setq a (+ a 1)))) (index b 3)",
    "(defun g (cat $1 $2)) (for i 1 1 3 (setq s (g \"ab\" (str i)))) (len s)",
};

std::string stored(const kit::code &code)
{
    scratch tables, extension, bytes;
    _internal_ISA_COPs_get_(&tables.s, 0);
    _internal_ISAext_COPs_get_(&extension.s, 0);
    assign(&bytes.s, kit::bytes_of(code));
    const ULO sum = crcsum(cat(&tables.s, extension.s)) + crcsum(bytes.s);
    std::string file("U\4U\4U\4U\4", 8);
    file.append(reinterpret_cast<const CHR *>(&sum), sizeof sum);
    return file.append(view(bytes.s));
}

// Instructions that reach files and the console stay out of the runs.
bool is_harmless(const kit::code &code)
{
    for (ULO word : code) {
        const ULO row = image::row_of(image::payload_of(word));
        const bool reaches_out = row >= ISA_ACCEPT && row <= ISA_USER_IO && row != ISA_OUTF;
        if (image::letter_of(word) == 'T' && (reaches_out || row == ISA_MAPCAR)) return false;
    }
    return true;
}

void limit(int resource, rlim_t value)
{
    const rlimit both = {value, value};
    setrlimit(resource, &both);
}

[[noreturn]] void take_the_road(const std::string &file, bool listed)
{
    limit(RLIMIT_CORE, 0);
    // The fuzzer's own handlers are not for a child: it may exit and be ended by its timer.
    signal(SIGALRM, SIG_DFL);
    signal(SIGFPE, SIG_DFL);
    __sanitizer_acquire_crash_state();
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    ualarm(200000, 0);
    session s = {};
    char *argv[] = {const_cast<char *>("kestrin"), const_cast<char *>("p.ksx")};
    s.argc = 2;
    s.argv = argv;
    s.first_arg_index = 1;
    s.mode = listed ? DISK_SHOW_DEBUG_INFO : DISK_NONE;
    s.switches[SWITCH_DECOMPILED] = 1;
    load_precompiled(&s, file);
    kestrin_link(s.prog_text);
    kestrin_data value = owning_slot;
    kestrin_run(reinterpret_cast<const ULO *>(s.prog_text), &value, 1);
    _exit(0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    setup_quarne_thread_safe_functionality_for_local_thread();
    static const kit::code good[] = {kit::program(programs[0]), kit::program(programs[1], 1),
                                     kit::program(programs[2])};
    kit::code code = good[data[0] % 3];
    auto *bytes = reinterpret_cast<std::uint8_t *>(code.data());
    for (std::size_t i = 1; i + 2 < size; i += 3)
        bytes[(data[i] | data[i + 1] << 8) % (code.size() * sizeof(ULO))] = data[i + 2];
    if (!is_harmless(code)) return 0;
    const pid_t child = fork();
    if (child == 0) take_the_road(stored(code), data[0] & 64);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return 0;
    if (WIFSIGNALED(status) && WTERMSIG(status) != SIGALRM && WTERMSIG(status) != SIGFPE) abort();
    if (WIFEXITED(status) && WEXITSTATUS(status) > 1) abort();
    return 0;
}
