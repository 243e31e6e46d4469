// Which sanitizer this translation unit is compiled with, in one spelling.
// GCC announces a sanitizer with __SANITIZE_ADDRESS__ / __SANITIZE_THREAD__,
// clang 14 only through __has_feature; code that must behave differently
// under a sanitizer tests VG_ADDRESS_SANITIZER or VG_THREAD_SANITIZER.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define VG_ADDRESS_SANITIZER 1
#endif
#if defined(__SANITIZE_THREAD__)
#define VG_THREAD_SANITIZER 1
#endif
#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(VG_ADDRESS_SANITIZER)
#define VG_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer) && !defined(VG_THREAD_SANITIZER)
#define VG_THREAD_SANITIZER 1
#endif
#endif
