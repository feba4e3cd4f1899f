#include "orvelle/TapRender.h"

#include <algorithm>

#include "orvelle/Samples.h"

namespace orvelle {

void TapRender::render(AudioBufferList input, AudioBufferList output) noexcept {
  const std::size_t pairs = std::min(input.size(), output.size());
  vector::TapBlock block;
  block.volume = volume.load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < pairs; ++i) {
    const SamplePair pair = pairOf(input[i], output[i]);
    block.source = pair.source;
    block.destination = pair.destination;
    block.samples = pair.count;
    kernels_.softClip(block);
  }
  silence(output.subspan(pairs));
  countCallback(block.peak);
}

}  // namespace orvelle
