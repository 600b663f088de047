// All of this folder that other processors have.

#include <cstdlib>

#include "native/hot.h"

const native_maker *choose_native_maker()
{
#if defined(__x86_64__)
    const char *wish = getenv("KESTRIN_NATIVE");
    if (wish == nullptr || *wish == '\0') return &native_hot;
    return *wish == '0' ? nullptr : *wish == '2' ? &native_at_once : &native_hot;
#else
    return nullptr;
#endif
}
