#include "orvelle/Samples.h"

#include <algorithm>
#include <cstring>

namespace orvelle {

Samples copyFinite(const AudioBuffer& input, const AudioBuffer& output) {
  if (input.mData == nullptr || output.mData == nullptr) {
    return {};
  }
  const std::size_t count = std::min(input.mDataByteSize, output.mDataByteSize) / sizeof(float);
  const std::span source(static_cast<const float*>(input.mData), count);
  const Samples destination(static_cast<float*>(output.mData), count);
  std::transform(source.begin(), source.end(), destination.begin(), finiteOrSilence);
  return destination;
}

float peakOf(std::span<const float> samples) {
  float peak = 0.0F;
  for (const float sample : samples) {
    peak = std::max(peak, std::fabs(sample));
  }
  return peak;
}

void silence(AudioBufferList buffers) {
  for (const AudioBuffer& buffer : buffers) {
    if (buffer.mData != nullptr) {
      std::memset(buffer.mData, 0, buffer.mDataByteSize);
    }
  }
}

}  // namespace orvelle
