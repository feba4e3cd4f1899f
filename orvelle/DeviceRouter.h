// Keeps a running boost on the best real output as devices come and go.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/BoostEngine.h"
#include "orvelle/HAL.h"

namespace orvelle {

/// Moves the boost to headphones when they are plugged in, and back when they are gone. Lives as
/// long as its owner holds it; with it auto-follow ends. Main thread.
class DeviceRouter {
 public:
  /// `engine` and what `host` names must outlive the router.
  DeviceRouter(const EngineHost& host, BoostEngine& engine);
  DeviceRouter(const DeviceRouter&) = delete;
  DeviceRouter& operator=(const DeviceRouter&) = delete;
  ~DeviceRouter() = default;

  /// The real output that sound belongs on; nothing where there is none. Any thread.
  static std::optional<AudioDeviceInfo> preferredOutput(const HAL& hal);

  /// The uid of the loopback device to boost through: this program's own where it is installed,
  /// else that of a driver which many computers have. Any thread.
  static std::string loopbackUID(const HAL& hal);

  /// Begins to follow. Call once.
  void start();

  /// Told of every newly chosen output, after the sound has moved.
  std::function<void(const AudioDeviceInfo&)> onSwitch;

 private:
  [[nodiscard]] std::vector<AudioDeviceInfo> foreignDevices() const;
  void deviceListChanged();
  void reevaluateRepeatedly();
  void reevaluate();
  bool moveTo(const AudioDeviceInfo& output);
  MainQueue::Job whileAlive(void (DeviceRouter::*job)());

  EngineHost host_;
  HAL hal_;
  BoostEngine& engine_;
  /// As last told of.
  std::vector<AudioDeviceInfo> knownDevices_;
  /// Held weakly by the observer, which is never removed, and by the delayed runs.
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
