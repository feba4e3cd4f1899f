// A simulated world in real time, for the contract of hardware back ends.
#pragma once

#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "tests/HardwareContract.h"

namespace orvelle {

/// A simulated world with an I/O thread of its own, so that promises about callbacks are put to the
/// test by real races. The back end under test is what `OpenDoor` opens on it.
class SimulatedRig final : public HardwareRig {
 public:
  using OpenDoor =
      std::function<std::unique_ptr<AudioHardware>(SimulatedHardware& world, ManualQueue& queue)>;

  explicit SimulatedRig(const OpenDoor& openDoor) : door_(openDoor(hardware_, queue_)) {
    hardware_.plug(loopbackDevice());
    ioThread_ = std::thread([this] {
      while (!isOver_) {
        hardware_.runCycle(framesPerCycle);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
  }
  ~SimulatedRig() override {
    isOver_ = true;
    ioThread_.join();
  }
  SimulatedRig(const SimulatedRig&) = delete;
  SimulatedRig& operator=(const SimulatedRig&) = delete;

  AudioHardware& hardware() override { return *door_; }

  bool waitUntil(const std::function<bool()>& condition, double timeoutSeconds) override {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    queue_.runUntilIdle();
    while (!condition()) {
      if (std::chrono::steady_clock::now() >= deadline) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
      queue_.advance(0.0002);
    }
    return true;
  }

  std::string loopbackUID() override { return loopbackDevice().uid; }

  void plug(const std::string& uid, const std::string& name, std::uint32_t transport) override {
    DeviceDescription device = stereoOutput(uid, transport, 1.0F);
    device.name = name;
    hardware_.plug(device);
  }

  void unplug(const std::string& uid) override { hardware_.unplug(uid); }
  void chooseDefaultOutput(const std::string& uid) override { hardware_.chooseDefaultOutput(uid); }

  void play(double peak) override {
    hardware_.quitProcess(player_);
    ProcessDescription program;
    program.signal = [peak](std::int64_t frame, std::uint32_t) {
      const double angle = 2.0 * std::numbers::pi * static_cast<double>(frame % 48) / 48.0;
      return static_cast<float>(peak * std::sin(angle));
    };
    player_ = hardware_.launch(program);
  }

  std::int32_t launchPlayer(double level) override {
    ProcessDescription program;
    program.pid = 100 + static_cast<std::int32_t>(players_.size());
    program.bundleID = "contract.player";
    program.signal = [level](std::int64_t, std::uint32_t) { return static_cast<float>(level); };
    players_[program.pid] = hardware_.launch(program);
    return program.pid;
  }

  void quitPlayer(std::int32_t pid) override { hardware_.quitProcess(players_.at(pid)); }

  double heardPeak(const std::string& uid) override {
    return static_cast<double>(hardware_.heardPeak(uid));
  }

  std::vector<std::string> leftovers() override {
    std::vector<std::string> names(hardware_.aggregateCount(), "aggregate");
    names.insert(names.end(), hardware_.ioProcCount(), "callback");
    names.insert(names.end(), hardware_.listenerCount(), "listener");
    names.insert(names.end(), hardware_.tapCount(), "tap");
    return names;
  }

 private:
  static constexpr std::uint32_t framesPerCycle = 192;  // four periods of the sine

  ManualQueue queue_;
  SimulatedHardware hardware_{queue_};
  std::unique_ptr<AudioHardware> door_;
  AudioObjectID player_ = kAudioObjectUnknown;
  std::map<std::int32_t, AudioObjectID> players_;  // by pid
  std::atomic<bool> isOver_ = false;
  std::thread ioThread_;
};

}  // namespace orvelle
