#include "orvelle/vector/Kernels.h"

#include <array>

#include "orvelle/vector/KernelTables.h"

namespace orvelle::vector {
namespace {

struct Usable {
  std::array<const Kernels*, 3> kernels{};
  std::size_t count = 0;
};

Usable findUsable() {
  Usable usable;
  const auto add = [&usable](const Kernels& kernels) { usable.kernels[usable.count++] = &kernels; };
#if defined(__x86_64__)
  __builtin_cpu_init();
  const bool hasAvx2 = static_cast<bool>(__builtin_cpu_supports("avx2"));
  if (hasAvx2 && static_cast<bool>(__builtin_cpu_supports("avx512f")) &&
      static_cast<bool>(__builtin_cpu_supports("avx512vl"))) {
    add(avx512Kernels);
  }
  if (hasAvx2) {
    add(avx2Kernels);
  }
#endif
  add(baselineKernels);
  return usable;
}

}  // namespace

std::span<const Kernels* const> usableKernels() {
  static const Usable usable = findUsable();
  return std::span(usable.kernels).first(usable.count);
}

}  // namespace orvelle::vector
