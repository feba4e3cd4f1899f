#include "orvelle/DeviceRouter.h"

#include <array>
#include <string>
#include <utility>

#include "orvelle/EngineError.h"
#include "orvelle/OutputRanking.h"

namespace orvelle {

namespace {

/// A device that has just appeared may not tell its channels or its transport yet.
constexpr std::array kLaterRunsSeconds = {0.8, 2.0};

}  // namespace

DeviceRouter::DeviceRouter(const EngineHost& host, BoostEngine& engine)
    : host_(host), hal_(host.hardware), engine_(engine) {}

std::optional<AudioDeviceInfo> DeviceRouter::preferredOutput(const HAL& hal) {
  std::vector<AudioDeviceInfo> outputs = hal.realOutputs();
  // Outputs are asked for by uid: one that does not tell it yet cannot be, and trying would cost
  // the sound of the one that plays.
  std::erase_if(outputs, [](const AudioDeviceInfo& output) { return output.uid.empty(); });
  return bestOutput(outputs);
}

std::string DeviceRouter::loopbackUID(const HAL& hal) {
  constexpr const char* own = "OrvelleAudioDevice_UID";
  return hal.device(own) ? own : "BlackHole2ch_UID";
}

void DeviceRouter::start() {
  knownDevices_ = foreignDevices();
  hal_.observeDeviceListChanges(whileAlive(&DeviceRouter::deviceListChanged));
  if (engine_.isRunning()) {
    // Starting the engine takes its time, and a device that came meanwhile told nobody here.
    host_.queue.post(whileAlive(&DeviceRouter::reevaluateRepeatedly));
  }
}

std::vector<AudioDeviceInfo> DeviceRouter::foreignDevices() const {
  std::vector<AudioDeviceInfo> devices;
  for (const AudioObjectID id : hal_.foreignDeviceIDs()) {
    devices.push_back(hal_.describe(id));
  }
  return devices;
}

/// Each switch unmakes an aggregate and makes one, which is told too: evaluating that would have a
/// switch that fails tried again without end.
void DeviceRouter::deviceListChanged() {
  const std::vector<AudioDeviceInfo> devices = foreignDevices();
  if (std::exchange(knownDevices_, devices) != devices) {
    reevaluateRepeatedly();
  }
}

void DeviceRouter::reevaluateRepeatedly() {
  for (const double seconds : kLaterRunsSeconds) {
    host_.queue.postAfter(seconds, whileAlive(&DeviceRouter::reevaluate));
  }
  reevaluate();
}

void DeviceRouter::reevaluate() {
  const auto target = preferredOutput(hal_);
  if (!target || target->uid == engine_.currentOutputUID()) {
    return;
  }
  if (engine_.isRunning() && !moveTo(*target)) {
    return;
  }
  host_.console.print("→ switched output to " + target->name + " [" +
                      std::string(transportName(target->transportType)) + "]");
  if (onSwitch) {
    onSwitch(*target);
  }
}

/// Where that fails the boost rests until the next evaluation.
bool DeviceRouter::moveTo(const AudioDeviceInfo& output) {
  engine_.teardownAggregate();
  try {
    engine_.buildAndStart(output.uid);
  } catch (const EngineError& error) {
    // Nothing half built may stay, above all no raised output.
    engine_.teardownAggregate();
    host_.console.printError("switch failed: " + std::string(error.what()) + "\n");
    return false;
  }
  engine_.reassertLoopbackDefault();
  return true;
}

/// A job that does nothing once the router is gone.
MainQueue::Job DeviceRouter::whileAlive(void (DeviceRouter::*job)()) {
  return [this, job, life = std::weak_ptr<const bool>(life_)] {
    if (!life.expired()) {
      (this->*job)();
    }
  };
}

}  // namespace orvelle
