#include "workshop/replace_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

bool write_all(int file, std::string_view contents)
{
    while (!contents.empty()) {
        const ssize_t done = write(file, contents.data(), contents.size());
        if (done < 0 && errno != EINTR) return false;
        if (done > 0) contents.remove_prefix(static_cast<ULO>(done));
    }
    return true;
}

// What is to stand at a path: contents and, of a file that stood there, mode and owner.
struct new_file {
    std::string_view contents;
    mode_t mode = 0;
    const struct stat *former = nullptr;
};

// The owner may stay another one: who may write into the folder may do that.
bool dress(int file, const new_file &what)
{
    const struct stat *former = what.former;
    if (former != nullptr && fchown(file, former->st_uid, former->st_gid) != 0 && errno != EPERM)
        return false;
    return fchmod(file, what.mode) == 0;
}

// The new contents in a file beside the old one, which then takes its place.
bool put(const std::string &path, const new_file &what)
{
    std::string beside = path + ".XXXXXX";
    const int file = mkstemp(beside.data());
    if (file < 0) return false;
    bool done = write_all(file, what.contents) && dress(file, what) && fsync(file) == 0;
    done = close(file) == 0 && done && rename(beside.c_str(), path.c_str()) == 0;
    const int error = errno;
    if (!done) unlink(beside.c_str());
    errno = error;
    return done;
}

// A pipe or a folder would be one no more.
bool is_file(const std::string &path, struct stat *about)
{
    if (stat(path.c_str(), about) != 0) return false;
    if (!S_ISREG(about->st_mode)) errno = S_ISDIR(about->st_mode) ? EISDIR : EINVAL;
    return S_ISREG(about->st_mode);
}

bool replace_at(const std::string &path, std::string_view contents)
{
    struct stat about = {};
    return is_file(path, &about) && put(path, {contents, about.st_mode & 07777, &about});
}

mode_t usual_mode(mode_t most)
{
    const mode_t taken = umask(0);
    umask(taken);
    return most & ~taken;
}

// Where a path leads in the end, also through a link to what is not there yet.
std::string followed(const CHR *path)
{
    constexpr int MOST_LINKS = 40;
    std::error_code error;
    fs::path place = path;
    for (int i = 0; i < MOST_LINKS && fs::is_symlink(place, error); i++)
        place.replace_filename(fs::read_symlink(place, error));
    return place;
}

std::string why_not(const CHR *path)
{
    return "can't write `" + std::string(path) + "': " + strerror(errno);
}

} // namespace

bool make_file(const CHR *path, std::string_view contents, mode_t mode, std::string *why)
{
    const std::string place = followed(path);
    struct stat about = {};
    const bool may_be_written =
        is_file(place, &about) ? access(place.c_str(), W_OK) == 0 : errno == ENOENT;
    const bool done = may_be_written && put(place, {contents, usual_mode(mode)});
    if (!done) *why = why_not(path);
    return done;
}

bool is_same_file(const CHR *one, const std::string &other)
{
    struct stat a, b;
    return stat(one, &a) == 0 && stat(other.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

bool replace_file(const CHR *path, std::string_view contents, std::string *why)
{
    CHR *real = realpath(path, nullptr);
    const bool done = real != nullptr && access(real, W_OK) == 0 && replace_at(real, contents);
    if (!done) *why = why_not(path);
    free(real);
    return done;
}
