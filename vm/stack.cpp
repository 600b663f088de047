// The native stack of the engine. The main run moves to a mapping of its own, because the usual
// eight megabytes end a recursion at some ten thousand calls; the system commits a page of it when
// it is first touched, so the size costs nothing by itself.

#include "vm/stack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define WITH_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WITH_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef WITH_ADDRESS_SANITIZER
#include <sanitizer/common_interface_defs.h>
#endif

constinit thread_local const CHR *stack_floor = nullptr;

namespace {

constexpr ULO RESERVE = ULO(256) << 10;     // for the system library below the floor
constexpr ULO LARGEST_STACK = ULO(1) << 30; // of the main run
constexpr ULO SMALLEST_STACK = ULO(64) << 20;

void (*entry)();

// A quarter of the machine's memory at the most, so that endless recursion ends by the report.
ULO wanted_size()
{
    const long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGESIZE);
    ULO size = LARGEST_STACK;
    if (pages > 0 && page > 0 && ULO(pages) * ULO(page) / 4 < size)
        size = ULO(pages) * ULO(page) / 4;
    return (size < SMALLEST_STACK ? SMALLEST_STACK : size) & ~ULO(0xFFFF);
}

void *map_stack(ULO *size)
{
    for (*size = wanted_size(); *size >= RESERVE * 4; *size /= 2) {
        void *block = mmap(nullptr, *size, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (block != MAP_FAILED) return block;
    }
    return nullptr;
}

void enter()
{
#ifdef WITH_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(nullptr, nullptr, nullptr);
#endif
    entry();
}

void announce_switch([[maybe_unused]] const void *block, [[maybe_unused]] ULO size)
{
#ifdef WITH_ADDRESS_SANITIZER
    static void *left_stack;
    __sanitizer_start_switch_fiber(&left_stack, block, size);
#endif
}

} // namespace

void find_stack_floor()
{
    if (stack_floor != nullptr) return;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    void *low = nullptr;
    size_t size = 0;
    if (pthread_attr_getstack(&attributes, &low, &size) == 0 && size > RESERVE * 2)
        stack_floor = static_cast<const CHR *>(low) + RESERVE;
    pthread_attr_destroy(&attributes);
}

void run_on_large_stack(void (*function)())
{
    static ucontext_t context;
    ULO size = 0;
    entry = function;
    void *block = map_stack(&size);
    if (block != nullptr && getcontext(&context) == 0) {
        context.uc_stack.ss_sp = block;
        context.uc_stack.ss_size = size;
        context.uc_link = nullptr;
        stack_floor = static_cast<const CHR *>(block) + RESERVE;
        makecontext(&context, enter, 0);
        announce_switch(block, size);
        setcontext(&context);
    }
    stack_floor = nullptr;
    find_stack_floor();
    function();
    __builtin_unreachable();
}
