// Counts the allocations (every operator new and, where no sanitizer owns them, malloc, calloc and
// realloc) and the mutex locks (pthread_mutex_lock, same condition) made by threads that have
// counting on: a real-time path is checked by running it with counting on and expecting zero.
//
// It replaces the allocation functions and pthread_mutex_lock for the whole program, so include
// it in exactly one source file of a binary of its own, built with -Wno-mismatched-new-delete
// (the replacement operator delete frees what the replacement operator new took from malloc).
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace wws_test {

inline thread_local bool tCounting = false;
inline std::atomic<long> gAllocations{0};
inline std::atomic<long> gLocks{0};

inline void noteAllocation() {
    if (tCounting) ++gAllocations;
}

// Zeroes both counts and counts on the calling thread until destroyed (or paused).
class CountingScope {
  public:
    CountingScope() {
        gAllocations = 0;
        gLocks = 0;
        tCounting = true;
    }
    ~CountingScope() { tCounting = false; }
    void pause() { tCounting = false; }
    void resume() { tCounting = true; }
};

}  // namespace wws_test

void* operator new(size_t size) {
    wws_test::noteAllocation();
    void* p = malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    wws_test::noteAllocation();
    return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define WWS_COUNT_LOCKS 1
// Every library calls the executable's definitions; they count and forward to glibc's own.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* malloc(size_t size) {
    wws_test::noteAllocation();
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t n, size_t size) {
    wws_test::noteAllocation();
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t size) {
    wws_test::noteAllocation();
    return __libc_realloc(p, size);
}
// glibc's own entry point, by the symbol version each architecture first had it under.
#if defined(__x86_64__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.2.5"
#elif defined(__arm__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.4"
#elif defined(__aarch64__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.17"
#else
#error "the glibc version of __pthread_mutex_lock on this architecture is not known here"
#endif
extern "C" int wws_glibc_mutex_lock(pthread_mutex_t* mutex);
__asm__(".symver wws_glibc_mutex_lock, __pthread_mutex_lock@" WWS_GLIBC_BASE_VERSION);
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (wws_test::tCounting) ++wws_test::gLocks;
    return wws_glibc_mutex_lock(mutex);
}
#endif
