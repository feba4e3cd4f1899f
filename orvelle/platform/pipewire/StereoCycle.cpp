#include "orvelle/platform/pipewire/StereoCycle.h"

#include <algorithm>
#include <array>
#include <utility>

#include "orvelle/vector/Lanes.h"

namespace orvelle::pipewire {

namespace {

constexpr std::uint32_t kSamplesPerFrame = 2;

/// What every processor of its kind can run.
struct FourLanes {
  static constexpr std::size_t lanes = 4;
};
using Lanes = vector::Lanes<FourLanes>;

// Sample by sample, these two would take three times as long as gain and limiter between them.

/// A plane that is null is silent.
void interleave(const float* left, const float* right, std::uint32_t frames,
                float* interleaved) noexcept {
  const auto four = [](const float* plane, std::uint32_t frame) {
    return plane == nullptr ? Lanes::Float{} : Lanes::load(plane + frame);
  };
  std::uint32_t frame = 0;
  for (; frame + Lanes::count <= frames; frame += Lanes::count) {
    const Lanes::Float l = four(left, frame);
    const Lanes::Float r = four(right, frame);
    float* const to = interleaved + std::size_t{kSamplesPerFrame} * frame;
    Lanes::store(to, __builtin_shufflevector(l, r, 0, 4, 1, 5));
    Lanes::store(to + Lanes::count, __builtin_shufflevector(l, r, 2, 6, 3, 7));
  }
  for (; frame < frames; ++frame) {
    interleaved[kSamplesPerFrame * frame] = left == nullptr ? 0.0F : left[frame];
    interleaved[kSamplesPerFrame * frame + 1] = right == nullptr ? 0.0F : right[frame];
  }
}

/// A plane that is null is not wanted.
void deinterleave(const float* interleaved, std::uint32_t frames, float leftFactor,
                  float rightFactor, const StereoPlanes& planes) noexcept {
  const auto give = [&planes](std::uint32_t frame, auto left, auto right, auto store) {
    if (planes.outputLeft != nullptr) {
      store(planes.outputLeft + frame, left);
    }
    if (planes.outputRight != nullptr) {
      store(planes.outputRight + frame, right);
    }
    if (planes.outputMono != nullptr) {
      store(planes.outputMono + frame, 0.5F * (left + right));
    }
  };
  std::uint32_t frame = 0;
  for (; frame + Lanes::count <= frames; frame += Lanes::count) {
    const float* const from = interleaved + std::size_t{kSamplesPerFrame} * frame;
    const Lanes::Float early = Lanes::load(from);
    const Lanes::Float late = Lanes::load(from + Lanes::count);
    give(frame, leftFactor * __builtin_shufflevector(early, late, 0, 2, 4, 6),
         rightFactor * __builtin_shufflevector(early, late, 1, 3, 5, 7),
         [](float* to, Lanes::Float four) { Lanes::store(to, four); });
  }
  for (; frame < frames; ++frame) {
    give(frame, leftFactor * interleaved[kSamplesPerFrame * frame],
         rightFactor * interleaved[kSamplesPerFrame * frame + 1],
         [](float* to, float sample) { *to = sample; });
  }
}

StereoPlanes advanced(const StereoPlanes& planes, std::uint32_t frames) noexcept {
  const auto from = [frames](auto* plane) { return plane == nullptr ? nullptr : plane + frames; };
  return {from(planes.inputLeft), from(planes.inputRight), from(planes.outputLeft),
          from(planes.outputRight), from(planes.outputMono)};
}

}  // namespace

StereoCycle::StereoCycle(IOBlock block)
    : block_(std::move(block)),
      input_(std::size_t{kMaximumFrames} * kSamplesPerFrame),
      output_(std::size_t{kMaximumFrames} * kSamplesPerFrame) {}

void StereoCycle::run(const StereoPlanes& planes, std::uint32_t frames) noexcept {
  for (std::uint32_t offset = 0; offset < frames; offset += kMaximumFrames) {
    runPiece(advanced(planes, offset), std::min(frames - offset, kMaximumFrames));
  }
}

void StereoCycle::runPiece(const StereoPlanes& planes, std::uint32_t frames) noexcept {
  interleave(planes.inputLeft, planes.inputRight, frames, input_.data());
  // A block whose owner is gone writes nothing, and nothing must be heard then.
  std::fill_n(output_.data(), std::size_t{frames} * kSamplesPerFrame, 0.0F);

  const auto byteSize = static_cast<std::uint32_t>(frames * kSamplesPerFrame * sizeof(float));
  const std::array<AudioBuffer, 1> input{{{kSamplesPerFrame, byteSize, input_.data()}}};
  const std::array<AudioBuffer, 1> output{{{kSamplesPerFrame, byteSize, output_.data()}}};
  block_(input, output);

  deinterleave(output_.data(), frames, leftFactor_.load(std::memory_order_relaxed),
               rightFactor_.load(std::memory_order_relaxed), planes);
}

void StereoCycle::setOutputFactors(float left, float right) noexcept {
  leftFactor_.store(left, std::memory_order_relaxed);
  rightFactor_.store(right, std::memory_order_relaxed);
}

}  // namespace orvelle::pipewire
