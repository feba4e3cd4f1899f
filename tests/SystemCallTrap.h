// Tells a thread's entries into the kernel.
#pragma once

namespace orvelle::test {

/// From here to its end, every system call of the calling thread runs `onCall` before it takes
/// place. `onCall` runs in a signal handler on that thread; the one given last holds for all
/// threads. Making threads and processes fails with EAGAIN. Returns 0 or an errno.
int trapSystemCalls(void (*onCall)());

}  // namespace orvelle::test
