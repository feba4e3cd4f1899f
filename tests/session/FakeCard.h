// A sound card whose hardware volume is controlled by a route, as laptops and USB devices have it.
#pragma once

#include <spa/monitor/device.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "instruments/SessionClient.h"
#include "instruments/SessionOptions.h"

namespace orvelle::instruments {

/// What a program wrote to the card's route. Absent: not written.
struct RouteRequest {
  int index = -1;
  int device = -1;
  std::vector<float> volumes;  ///< linear
  std::optional<bool> isMuted;
  std::optional<bool> isSaved;  ///< whether the session manager is to remember it
};

/// The card and its one route, for as long as this lives. The card has no sound of its own: its
/// output is a stand-in that must be plugged.
class FakeCard {
 public:
  /// `volumes` are linear, one a channel of a stereo or mono output.
  explicit FakeCard(std::vector<float> volumes);
  FakeCard(const FakeCard&) = delete;
  FakeCard& operator=(const FakeCard&) = delete;
  ~FakeCard();

  /// An output whose volume this card controls.
  [[nodiscard]] StandIn output(const std::string& name) const;

  /// Somebody uses the knob of the device itself.
  void turnKnob(const std::vector<float>& volumes, bool isMuted);

  [[nodiscard]] std::vector<float> volumes() const;
  [[nodiscard]] bool isMuted() const;
  /// Everything that was written, in order.
  [[nodiscard]] std::vector<RouteRequest> requests() const;

 private:
  struct Methods;

  void emitInfo(bool isFirst);
  void emitRoute(int sequence);
  void apply(const std::vector<float>& volumes, bool isMuted);

  SessionClient client_;
  spa_device device_{};
  spa_hook_list listeners_{};
  std::array<spa_param_info, 1> parameters_{};
  pw_proxy* exported_ = nullptr;
  std::uint32_t id_ = PW_ID_ANY;

  // Guarded by the loop's lock.
  std::vector<float> volumes_;
  bool isMuted_ = false;
  std::vector<RouteRequest> requests_;
};

}  // namespace orvelle::instruments
