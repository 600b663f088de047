#include "vm/watch.h"

constinit counter_cache recent_counters = {};
