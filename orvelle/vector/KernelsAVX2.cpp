#include "orvelle/vector/KernelTables.h"

#if defined(__x86_64__)
#include "orvelle/vector/BlockKernel.h"
#include "orvelle/vector/SoftClipKernel.h"

namespace orvelle::vector {

namespace {
struct Avx2 {
  static constexpr std::size_t lanes = 8;
};
}  // namespace

constinit const Kernels avx2Kernels = {"avx2", process<Avx2>, softClip<Avx2>};

}  // namespace orvelle::vector
#endif
