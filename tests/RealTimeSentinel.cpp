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

void noteAllocation() {
  if (armed) {
    ++seen.allocations;
  }
}

void noteLock() {
  if (armed) {
    ++seen.locks;
  }
}

void noteSystemCall() {
  if (armed) {
    ++seen.systemCalls;
  }
}

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

/// The C library's function of that name. Some exist in two versions, of which a plain look-up may
/// give the one for programs of the last century; `version` names the right one.
template <typename Function>
class NextFunction {
 public:
  explicit constexpr NextFunction(const char* name, const char* version = nullptr)
      : name_(name), version_(version) {}

  template <typename... Arguments>
  int operator()(Arguments... arguments) {
    noteLock();
    void* found = address_.load(std::memory_order_relaxed);
    if (found == nullptr) {
      found = lookUp();
      address_.store(found, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function*>(found)(arguments...);
  }

 private:
  void* lookUp() const {
    void* found = version_ == nullptr ? nullptr : dlvsym(RTLD_NEXT, name_, version_);
    if (found == nullptr) {
      found = dlsym(RTLD_NEXT, name_);
    }
    return found != nullptr ? found : (std::abort(), nullptr);
  }

  const char* name_;
  const char* version_;
  std::atomic<void*> address_{nullptr};
};

#if defined(__x86_64__)
constexpr const char* conditionVersion = "GLIBC_2.3.2";
#else
constexpr const char* conditionVersion = nullptr;
#endif

constinit NextFunction<int(pthread_mutex_t*)> mutexLock("pthread_mutex_lock");
constinit NextFunction<int(pthread_mutex_t*)> mutexTryLock("pthread_mutex_trylock");
constinit NextFunction<int(pthread_mutex_t*, const timespec*)> mutexTimedLock(
    "pthread_mutex_timedlock");
constinit NextFunction<int(pthread_rwlock_t*)> readLock("pthread_rwlock_rdlock");
constinit NextFunction<int(pthread_rwlock_t*)> readTryLock("pthread_rwlock_tryrdlock");
constinit NextFunction<int(pthread_rwlock_t*)> writeLock("pthread_rwlock_wrlock");
constinit NextFunction<int(pthread_rwlock_t*)> writeTryLock("pthread_rwlock_trywrlock");
constinit NextFunction<int(pthread_spinlock_t*)> spinLock("pthread_spin_lock");
constinit NextFunction<int(pthread_cond_t*, pthread_mutex_t*)> conditionWait("pthread_cond_wait",
                                                                             conditionVersion);
constinit NextFunction<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> conditionTimedWait(
    "pthread_cond_timedwait", conditionVersion);
constinit NextFunction<int(pthread_cond_t*)> conditionSignal("pthread_cond_signal",
                                                             conditionVersion);
constinit NextFunction<int(pthread_cond_t*)> conditionBroadcast("pthread_cond_broadcast",
                                                                conditionVersion);
constinit NextFunction<int(sem_t*)> semaphoreWait("sem_wait");
constinit NextFunction<int(sem_t*)> semaphorePost("sem_post");

}  // namespace
}  // namespace orvelle::test

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  return orvelle::test::mutexLock(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  return orvelle::test::mutexTryLock(mutex);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* abstime) noexcept {
  return orvelle::test::mutexTimedLock(mutex, abstime);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  return orvelle::test::readLock(lock);
}

int pthread_rwlock_tryrdlock(pthread_rwlock_t* lock) noexcept {
  return orvelle::test::readTryLock(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  return orvelle::test::writeLock(lock);
}

int pthread_rwlock_trywrlock(pthread_rwlock_t* lock) noexcept {
  return orvelle::test::writeTryLock(lock);
}

int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
  return orvelle::test::spinLock(lock);
}

int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  return orvelle::test::conditionWait(cond, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* abstime) {
  return orvelle::test::conditionTimedWait(cond, mutex, abstime);
}

int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  return orvelle::test::conditionSignal(cond);
}

int pthread_cond_broadcast(pthread_cond_t* cond) noexcept {
  return orvelle::test::conditionBroadcast(cond);
}

int sem_wait(sem_t* sem) {
  return orvelle::test::semaphoreWait(sem);
}

int sem_post(sem_t* sem) noexcept {
  return orvelle::test::semaphorePost(sem);
}

}  // extern "C"

namespace orvelle::test {

RealTimeSentinel::Violations RealTimeSentinel::watch(const std::function<void()>& callback) {
  Violations result;
  int error = 0;
  std::thread watched([&] {
    error = trapSystemCalls(noteSystemCall);
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
