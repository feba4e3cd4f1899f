// What every processor of its kind can run: SSE2 or NEON.
#include "orvelle/vector/BlockKernel.h"
#include "orvelle/vector/KernelTables.h"
#include "orvelle/vector/SoftClipKernel.h"

namespace orvelle::vector {

namespace {
struct Baseline {
  static constexpr std::size_t lanes = 4;
};
}  // namespace

#if defined(__x86_64__)
constinit const Kernels baselineKernels = {"sse2", process<Baseline>, softClip<Baseline>};
#elif defined(__aarch64__)
constinit const Kernels baselineKernels = {"neon", process<Baseline>, softClip<Baseline>};
#else
constinit const Kernels baselineKernels = {"plain", process<Baseline>, softClip<Baseline>};
#endif

}  // namespace orvelle::vector
