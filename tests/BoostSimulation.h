// A long random life of boost, router and taps among devices and programs that come and go, other
// programs that meddle, calls that fail, and news that are late or lost.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "orvelle/DeviceRouter.h"
#include "orvelle/ProcessTapEngine.h"
#include "tests/BoostRig.h"

namespace orvelle {

/// One seeded life. Every change of the world is listened to, and every step ends with the
/// invariants; what they find fails the test that lives it.
class BoostSimulation {
 public:
  /// How much has happened, in all lives that count here.
  struct Tally {
    int starts = 0;    ///< of the boost
    int returns = 0;   ///< of the system to its user
    int follows = 0;   ///< found to be right when nothing failed any more
    int taps = 0;      ///< started
    int switches = 0;  ///< of the router
  };

  /// The tally must live on.
  BoostSimulation(std::uint64_t seed, Tally& tally);

  void step();
  /// The latest steps, and the calls of the last one.
  [[nodiscard]] std::string story() const;

 private:
  /// Everybody plays in turn, one frame each, so that one cycle tells what is heard of whom.
  static constexpr std::size_t kPlayers = 4;
  static constexpr std::uint32_t kFrames = kPlayers;

  /// A program with, sometimes, a tap on it. The first one is never tapped.
  struct Player {
    AudioObjectID process = kAudioObjectUnknown;  ///< 0: not launched
    bool isPlaying = false;
    std::unique_ptr<ProcessTapEngine> tap;
    AudioObjectID tapped = kAudioObjectUnknown;  ///< the process that the running tap is on
    std::string outputUID;                       ///< of the running tap
    bool isChanging = false;                     ///< in the middle of starting or stopping its tap
  };

  // BoostSimulation.cpp: what happens.
  void plug();
  void unplug();
  void chooseDefault();
  void start();
  void stop();
  void startOrDropRouter();
  void launchOrQuit();
  void playOrPause();
  void startOrStopTap();
  void changeTapVolume();
  void injectFault();
  void injectListenerFault();
  void letTimePass();
  void changeVolume();
  void changeMute();
  void changeGain();
  void newEngine();
  void launch(std::size_t index);
  void startTap(Player& player);
  void worldMoved();

  // BoostSimulationInvariants.cpp: what must hold.
  void calm();
  void expectFollow(const std::vector<std::string>& outputs);
  void expectHeardAt(const std::string& uid, std::size_t index);
  void putRight();
  void expectAsTheUserLeftIt();
  void expectNothingTooMuch();
  void listen();
  float loudestAllowed(const Player& player, const DeviceDescription& asTheUserLeftIt) const;
  bool isThroughTap(const Player& player) const;
  /// Of the latest cycle, over all channels.
  float heardOf(std::size_t index, const std::string& uid) const;
  [[nodiscard]] float loopbackFactor() const;
  [[nodiscard]] bool isLouderThanTheUserLeftIt(const std::string& uid) const;
  [[nodiscard]] std::size_t runningTaps() const;
  void countRefusals();

  // Small things.
  EngineHost host() { return rig_.host; }
  void pump(double seconds);
  std::string anyPlugged();
  [[nodiscard]] std::vector<std::string> pluggedOutputs() const;
  void rememberUsersChoice(const std::string& uid) {
    asTheUserLeftIt_[uid] = hardware_.device(uid);
  }
  /// The same on every standard library, unlike its distributions.
  std::size_t below(std::size_t count) { return random_() % count; }
  void note(const std::string& line);

  std::mt19937_64 random_;
  BoostRig rig_;
  SimulatedHardware& hardware_ = rig_.hardware;
  std::unique_ptr<DeviceRouter> router_;
  bool routerHears_ = false;
  std::array<Player, kPlayers> players_;

  std::map<std::string, DeviceDescription> away_;
  std::map<std::string, DeviceDescription> asTheUserLeftIt_;
  std::map<CallKind, std::size_t> refused_;
  std::size_t countedCalls_ = 0;
  std::size_t guardsRefusedBefore_ = 0;
  std::size_t observers_ = 0;  ///< of routers: never removed
  /// Went away while the boost had them raised; the engine still knows what they should be.
  std::set<std::string> owed_;
  /// Stand raised without the loopback, because the world has moved it or the default output.
  std::set<std::string> exposed_;
  /// Came back as loud as they vanished, and the engine may not know yet.
  std::set<std::string> returnedLoud_;
  float loudestLoopbackFactor_ = 0.0F;  ///< since everything was last heard as it has to be
  std::vector<std::string> story_;
  bool hasBeenStarted_ = false;
  Tally& tally_;
};

}  // namespace orvelle
