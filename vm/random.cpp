// The random generator is the system's and process-wide: a reset reseeds it for every thread.

#include "vm/random.h"

#include <cstdlib>
#include <sys/time.h>

DFL draw(bool reset)
{
    if (reset) {
        timeval now = {};
        gettimeofday(&now, nullptr);
        const unsigned seed =
            static_cast<unsigned>(now.tv_sec) + static_cast<unsigned>(now.tv_usec);
        srandom(seed);
        srand(seed);
    }
    return rand();
}
