// The parent waits for what its children write, for their ends and for the end of their time.

#include "workshop/trial.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vm/machine.h"
#include "workshop/run.h"

namespace {

using steady = std::chrono::steady_clock;

// Descriptors that programs open get the same numbers as without a trial.
constexpr int TOLD_DESCRIPTOR = 200, MOST_DESCRIPTORS = 256;
constexpr int NO_TRIAL = 127; // exit status: the system gives no process, pipe or file
constexpr int PATIENCE = 2;   // milliseconds between two looks at a process that is silent for good

volatile sig_atomic_t interrupted = 0;
void note_interrupt(int signal) { interrupted = signal; }

// -- the child

// The code of a runtime error stands beside the values, as that of form 0.
void tell_error_code()
{
    const std::string code = std::to_string(rt_ctrl->rt_error_code);
    dprintf(TOLD_DESCRIPTOR, "0 E %zu:%s", code.size(), code.c_str());
}

void become_input(const std::string &text)
{
    FILE *file = tmpfile();
    if (file == nullptr) _exit(NO_TRIAL);
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    dup2(fileno(file), STDIN_FILENO);
}

[[noreturn]] void run_child(const trial &t, const int (&pipes)[3][2])
{
    setsid();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(signal, SIG_DFL);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    become_input(t.input);
    dup2(pipes[0][1], STDOUT_FILENO);
    dup2(pipes[1][1], STDERR_FILENO);
    dup2(pipes[2][1], TOLD_DESCRIPTOR);
    for (int i = STDERR_FILENO + 1; i < MOST_DESCRIPTORS; i++)
        if (i != TOLD_DESCRIPTOR) close(i);
    atexit(tell_error_code);
    program_call called = {.command = "kst test", .from = t.from};
    for (const std::string &word : t.words) called.words.push_back(word.c_str());
    run_source(called, {.arrange = [&t](tree *checked) {
                   watch_forms(checked, t.watched, TOLD_DESCRIPTOR);
               }});
}

// -- the parent

class child {
public:
    child(ULO number, const trial &t) : number_(number), begin_(steady::now())
    {
        int pipes[3][2];
        for (int i = 0; i < 3; i++) {
            if (pipe(pipes[i]) != 0) return;
            ends_[i] = pipes[i][0];
        }
        fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) run_child(t, pipes);
        for (auto &both : pipes) close(both[1]);
        for (const int end : ends_) fcntl(end, F_SETFL, O_NONBLOCK);
    }
    ~child()
    {
        if (pid_ > 0) stop(ending::SIGNAL);
        for (const int end : ends_)
            if (end >= 0) close(end);
    }
    child(const child &) = delete;
    child &operator=(const child &) = delete;

    ULO number() const { return number_; }
    void await(std::vector<pollfd> *wanted) const
    {
        for (const int end : ends_)
            if (end >= 0) wanted->push_back({end, POLLIN, 0});
    }
    double seconds() const { return std::chrono::duration<double>(steady::now() - begin_).count(); }

    // Takes what has come; returns whether the trial is at its end.
    bool go_on(ULO limit)
    {
        bool is_silent = true;
        for (int i = 0; i < 3; i++) {
            if (ends_[i] >= 0) take(&ends_[i], &written_[i]);
            is_silent = is_silent && ends_[i] < 0;
        }
        if (pid_ <= 0) return end_as(ending::EXIT, NO_TRIAL);
        if (written_[0].size() + written_[1].size() + written_[2].size() > most_output)
            return stop(ending::TOO_MUCH);
        if (is_silent && has_ended()) return true;
        return seconds() > static_cast<double>(limit) && stop(ending::TOO_LATE);
    }

    outcome result()
    {
        outcome_.seconds = seconds();
        outcome_.out = std::move(written_[0]);
        outcome_.err = std::move(written_[1]);
        outcome_.values = values_of(written_[2]);
        for (const form_value &v : outcome_.values)
            if (v.number == 0 && outcome_.status != 0)
                outcome_.error_code = static_cast<UCH>(atoi(v.text.c_str()));
        return std::move(outcome_);
    }

private:
    ULO number_;
    steady::time_point begin_;
    pid_t pid_ = -1;
    int ends_[3] = {-1, -1, -1};
    std::string written_[3];
    outcome outcome_;

    static void take(int *end, std::string *written)
    {
        CHR buffer[65536];
        const ssize_t got = read(*end, buffer, sizeof buffer);
        if (got > 0) written->append(buffer, static_cast<ULO>(got));
        if (got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR))) return;
        close(*end);
        *end = -1;
    }
    bool end_as(ending how, int status)
    {
        outcome_.how = how;
        outcome_.status = status;
        return true;
    }
    bool has_ended()
    {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == 0) return false;
        pid_ = -1;
        return WIFSIGNALED(status) ? end_as(ending::SIGNAL, WTERMSIG(status))
                                   : end_as(ending::EXIT, WEXITSTATUS(status));
    }
    bool stop(ending how)
    {
        kill(-pid_, SIGKILL);
        kill(pid_, SIGKILL); // it may not have a session of its own yet
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
        return end_as(how, 0);
    }
};

// Until something is written or some time has passed.
void wait_for(const std::vector<std::unique_ptr<child>> &running)
{
    std::vector<pollfd> wanted;
    for (const auto &c : running) c->await(&wanted);
    poll(wanted.data(), wanted.size(), PATIENCE);
}

} // namespace

void run_trials(const std::vector<trial> &trials, ULO jobs, ULO seconds,
                const std::function<void(ULO, const outcome &)> &tell)
{
    std::vector<std::unique_ptr<child>> running;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, note_interrupt);
    for (ULO next = 0; (next < trials.size() || !running.empty()) && interrupted == 0;) {
        for (; running.size() < jobs && next < trials.size(); next++)
            running.push_back(std::make_unique<child>(next, trials[next]));
        wait_for(running);
        std::erase_if(running, [&](const auto &c) {
            if (!c->go_on(seconds)) return false;
            tell(c->number(), c->result());
            return true;
        });
    }
    running.clear();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
    if (interrupted != 0) raise(interrupted);
}
