// An application that plays a known signal into the default output and follows it when it changes.
#pragma once

#include <pipewire/pipewire.h>
#include <pipewire/stream.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "instruments/Recording.h"
#include "instruments/SessionClient.h"

namespace orvelle::instruments {

/// One frame that is about to be played.
struct PlayedFrame {
  std::uint64_t graphPosition = 0;  ///< clock position of the cycle that asks, plus the frame in it
  std::uint64_t index = 0;          ///< frames played before it, whatever the clocks did
};

/// The sample of a frame, the same on every channel. Called on the real-time thread.
using Signal = std::function<float(const PlayedFrame&)>;

/// Continuous over changes of the output. `frequency` and `rate` in Hz.
Signal sineSignal(double frequency, float amplitude, double rate = 48000.0);
Signal constantSignal(float value);

/// Each sample tells its clock position. Unambiguous for 2^20 frames, below -12 dBFS and exact
/// through every gain that is a power of two.
Signal positionSignal();
/// The clock position modulo 2^20 that a sample of `positionSignal` tells after `gain`; nothing for
/// a sample that is none of its values.
std::optional<std::uint64_t> positionTold(float sample, float gain = 1.0F);

/// How long samples of `positionSignal` were under way, in frames of the graph's clock.
struct Delay {
  std::uint64_t frames = 0;  ///< the commonest delay
  double share = 0.0;        ///< part of all sounding samples that had the commonest one
};
/// Of one channel after `gain`. Throws std::runtime_error when no sample tells its position.
Delay measureDelay(const Recording& recording, std::string_view channel, float gain = 1.0F);

struct ProbeOptions {
  std::string name = "probe";
  int rate = 48000;       // Hz
  int latencyFrames = 0;  ///< wish for the cycle length; 0: none
  std::string target{};   ///< node.name to stay on; empty: the default output
  bool isPaused = false;  ///< there and silent, like a player that waits for its user
};

/// Plays from construction to destruction, unless it is paused. Throws std::runtime_error when it
/// cannot.
class Probe {
 public:
  Probe(Signal signal, const ProbeOptions& options);
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;
  ~Probe();

  /// Frames played so far.
  [[nodiscard]] std::uint64_t frames() const { return played_.load(std::memory_order_relaxed); }

 private:
  struct Events;
  struct StreamDeleter {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
  };

  void connect(const ProbeOptions& options);
  void process() noexcept;

  const Signal signal_;
  std::atomic<const spa_io_position*> position_{nullptr};
  std::atomic<std::uint64_t> played_{0};

  // Real-time thread only: how much of the present cycle has been filled.
  std::uint64_t cyclePosition_ = 0;
  std::uint64_t cycleFilled_ = 0;

  SessionClient client_;
  std::unique_ptr<pw_stream, StreamDeleter> stream_;
  spa_hook streamListener_{};
};

}  // namespace orvelle::instruments
