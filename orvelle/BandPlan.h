// What the chain has to know of the equaliser's bands, worked out when it changes and not in every
// callback.
#pragma once

#include <cstdint>

#include "orvelle/Equalizer.h"
#include "orvelle/vector/Kernels.h"

namespace orvelle {

/// The coefficients of the present callback, and the bands that are not idle. Real-time thread
/// only.
class BandPlan {
 public:
  explicit BandPlan(Equalizer& equalizer) : equalizer_(equalizer) {}

  /// Reads the coefficients once, so that a change from another thread never lands in the middle of
  /// a buffer.
  void update() noexcept;

  const Equalizer::Coefficients& coefficients() const { return coefficients_; }

  /// Whether each of so many interleaved channels has a memory of its own, and the vector stages
  /// can tell what the coefficients do.
  bool fitsVectors(std::int64_t deviceChannels) const;

  /// The bands that the next block has to run through, for one or two channels from `firstChannel`
  /// on, of a layout that `fitsVectors`.
  vector::EqualizerTask& taskFor(std::size_t firstChannel, std::size_t channels) noexcept;

 private:
  using BandSet = std::uint32_t;  // one bit a band

  BandSet bandsNeeded(std::size_t firstChannel, std::size_t channels) const;
  std::span<float> memoryOf(std::size_t band, std::size_t firstChannel, std::size_t channels) const;

  Equalizer& equalizer_;
  Equalizer::Coefficients coefficients_{};  // all 0: no curve has these
  bool areOrdinary_ = false;
  BandSet flatBands_ = 0;
  BandSet plannedBands_ = 0;
  std::size_t plannedChannel_ = 0;
  vector::EqualizerTask task_;
};

}  // namespace orvelle
