#include "orvelle/platform/pipewire/StereoCycle.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orvelle::pipewire {

namespace {

constexpr std::uint32_t kSamplesPerFrame = 2;

/// Copies one plane to every other sample of an interleaved buffer.
void interleave(const float* plane, std::uint32_t frames, float* interleaved) noexcept {
  for (std::uint32_t i = 0; i < frames; ++i) {
    interleaved[kSamplesPerFrame * i] = plane == nullptr ? 0.0F : plane[i];
  }
}

void deinterleave(const float* interleaved, std::uint32_t frames, float* plane) noexcept {
  if (plane == nullptr) {
    return;
  }
  for (std::uint32_t i = 0; i < frames; ++i) {
    plane[i] = interleaved[kSamplesPerFrame * i];
  }
}

void mixToMono(const float* interleaved, std::uint32_t frames, float* plane) noexcept {
  if (plane == nullptr) {
    return;
  }
  for (std::uint32_t i = 0; i < frames; ++i) {
    plane[i] = 0.5F * (interleaved[kSamplesPerFrame * i] + interleaved[kSamplesPerFrame * i + 1]);
  }
}

template <class Sample>
Sample* advanced(Sample* plane, std::uint32_t frames) noexcept {
  return plane == nullptr ? nullptr : plane + frames;
}

}  // namespace

StereoCycle::StereoCycle(IOBlock block)
    : block_(std::move(block)),
      input_(std::size_t{kMaximumFrames} * kSamplesPerFrame),
      output_(std::size_t{kMaximumFrames} * kSamplesPerFrame) {}

void StereoCycle::run(const StereoPlanes& planes, std::uint32_t frames) noexcept {
  for (std::uint32_t offset = 0; offset < frames; offset += kMaximumFrames) {
    runPiece(planes, offset, std::min(frames - offset, kMaximumFrames));
  }
}

void StereoCycle::runPiece(const StereoPlanes& planes, std::uint32_t offset,
                           std::uint32_t frames) noexcept {
  interleave(advanced(planes.inputLeft, offset), frames, input_.data());
  interleave(advanced(planes.inputRight, offset), frames, input_.data() + 1);
  // A block whose owner is gone writes nothing, and nothing must be heard then.
  std::fill_n(output_.data(), std::size_t{frames} * kSamplesPerFrame, 0.0F);

  const auto byteSize = static_cast<std::uint32_t>(frames * kSamplesPerFrame * sizeof(float));
  const std::array<AudioBuffer, 1> input{{{kSamplesPerFrame, byteSize, input_.data()}}};
  const std::array<AudioBuffer, 1> output{{{kSamplesPerFrame, byteSize, output_.data()}}};
  block_(input, output);
  applyOutputFactors(frames);

  deinterleave(output_.data(), frames, advanced(planes.outputLeft, offset));
  deinterleave(output_.data() + 1, frames, advanced(planes.outputRight, offset));
  mixToMono(output_.data(), frames, advanced(planes.outputMono, offset));
}

void StereoCycle::setOutputFactors(float left, float right) noexcept {
  leftFactor_.store(left, std::memory_order_relaxed);
  rightFactor_.store(right, std::memory_order_relaxed);
}

void StereoCycle::applyOutputFactors(std::uint32_t frames) noexcept {
  const float left = leftFactor_.load(std::memory_order_relaxed);
  const float right = rightFactor_.load(std::memory_order_relaxed);
  if (left == 1.0F && right == 1.0F) {
    return;
  }
  for (std::size_t i = 0; i < std::size_t{frames} * kSamplesPerFrame; i += kSamplesPerFrame) {
    output_[i] *= left;
    output_[i + 1] *= right;
  }
}

}  // namespace orvelle::pipewire
