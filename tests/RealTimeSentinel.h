// Watches a piece of code for what a real-time callback must not do.
#pragma once

#include <functional>
#include <ostream>

namespace orvelle::test {

/// Linked into an executable, it takes the place of malloc, free and the pthread locking functions
/// there; outside of `watch` they work as always. Not to be combined with sanitizers, which take
/// the same places.
class RealTimeSentinel {
 public:
  struct Violations {
    int allocations = 0;  ///< memory asked for or given back
    int locks = 0;        ///< mutexes, read-write and spin locks, semaphores, condition variables
    int systemCalls = 0;  ///< entries into the kernel, also those that an allocation or lock makes

    friend bool operator==(const Violations&, const Violations&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Violations& violations) {
      return stream << violations.allocations << " allocations, " << violations.locks << " locks, "
                    << violations.systemCalls << " system calls";
    }
  };

  /// Runs `callback` on a thread of its own and returns what it did there. Whatever it did has its
  /// normal effect, except that it cannot start threads or processes. It must not throw. Throws
  /// std::system_error where the kernel offers no filter for system calls.
  static Violations watch(const std::function<void()>& callback);
};

}  // namespace orvelle::test
