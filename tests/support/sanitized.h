// BAYWARD_SANITIZED is defined where a sanitizer changes what a test would see: memory in use, files it
// opens.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BAYWARD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define BAYWARD_SANITIZED 1
#endif
#endif
