// The reader works line by line: the balance of quotes is settled at the end of each line, before
// any parenthesis is looked at, and the line number is known for the one message that it has.

#include "frontend/reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "strings/fatal.h"
#include "strings/tokens.h"

FATAL_SITE(READ_FROM_FILE, "kestrin", "read_from_file", 28)

namespace {

// Cleans the trimmed line that begins at `i` in place, and says where what stays of it ends: in
// front of a comment.
ULO clean_line(std::string *text, ULO i, bool *in_string)
{
    while (i < text->size()) {
        CHR &c = (*text)[i];
        if (c == 0)
            c = ' ';
        else if (c == '"')
            *in_string = !*in_string;
        else if (*in_string)
            i += c == '\\'; // the hidden byte is not looked at
        else if (c == '#')
            return i;
        else if (static_cast<UCH>(c) < 32)
            c = ' ';
        i++;
    }
    return text->size();
}

[[noreturn]] void refuse_line(const CHR *path, ULO line)
{
    fprintf(stderr, "\n`%s': line %lu: `\"' has been mixed up.\n", path, line);
    exit(1);
}

[[noreturn]] void report_failure(const CHR *path, const raw_file &file)
{
    const std::string text =
        std::string("Failed while ") + file.failed_call + "ing file `" + path + "'.";
    errno = file.error;
    fatal(site::READ_FROM_FILE, text.c_str(), file.failed_call);
}

} // namespace

raw_file read_raw(const CHR *path)
{
    static CHR buffer[65536];
    raw_file raw;
    const int file = open(path, O_RDONLY);
    if (file < 0) return {"", "open", errno};
    struct stat about = {};
    if (fstat(file, &about) == 0) raw.contents.reserve(static_cast<ULO>(about.st_size));
    ssize_t got;
    while ((got = read(file, buffer, sizeof buffer)) > 0)
        raw.contents.append(buffer, static_cast<ULO>(got));
    if (got < 0) raw.failed_call = "read", raw.error = errno;
    close(file);
    return raw;
}

file_place file_places::find(ULO joined) const
{
    const auto behind = std::upper_bound(lines_.begin(), lines_.end(), joined,
                                         [](ULO at, const line &l) { return at < l.joined; });
    if (behind == lines_.begin()) return {0, 0};
    const line &found = behind[-1];
    return {static_cast<ULO>(behind - lines_.begin()), found.column + joined - found.joined + 1};
}

ULO join_lines(std::string *joined, std::string_view text, bool carry_quotes, file_places *places)
{
    joined->reserve(text.size() + text.size() / 8 + 64); // room for what is written around it
    bool in_string = false;
    for (ULO number = 1;; number++) {
        const auto end = text.find('\n');
        const std::string_view raw = text.substr(0, end);
        const ULO from = joined->size();
        if (places != nullptr) places->add_line(from, raw.size() - left_trimmed(raw).size());
        joined->append(trimmed(raw));
        joined->resize(clean_line(joined, from, &in_string));
        if (in_string && !carry_quotes) return number;
        joined->resize(from + right_trimmed(std::string_view(*joined).substr(from)).size());
        joined->push_back(' ');
        if (end == text.npos) break;
        text.remove_prefix(end + 1);
    }
    joined->resize(right_trimmed(*joined).size());
    return 0;
}

std::string read_from_raw(const CHR *path, const raw_file &file, file_places *places)
{
    if (file.failed_call != nullptr) report_failure(path, file);
    std::string joined;
    const ULO refused = join_lines(&joined, file.contents, false, places);
    if (refused != 0) refuse_line(path, refused);
    return joined;
}
