// A private session with the PipeWire back end connected to it in this process.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "instruments/DesktopPanel.h"
#include "instruments/HotPlug.h"
#include "instruments/PrivateSession.h"
#include "instruments/Subprocess.h"
#include "orvelle/HAL.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#include "orvelle/platform/simulated/ManualQueue.h"

namespace orvelle::instruments {

inline constexpr const char* loopbackUID = "OrvelleAudioDevice_UID";
inline constexpr PropertyAddress volumeOfOutput{kAudioDevicePropertyVolumeScalar,
                                                kAudioObjectPropertyScopeOutput};

class HardwareSession {
 public:
  /// Throws std::runtime_error when session or back end do not come up.
  explicit HardwareSession(const SessionOptions& options);

  [[nodiscard]] AudioHardware& hardware() const { return *hardware_; }
  [[nodiscard]] HAL hal() const { return HAL(*hardware_); }
  PrivateSession& session() { return *session_; }
  DesktopPanel& panel() { return *panel_; }
  HotPlug& plugs() { return *plugs_; }

  /// Connects anew; what the connection before had made ends with it.
  void reconnect();
  /// Ends the whole session under the back end.
  void endSession();

  /// Serves the main queue until `condition` holds; says whether it held in time.
  bool eventually(const std::function<bool()>& condition, double timeoutSeconds = 5.0);
  /// Serves the main queue for a while.
  void settle(double seconds);
  /// The id of the device with this uid, once it is listed; 0 when it never is.
  AudioObjectID listed(const std::string& uid);

  /// A player that plays this constant for half a minute.
  std::unique_ptr<Subprocess> startPlayer(const std::string& program, float level);

  /// How many nodes of that name there are.
  [[nodiscard]] std::size_t nodesNamed(const std::string& name) const;

 private:
  std::unique_ptr<PrivateSession> session_;
  std::unique_ptr<DesktopPanel> panel_;
  std::unique_ptr<HotPlug> plugs_;
  ManualQueue queue_;
  std::unique_ptr<PipeWireHardware> hardware_;
};

/// An aggregate of an output, which drives it, with what it gets its sound from.
AggregateDescription aggregateOf(const std::string& output, const std::string& input);

}  // namespace orvelle::instruments
