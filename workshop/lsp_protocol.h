// The language server protocol below its methods: frames on two descriptors, and JSON that is
// looked at before it is used.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "kestrin/types.h"

using nlohmann::json;

// Codes of errors, as the protocol numbers them.
enum lsp_code : int {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INVALID_PARAMS = -32602,
    NOT_INITIALIZED = -32002,
    REQUEST_FAILED = -32803,
    REQUEST_CANCELLED = -32800,
};

// What stands at the end of a path of keys; null if there is no such thing.
const json &member(const json &of, std::initializer_list<const char *> path);
// A string; empty for anything else.
std::string_view string_in(const json &value);
// A number from 0 on: 0 for anything else, the largest for what is beyond.
ULO number_in(const json &value);
bool is_true(const json &value);
// Whether a list has this string.
bool has_string(const json &list, std::string_view wanted);

// The JSON of a message; discarded if it is none. Bytes that are not UTF-8 and halves of surrogate
// pairs are read as U+FFFD, which takes as many units of UTF-16.
json parsed(const std::string &body);

enum class arrival { MESSAGE, NOTHING, END, BROKEN };

// Messages that come in by one descriptor and go out by another.
class message_stream {
public:
    message_stream(int in, int out) : in_(in), out_(out) {}
    // Takes the next message. NOTHING: it has not come in yet, which `waits` rules out. BROKEN:
    // what came in is no frame, or one that is too long; nothing behind it can be read.
    arrival receive(std::string *body, bool waits);
    // Writes a message whole. False if the other side is gone.
    bool send(const json &message) const;

private:
    enum class frame { WHOLE, PART, BROKEN };
    frame take_frame(std::string *body);
    bool read_more(bool waits, bool *has_ended);

    int in_, out_;
    std::string buffer_; // what came in and is not taken yet, from begin_ on
    ULO begin_ = 0;
};
