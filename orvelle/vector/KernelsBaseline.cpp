// What every processor of its kind can run: SSE2 or NEON.
#include "orvelle/vector/AllKernels.h"
#include "orvelle/vector/KernelTables.h"

namespace orvelle::vector {

namespace {
struct Baseline {
  static constexpr std::size_t lanes = 4;
};
}  // namespace

#if defined(__x86_64__)
constinit const Kernels baselineKernels = kernelsFor<Baseline>("sse2");
#elif defined(__aarch64__)
constinit const Kernels baselineKernels = kernelsFor<Baseline>("neon");
#else
constinit const Kernels baselineKernels = kernelsFor<Baseline>("plain");
#endif

}  // namespace orvelle::vector
