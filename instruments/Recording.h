// What was captured at an output: samples with the session's own time on every cycle.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "instruments/Measurement.h"

namespace orvelle::instruments {

/// One cycle of the session's graph. What a cycle brings was played in the cycle before, so that it
/// has that one's length where the length changes.
struct Cycle {
  std::uint64_t firstFrame = 0;  ///< index of its first sample in the recording
  std::uint64_t position = 0;    ///< clock position at its beginning, in frames
  std::uint32_t duration = 0;    ///< frames that the clock advances
  std::uint32_t frames = 0;      ///< frames that it brought
  std::uint32_t clock = 0;       ///< names the output whose clock drives the graph
  std::uint32_t rate = 0;        ///< Hz
  bool isLinked = false;         ///< false: the output was not there, the samples are zeros
  std::int64_t timeNs = 0;       ///< when it began, CLOCK_MONOTONIC
};

/// Time of which a recording has no samples: cycles that the recorder was not called in.
struct Gap {
  std::uint64_t frame = 0;  ///< index of the first sample behind it
  double milliseconds = 0.0;
};

struct Recording {
  std::vector<std::string> channelNames;     ///< like "FL"
  std::vector<std::vector<float>> channels;  ///< one row a channel, all equally long
  std::vector<Cycle> cycles;

  [[nodiscard]] std::size_t frames() const { return channels.front().size(); }
  /// Hz, of the last cycle.
  [[nodiscard]] double rate() const;
  /// Throws std::out_of_range for a name that is not there.
  [[nodiscard]] Samples channel(std::string_view name) const;
  /// CLOCK_MONOTONIC of a sample, and the index of the first sample at or after a time (`frames()`
  /// when there is none). The former throws std::out_of_range.
  [[nodiscard]] std::int64_t timeAt(std::size_t frame) const;
  [[nodiscard]] std::size_t frameAt(std::int64_t timeNs) const;

  /// The clock jumped, or the recorder was not called for longer than the cycles account for.
  [[nodiscard]] std::vector<Gap> gaps() const;

 private:
  [[nodiscard]] const Cycle& cycleOf(std::size_t frame) const;
};

}  // namespace orvelle::instruments
