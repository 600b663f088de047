// File instructions. A file is a bare descriptor of the system: no buffering and no table of open
// files. Failure is the system call's -1 and never a runtime error.

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "vm/handler.h"
#include "vm/text.h"

namespace {

constexpr mode_t PERMISSIONS = 0644;

// A text for the system, which ends at its first NUL.
const CHR *system_text(const CHR *name) { return name == nullptr ? "" : name; }

SLO open_file(const CHR *name) { return open(system_text(name), O_RDWR, PERMISSIONS); }

SLO create_file(const CHR *name)
{
    close(creat(system_text(name), PERMISSIONS));
    return open_file(name);
}

SLO write_file(int fd, const CHR *bytes) { return write(fd, system_text(bytes), len(bytes)); }

// A failed read gives zeros of the length that was asked for: programs tell it by other means.
CHR *read_file(CHR **targ, int fd, ULO n)
{
    CHR *bytes = mk_fst_buff(targ, n);
    if (len(bytes) != n) return equ(targ, bytes); // memory ran out and the thread goes on
    const ssize_t got = read(fd, bytes, n);
    if (got >= 0) return left(targ, bytes, static_cast<ULO>(got));
    memset(bytes, 0, n);
    return bytes;
}

template <int whence> SLO seek_file(int fd, SLO offset) { return lseek(fd, offset, whence); }

SLO close_file(int fd) { return close(fd); }

SLO remove_file(const CHR *name) { return unlink(system_text(name)); }

} // namespace

HANDLERS(file_create, text<create_file>)
HANDLERS(file_open, text<open_file>)
HANDLERS(file_write, text<write_file>)
HANDLERS(file_read, text<read_file>)
HANDLERS(file_seek_beg, text<seek_file<SEEK_SET>>)
HANDLERS(file_seek_cur, text<seek_file<SEEK_CUR>>)
HANDLERS(file_seek_end, text<seek_file<SEEK_END>>)
HANDLERS(file_close, text<close_file>)
HANDLERS(file_remove, text<remove_file>)
