#include "orvelle/vector/KernelTables.h"

#if defined(__x86_64__)
#include "orvelle/vector/AllKernels.h"

namespace orvelle::vector {

namespace {
struct Avx512 {
  static constexpr std::size_t lanes = 8;
};
}  // namespace

constinit const Kernels avx512Kernels = kernelsFor<Avx512>("avx512");

}  // namespace orvelle::vector
#endif
