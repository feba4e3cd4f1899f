// The sound of one tapped application: volume and soft clip, and what they share with the main
// thread.
#pragma once

#include <atomic>

#include "orvelle/MeterFeed.h"
#include "orvelle/platform/AudioTypes.h"
#include "orvelle/vector/Kernels.h"

namespace orvelle {

/// `volume` may be written by any thread while a callback runs; `render` reads it once per
/// callback. The meter's fields go the other way, with the peak before the volume.
class TapRender : public MeterFeed {
 public:
  /// With the fastest instructions that this processor has, unless told otherwise; the sound does
  /// not depend on it.
  explicit TapRender(const vector::Kernels& kernels = vector::fastestKernels())
      : kernels_(kernels) {}

  /// Linear factor. Exactly 1.0 copies the tap bit for bit.
  std::atomic<float> volume{1.0F};

  /// One I/O cycle. Buffers are paired by index; a pair is as long as its shorter side, a side
  /// without data skips its pair, output buffers without a partner come out silent. Channels are
  /// not told apart. Both sides may be the same memory.
  ///
  /// With any volume but 1.0 the output is tanh(volume x input), within 1.2 units in the last place
  /// and the same on every machine: nothing gets louder than full scale. Samples that are not
  /// finite count as silence, as does everything at a volume that is no number.
  ///
  /// Real-time thread: takes no lock, allocates nothing, does not enter the system.
  void render(AudioBufferList input, AudioBufferList output) noexcept;

 private:
  const vector::Kernels& kernels_;
};

}  // namespace orvelle
