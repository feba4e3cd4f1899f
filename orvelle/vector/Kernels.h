// The stages of the signal chain for one instruction set, and the choice among those that this
// processor has.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "orvelle/Equalizer.h"

namespace orvelle::vector {

/// Samples that the stages take at a time: they stay in the nearest cache from stage to stage.
inline constexpr std::size_t mostFrames = 1024;

/// The bands that a block has to run through, and where they remember.
struct EqualizerTask {
  struct Band {
    const float* coefficients;  // b0, b1, b2, a1, a2
    float* memory;              // z1, z2 of the left channel; of the right one, if there is one
  };
  std::array<Band, Equalizer::bands> band;
  std::size_t bandCount = 0;
  std::size_t channels = 2;  // 1 or 2
};

/// One block of interleaved samples each; in place unless said otherwise. Every function gives the
/// same bits as the plain arithmetic in BoostRender.cpp. Real-time safe.
struct Kernels {
  const char* name;

  /// Samples that are not finite become silence. Both sides may be the same memory.
  void (*copyFinite)(const float* source, float* destination, std::size_t samples);
  /// The largest magnitude among finite samples.
  float (*peak)(const float* samples, std::size_t count);
  /// `mostFrames` frames at most. False, with nothing changed: something came so near to overflow
  /// that the plain arithmetic has to decide. Wants coefficients that `isOrdinary`.
  bool (*equalise)(const EqualizerTask& task, float* samples, std::size_t frames);
  void (*amplifyAndLimit)(float* samples, std::size_t count, float gain, float& limReduction);
  void (*widen)(float* samples, std::size_t frames, float width);
};

/// Magnitudes between which a coefficient lets `Kernels::equalise` prove what it does. All curves
/// that a person would set are inside by far.
inline constexpr float leastCoefficient = 0x1p-7F;
inline constexpr float mostCoefficient = 0x1p10F;

/// Those that this processor can run, the fastest first. Never empty.
std::span<const Kernels* const> usableKernels();

inline const Kernels& fastestKernels() {
  return *usableKernels().front();
}

}  // namespace orvelle::vector
