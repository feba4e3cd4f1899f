// What each instruction set's source file makes of the templates.
#pragma once

#include "orvelle/vector/EqualizerKernel.h"
#include "orvelle/vector/SampleKernels.h"

namespace orvelle::vector {

template <class Machine>
constexpr Kernels kernelsFor(const char* name) {
  return {name,
          copyFinite<Machine>,
          peak<Machine>,
          equalise<Machine>,
          amplifyAndLimit<Machine>,
          widen<Machine>};
}

}  // namespace orvelle::vector
