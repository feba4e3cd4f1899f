// The kernel refuses every system call of a trapped thread and sends SIGSYS instead. The handler
// reports the call and makes it after all, from the one place that the kernel lets pass.
#include "tests/SystemCallTrap.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>

extern "C" {
long orvelleAdmittedSystemCall(long number, long a, long b, long c, long d, long e, long f);
extern const char orvelleAfterAdmittedSystemCall;  // an address, not an object
}

#if defined(__x86_64__)
asm(R"(
    .text
    .globl orvelleAdmittedSystemCall
    .globl orvelleAfterAdmittedSystemCall
    .type orvelleAdmittedSystemCall, @function
orvelleAdmittedSystemCall:
    movq %rdi, %rax
    movq %rsi, %rdi
    movq %rdx, %rsi
    movq %rcx, %rdx
    movq %r8, %r10
    movq %r9, %r8
    movq 8(%rsp), %r9
    syscall
orvelleAfterAdmittedSystemCall:
    ret
)");
#elif defined(__aarch64__)
asm(R"(
    .text
    .globl orvelleAdmittedSystemCall
    .globl orvelleAfterAdmittedSystemCall
    .type orvelleAdmittedSystemCall, %function
orvelleAdmittedSystemCall:
    mov x8, x0
    mov x0, x1
    mov x1, x2
    mov x2, x3
    mov x3, x4
    mov x4, x5
    mov x5, x6
    svc #0
orvelleAfterAdmittedSystemCall:
    ret
)");
#else
#error "The sentinel does not know how this processor enters the kernel"
#endif

namespace orvelle::test {
namespace {

struct TrappedCall {
  long number;
  std::array<long, 6> arguments;
};

#if defined(__x86_64__)
TrappedCall trappedCall(const ucontext_t& context) {
  const greg_t* r = context.uc_mcontext.gregs;
  return {r[REG_RAX], {r[REG_RDI], r[REG_RSI], r[REG_RDX], r[REG_R10], r[REG_R8], r[REG_R9]}};
}

void setResult(ucontext_t& context, long result) {
  context.uc_mcontext.gregs[REG_RAX] = result;
}
#elif defined(__aarch64__)
TrappedCall trappedCall(const ucontext_t& context) {
  const auto* r = context.uc_mcontext.regs;
  const auto at = [r](int i) { return static_cast<long>(r[i]); };
  return {at(8), {at(0), at(1), at(2), at(3), at(4), at(5)}};
}

void setResult(ucontext_t& context, long result) {
  context.uc_mcontext.regs[0] = static_cast<unsigned long long>(result);
}
#endif

std::atomic<void (*)()> report{nullptr};

/// A child made here would run on from inside the signal handler.
bool makesThreadOrProcess(long number) {
#if defined(SYS_fork)
  if (number == SYS_fork || number == SYS_vfork) {
    return true;
  }
#endif
  return number == SYS_clone || number == SYS_clone3;
}

void onRefusedSystemCall(int /*signal*/, siginfo_t* /*info*/, void* context) {
  auto& interrupted = *static_cast<ucontext_t*>(context);
  report.load(std::memory_order_relaxed)();
  const TrappedCall call = trappedCall(interrupted);
  if (makesThreadOrProcess(call.number)) {
    setResult(interrupted, -EAGAIN);
    return;
  }
  const auto& [a, b, c, d, e, f] = call.arguments;
  setResult(interrupted, orvelleAdmittedSystemCall(call.number, a, b, c, d, e, f));
}

int installHandler() {
  struct sigaction action = {};
  action.sa_sigaction = onRefusedSystemCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  return sigaction(SIGSYS, &action, nullptr) == 0 ? 0 : errno;
}

/// From here to its end the calling thread enters the kernel by way of the handler only.
int installFilter() {
  const auto admitted = reinterpret_cast<std::uintptr_t>(&orvelleAfterAdmittedSystemCall);
  constexpr std::uint32_t addressAt = offsetof(seccomp_data, instruction_pointer);
  std::array<sock_filter, 8> program = {{
      // The way back out of the handler.
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigreturn, 4, 0),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, addressAt),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(admitted), 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, addressAt + 4),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(admitted >> 32U), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
  }};
  sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    return errno;
  }
  return 0;
}

}  // namespace

int trapSystemCalls(void (*onCall)()) {
  report.store(onCall, std::memory_order_relaxed);
  const int error = installHandler();
  return error != 0 ? error : installFilter();
}

}  // namespace orvelle::test
