// The signal chain of the system-wide boost, and what it shares with the main thread.
#pragma once

#include <atomic>

#include "orvelle/BandPlan.h"
#include "orvelle/Equalizer.h"
#include "orvelle/MeterFeed.h"
#include "orvelle/platform/AudioTypes.h"
#include "orvelle/vector/Kernels.h"

namespace orvelle {

/// Equaliser, gain, peak limiter and stereo width over one I/O cycle's buffers.
///
/// `gain`, `spatialWidth` and the equaliser may be written by any thread while a callback runs;
/// `render` reads each once per callback. The level fields go the other way.
class BoostRender : public MeterFeed {
 public:
  /// With the fastest instructions that this processor has, unless told otherwise; the sound does
  /// not depend on it. Here, so that the callback need not ask.
  explicit BoostRender(const vector::Kernels& kernels = vector::fastestKernels())
      : kernels_(kernels) {}

  /// Linear factor. Exactly 1.0 passes gain and limiter by.
  std::atomic<float> gain{1.0F};
  /// 1.0 is neutral and passes the stage by, 0 is mono.
  std::atomic<float> spatialWidth{1.0F};
  /// Computed for 48 kHz whatever the device runs at; channels beyond the eighth share its memory.
  Equalizer equalizer{48000.0F, 8};

  /// Peak of the latest callback, after the equaliser and before the gain.
  std::atomic<float> currentLevel{0.0F};

  static constexpr float limThreshold = 0.98F;
  /// One-pole smoothing per sample: some 1 ms down, some 100 ms up at 48 kHz.
  static constexpr float limAttack = 0.979F;
  static constexpr float limRelease = 0.9998F;

  /// One I/O cycle. Buffers are paired by index; a pair is as long as its shorter side, the output
  /// side tells the channel count (0 counts as 1). A side without data skips its pair; output
  /// buffers without a partner come out silent. Both sides may be the same memory.
  ///
  /// Nothing that is not finite gets out or stays inside: such an input sample counts as silence,
  /// an equaliser channel that overflows starts anew from silence, and what gain or width blow up
  /// is written as silence. Finite sound passes untouched by this.
  ///
  /// Real-time thread: takes no lock, allocates nothing, does not enter the system.
  void render(AudioBufferList input, AudioBufferList output) noexcept;

 protected:
  /// The limiter's gain, carried from sample to sample over all channels. Real-time thread only.
  float limReduction = 1.0F;

 private:
  const vector::Kernels& kernels_;
  BandPlan bandPlan_{equalizer};
};

}  // namespace orvelle
