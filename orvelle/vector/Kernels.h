// The stages of the signal chain for one instruction set, and the choice among those that this
// processor has.
#pragma once

#include <cstddef>
#include <span>

#include "orvelle/Equalizer.h"

namespace orvelle::vector {

/// Samples that the stages take at a time: they stay in the nearest cache from stage to stage.
inline constexpr std::size_t mostFrames = 1024;

// NOLINTBEGIN(modernize-avoid-c-arrays): the kernels read these, and code of std::array's, compiled
// for a newer processor, could end up in the hands of an older one.

/// The bands that a block has to run through, and where they remember.
struct EqualizerTask {
  struct Band {
    const float* coefficients;  // b0, b1, b2, a1, a2
    float* memory;              // z1, z2 of the left channel; of the right one, if there is one
  };
  Band band[Equalizer::bands] = {};
  std::size_t bandCount = 0;
  std::size_t channels = 2;  // 1 or 2

  /// The coefficients as the stages want to load them; theirs to fill in. To be emptied when the
  /// bands or their coefficients change.
  struct Layout {
    static constexpr std::size_t mostLanes = 24;
    alignas(64) float coefficients[Equalizer::coefficientsPerBand][mostLanes] = {};
    std::size_t vectors = 0;  // 0: empty
  };
  Layout layout{};
};

// NOLINTEND(modernize-avoid-c-arrays)

/// What the stages do with one stretch of interleaved samples. Both sides may be the same memory.
struct Block {
  const float* source = nullptr;
  float* destination = nullptr;
  std::size_t samples = 0;
  float gain = 1.0F;  // exactly 1.0: neither gain nor limiter
  float width =
      1.0F;  // exactly 1.0: none; else samples are stereo, a last half frame is left alone
  float limReduction = 1.0F;
  float peak = 0.0F;  // so far
  /// None: no equaliser. Otherwise the samples are whole frames, `mostFrames` at most.
  EqualizerTask* equalizer = nullptr;
};

/// A stretch of a tapped application's samples. Both sides may be the same memory.
struct TapBlock {
  const float* source = nullptr;
  float* destination = nullptr;
  std::size_t samples = 0;
  float volume = 1.0F;  // exactly 1.0: no curve
  float peak = 0.0F;    // so far, before the volume
};

/// The same bits as the plain arithmetic of BoostRender.cpp and the scalar model. Real-time safe.
struct Kernels {
  const char* name;

  /// All stages, of which limiter and peak are carried on in the block itself. False: something
  /// came so near to overflow that the plain equaliser has to decide; then nothing has happened but
  /// that the finite samples of the source stand in the destination.
  bool (*process)(Block& block);

  /// tanh(volume x sample), the same bits everywhere, and the peak, which is carried on in the
  /// block. What is not finite counts as silence; an infinite product does not, one that is no
  /// number does.
  void (*softClip)(TapBlock& block);
};

/// Magnitudes between which a coefficient lets `Kernels::process` prove what it does. All curves
/// that a person would set are inside by far.
inline constexpr float leastCoefficient = 0x1p-7F;
inline constexpr float mostCoefficient = 0x1p10F;

/// Those that this processor can run, the fastest first. Never empty.
std::span<const Kernels* const> usableKernels();

inline const Kernels& fastestKernels() {
  return *usableKernels().front();
}

}  // namespace orvelle::vector
