#include "workshop/replace_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool write_all(int file, std::string_view contents)
{
    while (!contents.empty()) {
        const ssize_t done = write(file, contents.data(), contents.size());
        if (done < 0 && errno != EINTR) return false;
        if (done > 0) contents.remove_prefix(static_cast<ULO>(done));
    }
    return true;
}

// The owner may stay another one: who may write into the folder may do that.
bool take_over(int file, const struct stat &about)
{
    if (fchown(file, about.st_uid, about.st_gid) != 0 && errno != EPERM) return false;
    return fchmod(file, about.st_mode & 07777) == 0;
}

// The new contents in a file beside the old one, which then takes its place.
bool replace_at(const std::string &path, std::string_view contents)
{
    struct stat about = {};
    if (stat(path.c_str(), &about) != 0) return false;
    if (!S_ISREG(about.st_mode)) return errno = EINVAL, false; // a pipe would be one no more
    std::string beside = path + ".XXXXXX";
    const int file = mkstemp(beside.data());
    if (file < 0) return false;
    bool done = write_all(file, contents) && take_over(file, about) && fsync(file) == 0;
    done = close(file) == 0 && done && rename(beside.c_str(), path.c_str()) == 0;
    const int error = errno;
    if (!done) unlink(beside.c_str());
    errno = error;
    return done;
}

} // namespace

bool replace_file(const CHR *path, std::string_view contents, std::string *why)
{
    CHR *real = realpath(path, nullptr);
    const bool done = real != nullptr && access(real, W_OK) == 0 && replace_at(real, contents);
    if (!done) *why = "can't write `" + std::string(path) + "': " + strerror(errno);
    free(real);
    return done;
}
