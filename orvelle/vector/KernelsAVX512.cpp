#include "orvelle/vector/KernelTables.h"

#if defined(__x86_64__)
#include "orvelle/vector/BlockKernel.h"
#include "orvelle/vector/SoftClipKernel.h"

namespace orvelle::vector {

namespace {
struct Avx512 {
  static constexpr std::size_t lanes = 8;
};
}  // namespace

constinit const Kernels avx512Kernels = {"avx512", process<Avx512>, softClip<Avx512>};

}  // namespace orvelle::vector
#endif
