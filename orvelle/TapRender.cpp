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
    const float clipped = softClipped(volume * sample);
    sample = std::isfinite(clipped) ? clipped : 0.0F;
  }
}

}  // namespace

void TapRender::render(AudioBufferList input, AudioBufferList output) noexcept {
  const float factor = volume.load(std::memory_order_relaxed);
  const std::size_t pairs = std::min(input.size(), output.size());
  float peak = 0.0F;
  for (std::size_t i = 0; i < pairs; ++i) {
    const Samples samples = copyFinite(input[i], output[i], kernels_);
    peak = std::max(peak, kernels_.peak(samples.data(), samples.size()));
    if (factor != 1.0F) {
      amplifyAndClip(samples, factor);
    }
  }
  silence(output.subspan(pairs));
  countCallback(peak);
}

}  // namespace orvelle
