#include "orvelle/Samples.h"

#include <algorithm>
#include <cstring>

namespace orvelle {

Samples copyFinite(const AudioBuffer& input, const AudioBuffer& output,
                   const vector::Kernels& kernels) {
  if (input.mData == nullptr || output.mData == nullptr) {
    return {};
  }
  const std::size_t count = std::min(input.mDataByteSize, output.mDataByteSize) / sizeof(float);
  const Samples destination(static_cast<float*>(output.mData), count);
  kernels.copyFinite(static_cast<const float*>(input.mData), destination.data(), count);
  return destination;
}

void silence(AudioBufferList buffers) {
  for (const AudioBuffer& buffer : buffers) {
    if (buffer.mData != nullptr) {
      std::memset(buffer.mData, 0, buffer.mDataByteSize);
    }
  }
}

}  // namespace orvelle
