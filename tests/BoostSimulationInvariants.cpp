#include <cmath>

#include "tests/BoostSimulation.h"

namespace orvelle {

namespace {

float loudestVolume(const DeviceDescription& device) {
  float loudest = 0.0F;
  for (const auto& [element, control] : device.volumes) {
    loudest = std::max(loudest, control.value);
  }
  return loudest;
}

/// A failed call may leave the channels at different volumes for a while.
float loudestFactor(const DeviceDescription& device) {
  return std::max(outputFactor(device, 0), outputFactor(device, 1));
}

float throughTapAt(float volume) {
  return volume == 1.0F ? kSource : std::tanh(volume * kSource);
}

}  // namespace

/// Nothing fails any more, and fresh news tell what lost ones did not: a running boost must follow,
/// and everybody be heard at their level, where they belong and nowhere else.
void BoostSimulation::calm() {
  hardware_.clearFaults();
  DeviceDescription microphone;
  microphone.uid = "microphone";
  hardware_.plug(microphone);
  pump(1.0);
  hardware_.unplug(microphone.uid);
  pump(2.5);
  countRefusals();
  const bool hasGuard = refused_[CallKind::addPropertyListener] == guardsRefusedBefore_;
  const std::vector<std::string> outputs = pluggedOutputs();
  if (!rig_.engine->isRunning() || !hasGuard || away_.contains(kLoopback) || outputs.empty()) {
    return;
  }
  returnedLoud_.clear();
  expectFollow(outputs);
  hardware_.runCycle(kFrames);
  for (const std::string& uid : outputs) {
    for (std::size_t index = 0; index < kPlayers; ++index) {
      expectHeardAt(uid, index);
    }
  }
  loudestLoopbackFactor_ = loopbackFactor();
}

void BoostSimulation::expectFollow(const std::vector<std::string>& outputs) {
  const auto choose = [this](const std::string& uid) {
    hardware_.chooseDefaultOutput(uid);
    worldMoved();
    pump(0.5);
  };
  choose(kLoopback);  // nobody may have been told that it was elsewhere
  std::string uid;
  bool wasFed = true;  // and what went wrong then is past
  if (router_ && routerHears_) {
    uid = DeviceRouter::preferredOutput(rig_.hal)->uid;
    note("calm, router to " + uid);
  } else {
    uid = outputs[below(outputs.size())];
    note("calm, follow to " + uid);
    wasFed = rig_.engine->currentOutputUID() == uid;
    choose(uid);
  }
  ++tally_.follows;
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_EQ(rig_.engine->currentOutputUID(), uid);
  if (!wasFed && hardware_.device(uid).mute.value_or(false)) {
    // The loopback has not taken over volume and mute, so the output keeps both.
    EXPECT_EQ(loudestFactor(asTheUserLeftIt_.at(uid)), 0.0F);
    EXPECT_EQ(rig_.volume(uid), loudestVolume(asTheUserLeftIt_.at(uid)));
  }
}

void BoostSimulation::expectHeardAt(const std::string& uid, std::size_t index) {
  const Player& player = players_[index];
  const bool isFed = uid == rig_.engine->currentOutputUID();
  float expected = 0.0F;
  if (player.isPlaying && isThroughTap(player)) {
    // What the hardware did not let go of still counts as a boost of its output.
    const bool hasRemains = refused_[CallKind::destroyAggregateDevice] > 0;
    if (uid == player.outputUID && !isFed && hasRemains) {
      return;
    }
    const float governor = isFed ? loopbackFactor() : 1.0F;
    expected = uid == player.outputUID ? throughTapAt(player.tap->volume) * governor : 0.0F;
  } else if (player.isPlaying && isFed) {
    expected = kSource * loopbackFactor() * rig_.engine->gain.load();
  }
  expected *= loudestFactor(hardware_.device(uid));
  EXPECT_NEAR(heardOf(index, uid), expected, 1e-3F * std::max(expected, 0.01F))
      << "program " << index << " on " << uid;
}

/// What the caller of a stop or failed start does, when nothing fails any more.
void BoostSimulation::putRight() {
  hardware_.clearFaults();
  pump(0.5);
  rig_.engine->removeDefaultGuard();
  rig_.engine->teardownAggregate();
  rig_.engine->stop(false);
  expectAsTheUserLeftIt();
  rig_.engine->stop(true);
  pump(0.5);
  expectAsTheUserLeftIt();
  ++tally_.returns;
  if (hasBeenStarted_ && !pluggedOutputs().empty()) {
    EXPECT_NE(hardware_.defaultOutputUID(), kLoopback);
  }
  const std::uint64_t callbacks = hardware_.callbackCount();
  hardware_.runCycle(kFrames);
  const auto isRead = [this](const Player& player) {
    return player.tap->isRunning() && !away_.contains(player.outputUID);
  };
  const auto running = hardware_.callbackCount() - callbacks;
  const auto expected = static_cast<std::uint64_t>(std::ranges::count_if(players_, isRead));
  EXPECT_LE(running, expected) << "a callback runs after the stop";
  // Where news of an output that has returned may be lost, the next calm tells.
  if (tapsAreImmediate()) {
    EXPECT_EQ(running, expected) << "a tap's callback does not run";
  }
  countRefusals();
  EXPECT_LE(hardware_.aggregateCount(), runningTaps() + refused_[CallKind::destroyAggregateDevice]);
  EXPECT_LE(hardware_.ioProcCount(), runningTaps() + refused_[CallKind::destroyIOProcID]);
  // What follows a loopback: devices, default output, mute and three volumes.
  const std::size_t followers = tapsAreImmediate() ? 0 : 6;
  EXPECT_LE(hardware_.listenerCount(),
            observers_ + followers + refused_[CallKind::removePropertyListener]);
}

void BoostSimulation::expectAsTheUserLeftIt() {
  for (const auto& [uid, before] : asTheUserLeftIt_) {
    if (away_.contains(uid) || uid == kLoopback) {
      continue;
    }
    owed_.erase(uid);
    const DeviceDescription now = hardware_.device(uid);
    EXPECT_EQ(now.mute, before.mute) << uid;
    for (const auto& [element, control] : before.volumes) {
      EXPECT_NEAR(now.volumes.at(element).value, control.value, 0.006F) << uid;
    }
  }
}

void BoostSimulation::expectNothingTooMuch() {
  countRefusals();
  EXPECT_LE(hardware_.aggregateCount(),
            1 + runningTaps() + refused_[CallKind::destroyAggregateDevice]);
  EXPECT_LE(hardware_.ioProcCount(), 1 + runningTaps() + refused_[CallKind::destroyIOProcID]);
  EXPECT_LE(hardware_.tapCount(), runningTaps() + refused_[CallKind::destroyProcessTap]);
}

/// The hook of every change: nobody may hear more of a program than the direct path at the output's
/// own volume or the boost at the loopback's, or its tap at its volume on top of either.
void BoostSimulation::listen() {
  const auto isSettled = [this](const std::string& uid) {
    return away_.contains(uid) || !isLouderThanTheUserLeftIt(uid);
  };
  std::erase_if(exposed_, isSettled);
  std::erase_if(returnedLoud_, isSettled);
  if (hardware_.defaultOutputUID() == kLoopback) {
    exposed_.clear();
  }
  loudestLoopbackFactor_ = std::max(loudestLoopbackFactor_, loopbackFactor());
  hardware_.runCycle(kFrames);
  for (const auto& [uid, device] : asTheUserLeftIt_) {
    if (away_.contains(uid) || uid == kLoopback || exposed_.contains(uid) ||
        returnedLoud_.contains(uid)) {
      continue;
    }
    for (std::size_t index = 0; index < kPlayers; ++index) {
      const float loudest = loudestAllowed(players_[index], device);
      EXPECT_LE(heardOf(index, uid), loudest * 1.02F)
          << "program " << index << " is too loud on " << uid;
    }
  }
}

float BoostSimulation::loudestAllowed(const Player& player,
                                      const DeviceDescription& asTheUserLeftIt) const {
  if (!player.isPlaying) {
    return 0.0F;
  }
  const float own = loudestFactor(asTheUserLeftIt);
  const float direct = kSource * std::max(own, loopbackFactor() * rig_.engine->gain.load());
  // News may be late, or lost until the next calm.
  const float governor = tapsAreImmediate() ? loopbackFactor() : loudestLoopbackFactor_;
  const float tapped = throughTapAt(player.tap->volume) * std::max(own, governor);
  if (player.isChanging || (isThroughTap(player) && !tapsAreImmediate())) {
    return std::max(direct, tapped);
  }
  return isThroughTap(player) ? tapped : direct;
}

bool BoostSimulation::isThroughTap(const Player& player) const {
  return player.tap->isRunning() && player.tapped == player.process &&
         !away_.contains(player.outputUID);
}

float BoostSimulation::heardOf(std::size_t index, const std::string& uid) const {
  const std::vector<float> samples = hardware_.heard(uid);
  const std::size_t channels = samples.size() / kFrames;
  float loudest = 0.0F;
  for (std::size_t channel = 0; channel < channels; ++channel) {
    loudest = std::max(loudest, std::abs(samples[index * channels + channel]));
  }
  return loudest;
}

float BoostSimulation::loopbackFactor() const {
  return outputFactor(hardware_.device(kLoopback), 0);
}

bool BoostSimulation::isLouderThanTheUserLeftIt(const std::string& uid) const {
  return loudestFactor(hardware_.device(uid)) > loudestFactor(asTheUserLeftIt_.at(uid));
}

std::size_t BoostSimulation::runningTaps() const {
  return static_cast<std::size_t>(std::ranges::count_if(
      players_, [](const Player& player) { return player.tap->isRunning(); }));
}

void BoostSimulation::countRefusals() {
  const auto log = hardware_.log();
  for (; countedCalls_ < log.size(); ++countedCalls_) {
    if (log[countedCalls_].status != kAudioHardwareNoError) {
      ++refused_[log[countedCalls_].target.kind];
    }
  }
}

}  // namespace orvelle
