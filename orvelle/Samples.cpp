#include "orvelle/Samples.h"

#include <algorithm>
#include <cstring>

namespace orvelle {

SamplePair pairOf(const AudioBuffer& input, const AudioBuffer& output) {
  if (input.mData == nullptr || output.mData == nullptr) {
    return {};
  }
  const std::size_t count = std::min(input.mDataByteSize, output.mDataByteSize) / sizeof(float);
  return {static_cast<const float*>(input.mData), static_cast<float*>(output.mData), count};
}

void silence(AudioBufferList buffers) {
  for (const AudioBuffer& buffer : buffers) {
    if (buffer.mData != nullptr) {
      std::memset(buffer.mData, 0, buffer.mDataByteSize);
    }
  }
}

}  // namespace orvelle
