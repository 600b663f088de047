// The mark is constant data of the engine, found in the file by its name. It costs a program that
// is not packed one look at memory.

#include "driver/packed.h"

#include <cstring>
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kestrin/strings.h"
#include "strings/scratch.h"

namespace {

struct packed_mark {
    CHR name[24];
    ULO offset; // in the file: the profile, behind it the program
    ULO profile_size, program_size;
    ULO sum; // of both
};

// Volatile: the compiler must not know the values, which the copy of another process changes.
[[gnu::used]] const volatile packed_mark mark = {"kestrin packed program", 0, 0, 0, 0};

// The name as the search wants it. It stands nowhere else, or the search would find it there too.
std::string name_of_mark()
{
    std::string name;
    for (const volatile CHR &byte : mark.name) name.push_back(byte);
    return name;
}

ULO sum_of(std::string_view bytes)
{
    scratch text;
    return crcsum(assign(&text.s, bytes));
}

// Reads the bytes from `offset` on, all that `into` has room for.
bool read_exactly(int file, ULO offset, std::string *into)
{
    for (ULO done = 0; done < into->size();) {
        const ssize_t got =
            pread(file, into->data() + done, into->size() - done, off_t(offset + done));
        if (got <= 0) return false;
        done += static_cast<ULO>(got);
    }
    return true;
}

bool read_packed(const CHR *path, std::string *into)
{
    const ULO offset = mark.offset, size = mark.profile_size + mark.program_size;
    const int file = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    struct stat about = {};
    bool done = fstat(file, &about) == 0 && offset + size <= ULO(about.st_size);
    if (done) into->resize(size);
    done = done && read_exactly(file, offset, into) && sum_of(*into) == mark.sum;
    close(file);
    return done;
}

} // namespace

bool is_packed() { return mark.program_size != 0; }

// A loader that was called with the program's name is the process's executable itself.
bool unpack(const CHR *name, packed_program *into)
{
    const auto *called = reinterpret_cast<const CHR *>(getauxval(AT_EXECFN));
    std::string both;
    for (const CHR *path : {"/proc/self/exe", called, name}) {
        if (!read_packed(path, &both)) continue;
        into->profile = both.substr(0, mark.profile_size);
        into->program = both.substr(mark.profile_size);
        return true;
    }
    return false;
}

bool pack(std::string *executable, const packed_program &packed)
{
    const std::string name = name_of_mark(), both = packed.profile + packed.program;
    const auto at = executable->find(name);
    if (at == executable->npos || executable->find(name, at + 1) != executable->npos) return false;
    packed_mark filled = {};
    if (at + sizeof filled > executable->size()) return false;
    memcpy(&filled, executable->data() + at, sizeof filled);
    if (filled.program_size != 0) return false;
    filled.offset = executable->size();
    filled.profile_size = packed.profile.size();
    filled.program_size = packed.program.size();
    filled.sum = sum_of(both);
    executable->replace(at, sizeof filled, reinterpret_cast<const CHR *>(&filled), sizeof filled);
    executable->append(both);
    return true;
}
