#include "tests/RealTimeSentinel.h"

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "tests/SystemCallTrap.h"

namespace orvelle::test {
namespace {

// Constant initialisation and no destructor: safe to touch from malloc and from a signal handler.
thread_local bool armed = false;
thread_local RealTimeSentinel::Violations seen;

template <int RealTimeSentinel::Violations::*kind>
void note() {
  if (armed) {
    ++(seen.*kind);
  }
}

constexpr auto noteAllocation = note<&RealTimeSentinel::Violations::allocations>;

}  // namespace
}  // namespace orvelle::test

// ---- Memory: operator new and delete end here as well. ------------------------------------------
// Parameters are named as in the C library's headers.

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the C library's names.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

void* malloc(std::size_t size) noexcept {
  orvelle::test::noteAllocation();
  return __libc_malloc(size);
}

void* calloc(std::size_t nmemb, std::size_t size) noexcept {
  orvelle::test::noteAllocation();
  return __libc_calloc(nmemb, size);
}

void* realloc(void* ptr, std::size_t size) noexcept {
  orvelle::test::noteAllocation();
  return __libc_realloc(ptr, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  orvelle::test::noteAllocation();
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** memptr, std::size_t alignment, std::size_t size) noexcept {
  orvelle::test::noteAllocation();
  void* const block = __libc_memalign(alignment, size);
  if (block == nullptr) {
    return ENOMEM;
  }
  *memptr = block;
  return 0;
}

void free(void* ptr) noexcept {
  if (ptr != nullptr) {
    orvelle::test::noteAllocation();
  }
  __libc_free(ptr);
}

}  // extern "C"

// ---- Locks: each is noted and handed on to the C library's own. ---------------------------------

namespace orvelle::test {
namespace {

/// Some functions exist in two versions, of which a plain look-up may give the one for programs of
/// the last century; `version` names the right one.
void* nextFunction(const char* name, const char* version) {
  void* found = version == nullptr ? nullptr : dlvsym(RTLD_NEXT, name, version);
  if (found == nullptr) {
    found = dlsym(RTLD_NEXT, name);
  }
  return found != nullptr ? found : (std::abort(), nullptr);
}

#if defined(__x86_64__)
constexpr const char* conditionVersion = "GLIBC_2.3.2";
#else
constexpr const char* conditionVersion = nullptr;
#endif
constexpr const char* onlyVersion = nullptr;

template <typename Function, typename... Arguments>
int noteLock(std::atomic<void*>& address, const char* name, const char* version,
             Arguments... arguments) {
  note<&RealTimeSentinel::Violations::locks>();
  void* found = address.load(std::memory_order_relaxed);
  if (found == nullptr) {
    found = nextFunction(name, version);
    address.store(found, std::memory_order_relaxed);
  }
  return reinterpret_cast<Function*>(found)(arguments...);
}

}  // namespace
}  // namespace orvelle::test

// NOLINTBEGIN(cppcoreguidelines-macro-usage,bugprone-macro-parentheses): it makes functions.
/// A function of that name in the C library's place; behind the version stand its arguments.
#define WATCHED_LOCK(name, parameters, specifier, version, ...)                            \
  extern "C" int name parameters specifier {                                               \
    static constinit std::atomic<void*> address{nullptr};                                  \
    return orvelle::test::noteLock<int parameters>(address, #name, orvelle::test::version, \
                                                   __VA_ARGS__);                           \
  }
// NOLINTEND(cppcoreguidelines-macro-usage,bugprone-macro-parentheses)

WATCHED_LOCK(pthread_mutex_lock, (pthread_mutex_t * mutex), noexcept, onlyVersion, mutex)
WATCHED_LOCK(pthread_mutex_trylock, (pthread_mutex_t * mutex), noexcept, onlyVersion, mutex)
WATCHED_LOCK(pthread_mutex_timedlock, (pthread_mutex_t * mutex, const timespec* abstime), noexcept,
             onlyVersion, mutex, abstime)
WATCHED_LOCK(pthread_rwlock_rdlock, (pthread_rwlock_t * lock), noexcept, onlyVersion, lock)
WATCHED_LOCK(pthread_rwlock_tryrdlock, (pthread_rwlock_t * lock), noexcept, onlyVersion, lock)
WATCHED_LOCK(pthread_rwlock_wrlock, (pthread_rwlock_t * lock), noexcept, onlyVersion, lock)
WATCHED_LOCK(pthread_rwlock_trywrlock, (pthread_rwlock_t * lock), noexcept, onlyVersion, lock)
WATCHED_LOCK(pthread_spin_lock, (pthread_spinlock_t * lock), noexcept, onlyVersion, lock)
WATCHED_LOCK(pthread_cond_wait, (pthread_cond_t * cond, pthread_mutex_t* mutex), , conditionVersion,
             cond, mutex)
WATCHED_LOCK(pthread_cond_timedwait,
             (pthread_cond_t * cond, pthread_mutex_t* mutex, const timespec* abstime), ,
             conditionVersion, cond, mutex, abstime)
WATCHED_LOCK(pthread_cond_signal, (pthread_cond_t * cond), noexcept, conditionVersion, cond)
WATCHED_LOCK(pthread_cond_broadcast, (pthread_cond_t * cond), noexcept, conditionVersion, cond)
WATCHED_LOCK(sem_wait, (sem_t * sem), , onlyVersion, sem)
WATCHED_LOCK(sem_post, (sem_t * sem), noexcept, onlyVersion, sem)

namespace orvelle::test {

RealTimeSentinel::Violations RealTimeSentinel::watch(const std::function<void()>& callback) {
  Violations result;
  int error = 0;
  std::thread watched([&] {
    error = trapSystemCalls(note<&Violations::systemCalls>);
    if (error != 0) {
      return;
    }
    seen = {};
    armed = true;
    callback();
    armed = false;
    result = seen;
  });
  watched.join();
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "trapping system calls");
  }
  return result;
}

}  // namespace orvelle::test
