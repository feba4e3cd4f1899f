// What the signal chains do alike with samples and buffers. Nothing here locks, allocates or enters
// the system.
#pragma once

#include <span>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/vector/Kernels.h"

namespace orvelle {

/// Interleaved samples of one output buffer; every stage works in place on them.
using Samples = std::span<float>;

/// Copies what fits from the input into the output buffer and returns that part of the output.
/// Samples that are not finite become silence, all others keep every bit. Empty where a side has no
/// data. Both sides may be the same memory.
Samples copyFinite(const AudioBuffer& input, const AudioBuffer& output,
                   const vector::Kernels& kernels);

/// Makes the buffers that have data silent.
void silence(AudioBufferList buffers);

}  // namespace orvelle
