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
#include "tests/ForwardingHardware.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

inline constexpr const char* kLoopback = "OrvelleAudioDevice_UID";
inline constexpr float kPlayedLevel = 0.1F;

/// A world that is looked at once more when its command lets go of it: nothing may be left.
class ObservedWorld {
 public:
  ObservedWorld(ManualQueue& queue, const std::function<void(SimulatedHardware&)>& prepare,
                const std::function<void(SimulatedHardware&)>& atTheEnd)
      : world(queue), atTheEnd_(atTheEnd) {
    prepare(world);
  }
  ObservedWorld(const ObservedWorld&) = delete;
  ObservedWorld& operator=(const ObservedWorld&) = delete;
  ~ObservedWorld() {
    EXPECT_EQ(world.aggregateCount() + world.ioProcCount() + world.tapCount(), 0U);
    atTheEnd_(world);
  }

  SimulatedHardware world;

 private:
  const std::function<void(SimulatedHardware&)>& atTheEnd_;
};

struct WorldAndDoor {
  std::unique_ptr<ObservedWorld> observed;
  std::unique_ptr<AudioHardware> door;
};

/// The world with the door to it, which closes first.
class ObservedHardware final : private WorldAndDoor, public ForwardingHardware {
 public:
  ObservedHardware(std::unique_ptr<ObservedWorld> world, std::unique_ptr<AudioHardware> opened)
      : WorldAndDoor{std::move(world), std::move(opened)}, ForwardingHardware(*door) {}
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
      auto observed = std::make_unique<ObservedWorld>(queue, prepare, atTheEnd);
      hardware = &observed->world;
      auto door = openDoor(*hardware, queue);
      return std::make_unique<ObservedHardware>(std::move(observed), std::move(door));
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
