#include "workshop/lsp_protocol.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include "strings/tokens.h"

namespace {

constexpr ULO LONGEST_HEADER = 4096;           // with all of its lines
constexpr ULO LONGEST_MESSAGE = ULO(64) << 20; // bytes
constexpr int DEEPEST = 64;                    // nesting in a message; what is deeper is left out
constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD"; // U+FFFD

// The length that a header tells. False if it tells none that can be taken.
bool read_length(std::string_view header, ULO *length)
{
    constexpr std::string_view NAME = "Content-Length:";
    bool is_told = false;
    while (!header.empty()) {
        const auto end = std::min(header.find("\r\n"), header.size());
        std::string_view line = header.substr(0, end);
        header.remove_prefix(std::min(end + 2, header.size()));
        if (line.size() < NAME.size() || strncasecmp(line.data(), NAME.data(), NAME.size()) != 0)
            continue;
        line = trimmed(line.substr(NAME.size()));
        const auto read = std::from_chars(line.data(), line.data() + line.size(), *length);
        is_told = read.ec == std::errc() && read.ptr == line.data() + line.size();
        if (!is_told || *length > LONGEST_MESSAGE) return false;
    }
    return is_told;
}

// -- Text that JSON can't hold -----------------------------------------------------------------

bool continues(std::string_view text, ULO at, UCH least = 0x80, UCH most = 0xBF)
{
    return at < text.size() && static_cast<UCH>(text[at]) >= least &&
           static_cast<UCH>(text[at]) <= most;
}

// The size of the character that a text begins with; 0 if that is not UTF-8.
ULO size_of_character(std::string_view text)
{
    const UCH first = static_cast<UCH>(text[0]);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first < 0xE0) return continues(text, 1) ? 2 : 0;
    const UCH least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const UCH most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (first < 0xE0 || first > 0xF4 || !continues(text, 1, least, most) || !continues(text, 2))
        return 0;
    if (first < 0xF0) return 3;
    return continues(text, 3) ? 4 : 0;
}

// The unit of UTF-16 that an escape \uXXXX at the begin of a text names; 0 for anything else.
unsigned escaped_unit(std::string_view text)
{
    unsigned unit = 0;
    if (!text.starts_with("\\u") || text.size() < 6) return 0;
    const auto read = std::from_chars(text.data() + 2, text.data() + 6, unit, 16);
    return read.ec == std::errc() && read.ptr == text.data() + 6 ? unit : 0;
}

bool is_high(unsigned unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low(unsigned unit) { return unit >= 0xDC00 && unit < 0xE000; }

std::string repaired(std::string_view body)
{
    std::string whole;
    for (ULO size; !body.empty(); body.remove_prefix(size)) {
        const unsigned unit = escaped_unit(body);
        size = body[0] == '\\' && body.size() > 1 && unit == 0 ? 2 : size_of_character(body);
        const bool is_pair = is_high(unit) && is_low(escaped_unit(body.substr(6)));
        if (unit != 0) size = is_pair ? 12 : 6;
        const bool is_half = !is_pair && (is_high(unit) || is_low(unit));
        whole.append(size == 0 || is_half ? REPLACEMENT : body.substr(0, size));
        size = std::max<ULO>(size, 1);
    }
    return whole;
}

bool write_all(int to, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(to, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<ULO>(written));
    }
    return true;
}

} // namespace

// -- JSON --------------------------------------------------------------------------------------

const json &member(const json &of, std::initializer_list<const char *> path)
{
    static const json nothing;
    const json *at = &of;
    for (const char *key : path) {
        if (!at->is_object()) return nothing;
        const auto found = at->find(key);
        if (found == at->end()) return nothing;
        at = &*found;
    }
    return *at;
}

std::string_view string_in(const json &value)
{
    const auto *text = value.get_ptr<const std::string *>();
    return text == nullptr ? std::string_view() : *text;
}

ULO number_in(const json &value)
{
    if (value.is_number_float()) return *value.get_ptr<const double *>() > 0 ? ~ULO(0) : 0;
    const auto *number = value.get_ptr<const json::number_unsigned_t *>();
    return number == nullptr ? 0 : *number;
}

bool is_true(const json &value) { return value.is_boolean() && value == true; }

bool has_string(const json &list, std::string_view wanted)
{
    return list.is_array() && std::any_of(list.begin(), list.end(), [&](const json &one) {
               return string_in(one) == wanted;
           });
}

json parsed(const std::string &body)
{
    const auto is_taken = [](int depth, json::parse_event_t, json &) { return depth < DEEPEST; };
    json message = json::parse(body, is_taken, false);
    return message.is_discarded() ? json::parse(repaired(body), is_taken, false) : message;
}

// -- Frames ------------------------------------------------------------------------------------

message_stream::frame message_stream::take_frame(std::string *body)
{
    const std::string_view rest = std::string_view(buffer_).substr(begin_);
    const auto header = rest.substr(0, LONGEST_HEADER).find("\r\n\r\n");
    if (header == rest.npos) return rest.size() < LONGEST_HEADER ? frame::PART : frame::BROKEN;
    ULO length = 0;
    if (!read_length(rest.substr(0, header), &length)) return frame::BROKEN;
    if (rest.size() - header - 4 < length) return frame::PART;
    body->assign(rest.substr(header + 4, length));
    begin_ += header + 4 + length;
    return frame::WHOLE;
}

// Reads what has come in. False if nothing has, or the other side is gone.
bool message_stream::read_more(bool waits, bool *has_ended)
{
    constexpr ULO PIECE = ULO(64) << 10;
    pollfd asked = {in_, POLLIN, 0};
    while (poll(&asked, 1, waits ? -1 : 0) < 0)
        if (errno != EINTR) return *has_ended = true, false;
    if (asked.revents == 0) return false;
    buffer_.erase(0, begin_);
    begin_ = 0;
    const ULO before = buffer_.size();
    buffer_.resize(before + PIECE);
    ssize_t got;
    do got = read(in_, buffer_.data() + before, PIECE);
    while (got < 0 && errno == EINTR);
    buffer_.resize(before + static_cast<ULO>(std::max<ssize_t>(got, 0)));
    *has_ended = got <= 0;
    return got > 0;
}

arrival message_stream::receive(std::string *body, bool waits)
{
    for (bool has_ended = false;;) {
        const frame next = take_frame(body);
        if (next == frame::WHOLE) return arrival::MESSAGE;
        if (next == frame::BROKEN) return arrival::BROKEN;
        if (!read_more(waits, &has_ended)) return has_ended ? arrival::END : arrival::NOTHING;
    }
}

bool message_stream::send(const json &message) const
{
    const std::string body = message.dump(-1, ' ', false, json::error_handler_t::replace);
    return write_all(out_, "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}
