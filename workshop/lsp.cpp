// kst lsp: the language server. Messages that wait are taken in together: faults are told of the
// last text alone, and a question that was taken back gets no answer.

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <unistd.h>

#include "driver/session.h"
#include "workshop/lsp_answers.h"
#include "workshop/program.h"
#include "workshop/verbs.h"

namespace {

constexpr ULO MOST_WAITING = ULO(64) << 20; // bytes of messages that are taken in ahead

class server {
public:
    explicit server(int out) : stream_(STDIN_FILENO, out) {}
    void take_profile(const CHR *path, std::string text);
    int run();

private:
    enum class state { FRESH, SERVING, SHUT_DOWN, ENDED };
    struct waiting_message {
        json content;
        ULO size;
    };
    using documents = std::map<std::string, document, std::less<>>;

    void take_messages();
    void take_message(const std::string &body);
    void cancel(const json &id);
    void obey(const json &message);
    void answer_request(const json &message);
    void answer_question(const lsp_method &method, const json &id, const json &params);
    void initialize(const json &id, const json &params);
    void take_notice(std::string_view method, const json &params);
    void open_document(const json &params);
    void change_document(const json &params);
    void close_document(const json &params);
    void publish_one();
    void publish(std::string_view uri, const json &version, const json &diagnostics);
    void reply(const json &id, const json &result);
    void refuse(const json &id, int code, std::string_view why);
    void send(const json &message);
    documents::iterator document_of(const json &params)
    {
        return documents_.find(string_in(member(params, {"textDocument", "uri"})));
    }

    message_stream stream_;
    state state_ = state::FRESH;
    int status_ = STATUS_FAULT; // of an end that was not agreed on
    std::deque<waiting_message> waiting_;
    ULO waiting_size_ = 0;
    bool has_ended_ = false; // nothing more comes in
    bool is_broken_ = false; // for what came in is no frame
    units counted_ = units::UTF16;
    surroundings around_;
    std::unique_ptr<document> profile_;
    documents documents_;
    std::deque<std::string> unchecked_; // documents whose faults are not told yet
};

// -- Messages ----------------------------------------------------------------------------------

void server::send(const json &message)
{
    if (!stream_.send(message)) state_ = state::ENDED;
}

void server::reply(const json &id, const json &result)
{
    send({{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
}

void server::refuse(const json &id, int code, std::string_view why)
{
    send({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", why}}}});
}

// Takes in what has come, and waits for it where there is nothing else to do.
void server::take_messages()
{
    std::string body;
    while (!has_ended_ && waiting_size_ < MOST_WAITING) {
        switch (stream_.receive(&body, waiting_.empty() && unchecked_.empty())) {
        case arrival::MESSAGE: take_message(body); break;
        case arrival::NOTHING: return;
        case arrival::END: has_ended_ = true; break;
        case arrival::BROKEN: is_broken_ = has_ended_ = true; break;
        }
    }
}

void server::take_message(const std::string &body)
{
    json message = parsed(body);
    if (string_in(member(message, {"method"})) == "$/cancelRequest")
        return cancel(member(message, {"params", "id"}));
    waiting_size_ += body.size();
    waiting_.push_back({std::move(message), body.size()});
}

void server::cancel(const json &id)
{
    for (auto at = waiting_.begin(); at != waiting_.end(); ++at) {
        if (id.is_null() || member(at->content, {"id"}) != id) continue;
        refuse(id, REQUEST_CANCELLED, "cancelled");
        waiting_size_ -= at->size;
        waiting_.erase(at);
        return;
    }
}

void server::obey(const json &message)
{
    const json &id = member(message, {"id"}), &method = member(message, {"method"});
    if (message.is_discarded()) return refuse(nullptr, PARSE_ERROR, "this is no JSON");
    if (!method.is_string()) {
        const bool is_response =
            message.is_object() && (message.contains("result") || message.contains("error"));
        if (!is_response) refuse(nullptr, INVALID_REQUEST, "this is no message");
        return;
    }
    if (!message.contains("id")) return take_notice(string_in(method), member(message, {"params"}));
    if (!id.is_string() && !id.is_number_integer())
        return refuse(nullptr, INVALID_REQUEST, "an id is a number or a string");
    answer_request(message);
}

// -- The session -------------------------------------------------------------------------------

void server::initialize(const json &id, const json &params)
{
    const json &client = member(params, {"capabilities"});
    const json &text = member(client, {"textDocument"});
    if (has_string(member(client, {"general", "positionEncodings"}), "utf-8"))
        counted_ = units::UTF8;
    around_.shows_markdown = has_string(member(text, {"hover", "contentFormat"}), "markdown");
    around_.shows_nested_symbols =
        is_true(member(text, {"documentSymbol", "hierarchicalDocumentSymbolSupport"}));
    around_.shows_parts_of_labels =
        is_true(member(text, {"signatureHelp", "signatureInformation", "parameterInformation",
                              "labelOffsetSupport"}));
    around_.takes_versions_of_edits =
        is_true(member(client, {"workspace", "workspaceEdit", "documentChanges"}));
    if (profile_ != nullptr) profile_->count_in(counted_);
    state_ = state::SERVING;
    json can = lsp_capabilities();
    can["positionEncoding"] = counted_ == units::UTF8 ? "utf-8" : "utf-16";
    can["textDocumentSync"] = {{"openClose", true}, {"change", 2}, {"save", true}};
    reply(id,
          {{"capabilities", can}, {"serverInfo", {{"name", "kst lsp"}, {"version", KST_VERSION}}}});
}

void server::answer_request(const json &message)
{
    const json &id = member(message, {"id"}), &params = member(message, {"params"});
    const std::string_view name = string_in(member(message, {"method"}));
    if (state_ == state::SHUT_DOWN) return refuse(id, INVALID_REQUEST, "the server is shut down");
    if (name == "initialize")
        return state_ == state::FRESH ? initialize(id, params)
                                      : refuse(id, INVALID_REQUEST, "initialized already");
    if (state_ == state::FRESH) return refuse(id, NOT_INITIALIZED, "not initialized yet");
    if (name == "shutdown") {
        state_ = state::SHUT_DOWN;
        return reply(id, nullptr);
    }
    for (const lsp_method &method : lsp_methods())
        if (method.name == name) return answer_question(method, id, params);
    refuse(id, METHOD_NOT_FOUND, "no such method: " + std::string(name));
}

void server::answer_question(const lsp_method &method, const json &id, const json &params)
{
    const auto asked = document_of(params);
    if (method.wants_document && asked == documents_.end())
        return refuse(id, INVALID_PARAMS, "no such document is open");
    const document *doc = method.wants_document ? &asked->second : nullptr;
    const answer given = method.run({params, doc, around_});
    if (given.refusal.empty()) return reply(id, given.result);
    refuse(id, REQUEST_FAILED, given.refusal);
}

void server::take_notice(std::string_view method, const json &params)
{
    if (method == "exit") {
        status_ = state_ == state::SHUT_DOWN ? STATUS_GOOD : STATUS_FAULT;
        state_ = state::ENDED;
    }
    if (state_ != state::SERVING) return;
    if (method == "textDocument/didOpen") open_document(params);
    if (method == "textDocument/didChange") change_document(params);
    if (method == "textDocument/didClose") close_document(params);
}

// -- Documents ---------------------------------------------------------------------------------

SLO version_in(const json &params)
{
    const json &version = member(params, {"textDocument", "version"});
    return version.is_number_integer() ? version.get<SLO>() : 0;
}

void server::open_document(const json &params)
{
    const std::string uri(string_in(member(params, {"textDocument", "uri"})));
    std::string text(string_in(member(params, {"textDocument", "text"})));
    documents_.insert_or_assign(uri, document(std::move(text), version_in(params), counted_));
    unchecked_.push_back(uri);
}

void server::change_document(const json &params)
{
    const auto found = document_of(params);
    const json &changes = member(params, {"contentChanges"});
    if (found == documents_.end() || !changes.is_array()) return;
    document &doc = found->second;
    for (const json &change : changes) {
        const json &range = member(change, {"range"}), &text = member(change, {"text"});
        if (!text.is_string()) continue;
        if (range.is_object())
            doc.change(place_in(member(range, {"start"})), place_in(member(range, {"end"})),
                       string_in(text));
        else
            doc.replace(std::string(string_in(text)));
    }
    doc.version = version_in(params);
    unchecked_.push_back(found->first);
}

void server::close_document(const json &params)
{
    const auto found = document_of(params);
    if (found == documents_.end()) return;
    publish(found->first, nullptr, json::array());
    std::erase(unchecked_, found->first);
    documents_.erase(found);
}

// Tells the faults of the document that was changed last.
void server::publish_one()
{
    const std::string uri = unchecked_.back();
    std::erase(unchecked_, uri);
    const document &doc = documents_.find(uri)->second;
    publish(uri, doc.version, diagnostics_of(doc));
}

void server::publish(std::string_view uri, const json &version, const json &diagnostics)
{
    json params = {{"uri", uri}, {"diagnostics", diagnostics}};
    if (!version.is_null()) params["version"] = version;
    send({{"jsonrpc", "2.0"},
          {"method", "textDocument/publishDiagnostics"},
          {"params", std::move(params)}});
}

// -- The profile -------------------------------------------------------------------------------

std::string uri_of(std::string_view path)
{
    constexpr std::string_view PLAIN = "/-_.~";
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string uri = "file://";
    for (const char c : path) {
        const UCH byte = static_cast<UCH>(c);
        if (isalnum(byte) || PLAIN.find(c) != PLAIN.npos)
            uri.push_back(c);
        else
            uri.append({'%', DIGITS[byte >> 4], DIGITS[byte & 15]});
    }
    return uri;
}

void server::take_profile(const CHR *path, std::string text)
{
    CHR *whole = realpath(path, nullptr);
    around_.profile_uri = uri_of(whole == nullptr ? path : whole);
    free(whole);
    profile_ = std::make_unique<document>(std::move(text), 0, counted_);
    around_.profile = profile_.get();
}

int server::run()
{
    while (state_ != state::ENDED) {
        take_messages();
        if (!waiting_.empty()) {
            const waiting_message next = std::move(waiting_.front());
            waiting_.pop_front();
            waiting_size_ -= next.size;
            obey(next.content);
        } else if (!unchecked_.empty())
            publish_one();
        else if (has_ended_)
            break;
    }
    if (is_broken_) refuse(nullptr, PARSE_ERROR, "this is no frame, or one of more than 64 MB");
    return status_;
}

// Whatever else would print goes to the standard error.
int take_output()
{
    const int out = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return out;
}

int run_verb_on(const request &asked)
{
    const auto tell = [](const source &from, const std::vector<fault> &faults) {
        print_faults(stderr, from, faults);
    };
    const int status = load_functions("kst lsp", asked.value("--cfg"), tell);
    if (status == STATUS_MISUSE) return status;
    signal(SIGPIPE, SIG_IGN);
    server serving(take_output());
    source profile;
    std::string why;
    const CHR *path = start_workshop().cfg_profile_path;
    if (status == STATUS_GOOD && path != nullptr && read_source(path, &profile, &why))
        serving.take_profile(path, std::move(profile.text));
    return serving.run();
}

constexpr option options[] = {PROFILE_OPTION};

} // namespace

const verb lsp_verb = {
    .name = "lsp",
    .operands = "",
    .help = "serves an editor: faults, completion, definitions and more, while one types",
    .options = options,
    .run = run_verb_on,
    .most = 0,
};
