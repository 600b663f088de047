#include "workshop/sampler.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include "terminal/keypress.h"
#include "vm/handler.h"
#include "vm/hot.h"
#include "vm/watch.h"

namespace {

constexpr ULO TICK = 1000;       // microseconds between samples
constexpr ULO PAUSE = 20 * TICK; // between looks for them
constexpr ULO REST = 20;         // times as long as a sample has taken: deep recursions
constexpr ULO BUFFER = ULO(24) << 20;

// Samples one behind the other, in memory most of which is never touched.
struct buffer {
    CHR *memory;
    ULO used;
};

struct sampling {
    std::function<void(const sample &)> take;
    std::function<void()> interrupted;
    pthread_t taker;
    timer_t timer;
    buffer buffers[2];
    std::atomic<int> filled = 0;           // buffer that samples go to
    std::atomic<bool> is_sampling = false; // right now
    ULO last = 0, rest_until = 0; // time of the last sample, and of the next at the soonest
    sample *taken = nullptr;      // the last that was
    sem_t wakes;                  // the taker
    bool handles_interrupts = false;
    std::atomic<bool> ends = false, is_interrupted = false, dies = false;
};
sampling *running = nullptr;

ULO microseconds_now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<ULO>(now.tv_sec) * 1000000 + static_cast<ULO>(now.tv_nsec) / 1000;
}

// -- In the thread that is sampled, at any point of its work -----------------------------------

// The sample that is being made.
class maker {
public:
    maker(sample *s, ULO room) : made_(*s), room_(room) { made_.count = 0; }
    void look(const ucontext_t *context);

private:
    void add_call(const ULO *site, const ULO *image)
    {
        if (made_.count < room_) made_.calls()[made_.count++] = {site, image};
    }
    void add_frameless(const void *const *stack);

    sample &made_;
    ULO room_; // for calls
};

native_place find_native(const void *address)
{
    return the_engine.native == nullptr ? native_place() : the_engine.native->find(address);
}

// From the return address of a function without a frame on. The outermost of them is called by code
// that has a frame, or by the handler that stands for it, whose record tells of it.
void maker::add_frameless(const void *const *stack)
{
    for (;;) {
        const native_place caller = find_native(static_cast<const UCH *>(*stack) - 1);
        if (caller.node == nullptr) return;
        add_call(caller.node, node_at(caller.node + 1));
        if (caller.depth == NO_RETURN) return;
        stack += 1 + caller.depth / SLO(sizeof(void *));
    }
}

void maker::look(const ucontext_t *context)
{
    const watched_place &watched = rt_ctrl->watched;
    native_place here;
    ULO stack = 0;
#if defined(__x86_64__)
    here = find_native(reinterpret_cast<const void *>(context->uc_mcontext.gregs[REG_RIP]));
    stack = static_cast<ULO>(context->uc_mcontext.gregs[REG_RSP]);
#else
    (void)context;
#endif
    made_.node = here.node != nullptr ? here.node : watched.node;
    if (here.depth != NO_RETURN)
        add_frameless(reinterpret_cast<const void *const *>(stack + static_cast<ULO>(here.depth)));
    else if (here.node == nullptr && watched.direct != nullptr)
        add_frameless(watched.direct);
    for (const call_record *c = watched.calls; c != nullptr; c = c->outer)
        add_call(c->site, c->image);
}

// Where there is no room for it, its time is the next one's.
void make_sample(ULO now, const ucontext_t *context)
{
    buffer &into = running->buffers[running->filled];
    if (into.used + sizeof(sample) > BUFFER) return;
    sample *made = reinterpret_cast<sample *>(into.memory + into.used);
    const ULO room = (BUFFER - into.used - sizeof(sample)) / sizeof(sampled_call);
    maker(made, std::min(room, sample::MOST_CALLS)).look(context);
    made->microseconds = now - running->last;
    running->last = now;
    into.used += sizeof(sample) + made->count * sizeof(sampled_call);
    running->rest_until = now + REST * (microseconds_now() - now);
}

void on_tick(int, siginfo_t *, void *context)
{
    const int error = errno;
    const ULO now = microseconds_now();
    running->is_sampling = true;
    if (now >= running->rest_until && !running->ends)
        make_sample(now, static_cast<const ucontext_t *>(context));
    running->is_sampling = false;
    errno = error;
}

void on_interrupt(int)
{
    const int error = errno;
    running->is_interrupted = true;
    sem_post(&running->wakes);
    errno = error;
}

// -- In the thread that takes them -------------------------------------------------------------

// Until there may be samples, or until it is woken.
void wait_for_samples()
{
    timespec limit;
    clock_gettime(CLOCK_REALTIME, &limit);
    limit.tv_nsec += PAUSE * 1000;
    limit.tv_sec += limit.tv_nsec / 1000000000;
    limit.tv_nsec %= 1000000000;
    sem_timedwait(&running->wakes, &limit);
}

void take_samples()
{
    buffer &full = running->buffers[running->filled.fetch_xor(1)];
    while (running->is_sampling) sched_yield(); // it may have begun with that buffer
    for (ULO at = 0; at < full.used;) {
        running->taken = reinterpret_cast<sample *>(full.memory + at);
        running->take(*running->taken);
        at += sizeof(sample) + running->taken->count * sizeof(sampled_call);
    }
    full.used = 0;
}

// And the time behind the last of them, which is counted as its own.
void take_all()
{
    const ULO end = microseconds_now();
    take_samples();
    take_samples();
    sample none;
    sample &last = running->taken == nullptr ? none : *running->taken;
    last.microseconds = end - std::min(end, running->last);
    running->take(last);
}

[[noreturn]] void die_of_interrupt()
{
    running->dies = true;
    running->ends = true;
    take_all();
    running->interrupted();
    signal(SIGINT, SIG_DFL);
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr); // the program may wait with all blocked
    raise(SIGINT);
    for (;;) pause();
}

void *run_taker(void *)
{
    while (!running->ends) {
        wait_for_samples();
        if (running->is_interrupted) die_of_interrupt();
        take_samples();
    }
    return nullptr;
}

// -- Beginning and end -------------------------------------------------------------------------

bool map_buffers(sampling *s)
{
    for (buffer &b : s->buffers) {
        void *memory = mmap(nullptr, BUFFER, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) return false;
        b = {static_cast<CHR *>(memory), 0};
    }
    return true;
}

// The taker gets no signals: they are the program's.
bool start_taker(sampling *s)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = pthread_create(&s->taker, nullptr, run_taker, nullptr) == 0;
    sigdelset(&before, SIGPROF);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

void handle_signals()
{
    struct sigaction tick = {}, interrupt = {}, former = {};
    tick.sa_sigaction = on_tick;
    tick.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaction(SIGPROF, &tick, nullptr);
    sigaction(SIGINT, nullptr, &former);
    running->handles_interrupts = former.sa_handler == SIG_DFL;
    if (!running->handles_interrupts) return;
    interrupt.sa_handler = on_interrupt;
    interrupt.sa_flags = SA_RESTART;
    sigaction(SIGINT, &interrupt, nullptr);
    *former_interrupt_handler = on_interrupt; // what a wait for a key puts back
}

bool start_timer(sampling *s)
{
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGPROF;
    const timespec tick = {0, long(TICK * 1000)};
    const itimerspec time = {tick, tick};
    return timer_create(CLOCK_MONOTONIC, &event, &s->timer) == 0 &&
           timer_settime(s->timer, 0, &time, nullptr) == 0;
}

} // namespace

bool start_sampling(std::function<void(const sample &)> take, std::function<void()> interrupted)
{
    running = new sampling; // for good: a signal may come late
    running->take = std::move(take);
    running->interrupted = std::move(interrupted);
    if (!map_buffers(running) || sem_init(&running->wakes, 0, 0) != 0) return false;
    handle_signals();
    running->last = microseconds_now();
    return start_taker(running) && start_timer(running);
}

void stop_sampling()
{
    if (running == nullptr) return;
    if (running->ends.exchange(true)) {
        while (running->dies) pause();
        return;
    }
    timer_delete(running->timer);
    sem_post(&running->wakes);
    pthread_join(running->taker, nullptr);
    if (running->is_interrupted) die_of_interrupt();
    if (running->handles_interrupts) signal(SIGINT, SIG_DFL);
    take_all();
}
