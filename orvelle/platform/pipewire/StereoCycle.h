// One I/O cycle of an aggregate: planar channels of the graph around the interleaved block.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle::pipewire {

/// The channel buffers of one cycle. Null where nothing is linked: such an input is silent, such
/// an output is not wanted.
struct StereoPlanes {
  const float* inputLeft = nullptr;
  const float* inputRight = nullptr;
  float* outputLeft = nullptr;
  float* outputRight = nullptr;
  float* outputMono = nullptr;  ///< hears half of each side
};

/// Calls an I/O block with interleaved stereo. All memory is allocated at construction; `run` is
/// for the real-time thread.
class StereoCycle {
 public:
  explicit StereoCycle(IOBlock block);

  void run(const StereoPlanes& planes, std::uint32_t frames) noexcept;

  /// Linear factors on what the block plays, 1 at first. Any thread.
  void setOutputFactors(float left, float right) noexcept;

 private:
  /// The session's largest cycle. A longer one is handed over in pieces.
  static constexpr std::uint32_t kMaximumFrames = 8192;

  void runPiece(const StereoPlanes& planes, std::uint32_t frames) noexcept;

  IOBlock block_;
  std::atomic<float> leftFactor_{1.0F};
  std::atomic<float> rightFactor_{1.0F};
  std::vector<float> input_;
  std::vector<float> output_;
};

}  // namespace orvelle::pipewire
