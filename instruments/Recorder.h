// Captures what an output plays, without loss and with the session's own time.
#pragma once

#include <pipewire/filter.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "instruments/Recording.h"
#include "instruments/SessionClient.h"

namespace orvelle::instruments {

/// Records all monitor channels of one output from construction on. When the output goes and
/// returns, it is linked again without anybody's doing. Keeps its output running.
class Recorder : private SessionObserver {
 public:
  /// The output must be there; throws std::runtime_error otherwise, or when no cycle runs within
  /// two seconds. Memory for `capacity` (at 48 kHz) is taken at once.
  explicit Recorder(std::string sink, std::chrono::seconds capacity = std::chrono::seconds(30));
  ~Recorder() override;

  /// A copy of everything so far. Throws std::runtime_error when the memory was too small: a
  /// recording with a hidden end would prove nothing.
  [[nodiscard]] Recording take() const;
  /// From now on `take` begins here. Frees no memory.
  void forget();

  /// Waits until this much more has been recorded; false when it does not come in due time.
  [[nodiscard]] bool waitFor(std::chrono::milliseconds duration) const;

 private:
  struct Events;
  struct FilterDeleter {
    void operator()(pw_filter* filter) const { pw_filter_destroy(filter); }
  };
  struct Channel {
    std::string name;
    void* port = nullptr;
    std::vector<float> samples;
  };

  void objectAdded(SessionClient& client, const SessionObject& object) override;
  void objectRemoved(SessionClient& client, const SessionObject& object) override;
  void process(const spa_io_position& position) noexcept;
  /// Frames that the channel has brought in this cycle, `limit` at most.
  static std::uint32_t capture(Channel& channel, std::uint64_t begin, std::uint32_t limit) noexcept;
  void findChannels();
  void makeFilter();
  void findOwnPorts();
  void linkChannels();
  [[nodiscard]] bool isMonitorOfSink(const SessionObject& port) const;

  const std::string sink_;
  std::chrono::seconds capacity_;

  // Written before the first cycle, afterwards by the real-time thread alone up to `written_` and
  // `cycleCount_`, which tell the readers how far they may read.
  std::vector<Channel> channels_;
  std::vector<Cycle> cycles_;
  std::atomic<std::uint64_t> written_{0};
  std::atomic<std::size_t> cycleCount_{0};
  std::atomic<bool> overflowed_{false};
  std::size_t firstCycle_ = 0;  ///< where `take` begins

  // Guarded by the loop's lock.
  std::uint32_t sinkID_ = PW_ID_ANY;
  std::map<std::string, std::uint32_t> sinkPorts_;  ///< monitor port ids by channel name
  std::map<std::string, std::uint32_t> ownPorts_;
  std::map<std::uint32_t, pw_proxy*> links_;  ///< by monitor port id

  SessionClient client_;
  std::unique_ptr<pw_filter, FilterDeleter> filter_;
  spa_hook filterListener_{};
};

}  // namespace orvelle::instruments
