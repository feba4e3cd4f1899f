#include "orvelle/TapRender.h"

#include <algorithm>
#include <cmath>

#include "orvelle/Samples.h"

namespace orvelle {

namespace {

/// The same samples on every platform: C libraries' single-precision tanh differ by several units
/// in the last place, but their double-precision ones agree to far below half such a unit, so that
/// all of them round to the same float or, once in a long while, to its neighbour.
float softClipped(float value) {
  return static_cast<float>(std::tanh(static_cast<double>(value)));
}

void amplifyAndClip(Samples samples, float volume) {
  for (float& sample : samples) {
    sample = finiteOrSilence(softClipped(volume * sample));
  }
}

}  // namespace

void TapRender::render(AudioBufferList input, AudioBufferList output) noexcept {
  const float factor = volume.load(std::memory_order_relaxed);
  const std::size_t pairs = std::min(input.size(), output.size());
  vector::Block copied;
  for (std::size_t i = 0; i < pairs; ++i) {
    const SamplePair pair = pairOf(input[i], output[i]);
    copied.source = pair.source;
    copied.destination = pair.destination;
    copied.samples = pair.count;
    kernels_.process(copied);
    if (factor != 1.0F) {
      amplifyAndClip({pair.destination, pair.count}, factor);
    }
  }
  silence(output.subspan(pairs));
  countCallback(copied.peak);
}

}  // namespace orvelle
