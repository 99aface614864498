/// @file
/// Defines ZELAF_SANITIZED under AddressSanitizer and ThreadSanitizer, where memory is counted otherwise and threads
/// are slow, and ZELAF_THREAD_SANITIZED under the latter alone.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define ZELAF_SANITIZED 1
#elif defined(__SANITIZE_THREAD__)
#define ZELAF_THREAD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZELAF_SANITIZED 1
#elif __has_feature(thread_sanitizer)
#define ZELAF_THREAD_SANITIZED 1
#endif
#endif

#ifdef ZELAF_THREAD_SANITIZED
#define ZELAF_SANITIZED 1
#endif
