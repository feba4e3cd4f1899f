// What the signal chains do alike with samples and buffers. Nothing here locks, allocates or enters
// the system.
#pragma once

#include <cmath>
#include <cstddef>
#include <span>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// Interleaved samples of one output buffer; every stage works in place on them.
using Samples = std::span<float>;

/// What two buffers have in common. Both sides may be the same memory.
struct SamplePair {
  const float* source = nullptr;
  float* destination = nullptr;
  std::size_t count = 0;

  SamplePair part(std::size_t first, std::size_t samples) const {
    return {source + first, destination + first, samples};
  }
};

inline float finiteOrSilence(float value) {
  return std::isfinite(value) ? value : 0.0F;
}

/// What fits from the input into the output buffer. Empty where a side has no data.
SamplePair pairOf(const AudioBuffer& input, const AudioBuffer& output);

/// Makes the buffers that have data silent.
void silence(AudioBufferList buffers);

}  // namespace orvelle
