// ADDRESS_SANITIZER is defined where the sanitizer's allocator serves. It knows exact sizes, cannot
// work within a limit on memory and cannot be replaced.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZER 1
#endif
