// A simulated world for the console tool: what it prints, and what it leaves behind.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/Commands.h"
#include "orvelle/platform/simulated/KnownApplications.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

inline constexpr const char* kLoopback = "OrvelleAudioDevice_UID";
inline constexpr float kPlayedLevel = 0.1F;

/// A world that is looked at once more when its command lets go of it: nothing may be left.
class ObservedHardware final : public SimulatedHardware {
 public:
  ObservedHardware(ManualQueue& queue, const std::function<void(SimulatedHardware&)>& atTheEnd)
      : SimulatedHardware(queue), atTheEnd_(atTheEnd) {}
  ~ObservedHardware() override {
    EXPECT_EQ(aggregateCount() + ioProcCount() + tapCount(), 0U);
    atTheEnd_(*this);
  }

 private:
  const std::function<void(SimulatedHardware&)>& atTheEnd_;
};

class CommandsRig : public testing::Test {
 protected:
  CommandsRig() {
    prepare = [](SimulatedHardware& world) {
      world.plug(stereoOutput("Speakers", kAudioDeviceTransportTypeBuiltIn, 1.0F));
      world.plug(stereoOutput("Interface", kAudioDeviceTransportTypeUSB, 0.25F));
      world.plug(loopbackDevice());
      ProcessDescription player;
      player.signal = [](std::int64_t /*frame*/, std::uint32_t /*channel*/) {
        return kPlayedLevel;
      };
      world.launch(player);
    };
    atTheEnd = [](SimulatedHardware& /*world*/) {};
  }

  int run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/usr/bin/orvelle");
    const auto openHardware = [this](std::string& /*problem*/) {
      auto opened = std::make_unique<ObservedHardware>(queue, atTheEnd);
      hardware = opened.get();
      prepare(*opened);
      return opened;
    };
    return runCommand(CommandLine(arguments), {queue, queue, console, applications, openHardware});
  }

  /// Runs a command that goes on until `seconds` have passed and `action` has ended it.
  int runUntil(double seconds, MainQueue::Job action, const std::vector<std::string>& arguments) {
    queue.postAfter(seconds, std::move(action));
    return run(arguments);
  }

  int interruptedAfter(double seconds, const std::vector<std::string>& arguments) {
    return runUntil(
        seconds, [this] { queue.raise(SIGINT); }, arguments);
  }

  [[nodiscard]] std::string output() const {
    return std::accumulate(
        console.lines.begin(), console.lines.end(), std::string(),
        [](const std::string& text, const std::string& line) { return text + line + "\n"; });
  }

  ManualQueue queue;
  RecordingConsole console;
  KnownApplications applications;
  std::function<void(SimulatedHardware&)> prepare;
  std::function<void(SimulatedHardware&)> atTheEnd;
  SimulatedHardware* hardware =
      nullptr;  ///< while the command runs; null: hardware was never opened
};

}  // namespace orvelle
