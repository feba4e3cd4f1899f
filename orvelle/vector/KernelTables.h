// Where the source files of the instruction sets leave what they have.
#pragma once

#include "orvelle/vector/Kernels.h"

namespace orvelle::vector {

extern const Kernels baselineKernels;
#if defined(__x86_64__)
extern const Kernels avx2Kernels;
extern const Kernels avx512Kernels;
#endif

}  // namespace orvelle::vector
