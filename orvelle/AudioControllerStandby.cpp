// The parts of the controller that look at what is heard: idle standby and level meter.
#include <algorithm>
#include <utility>

#include "orvelle/AudioController.h"
#include "orvelle/LevelMeter.h"

namespace orvelle {

// Idle standby

void AudioController::setIdleStandbyEnabled(bool isEnabled) {
  const Change change(*this);
  idleStandbyEnabled_ = isEnabled;
  settings_.saveIdleStandby(isEnabled);
  announce(&AudioController::idleStandbyEnabledChanged);
  if (!isEnabled && boostArmed_) {
    start();
  }
}

void AudioController::startStandbyWatcher(double intervalSeconds) {
  stopStandbyWatcher();
  standbyTimer_ = host_.engine.queue.repeat(intervalSeconds, intervalSeconds,
                                            whileAlive([this] { standbyTick(); }));
}

void AudioController::stopStandbyWatcher() {
  host_.engine.queue.cancel(std::exchange(standbyTimer_, 0));
  playerWatch_.reset();
}

void AudioController::standbyTick() {
  if (isOn_) {
    watchForSilence();
  } else if (boostArmed_ && !startInProgress_) {
    watchForPlayers();
  }
}

void AudioController::watchForSilence() {
  // Headphones on the radio take too long to wake: the first words would be lost.
  if (!idleStandbyEnabled_ || isOutputBluetooth()) {
    silence_.reset();
    return;
  }
  std::optional<double> secondsRunning;
  if (boostStartedAt_) {
    secondsRunning = host_.engine.clock.now() - *boostStartedAt_;
  }
  if (silence_.poll(engine_.currentLevel, hasRealPlayers(), secondsRunning)) {
    enterStandby();
  }
}

void AudioController::watchForPlayers() {
  if (hasRealPlayers()) {
    publish(boostStatus_, QString("Audio detected. Starting boost..."),
            &AudioController::boostStatusChanged);
    start();
  }
}

void AudioController::enterStandby() {
  leaveOn(false);
  publish(boostArmed_, true, &AudioController::boostArmedChanged);
  silence_.reset();
  publish(boostStatus_, QString("Boost standby. Waiting for audio..."),
          &AudioController::boostStatusChanged);
  startStandbyWatcher(kStandbyPollSeconds);
  // Where the platform tells, nobody has to wait for the next poll.
  playerWatch_ = std::make_unique<PlayerWatch>(host_.engine.hardware, [this] {
    const Change change(*this);
    standbyTick();
  });
}

bool AudioController::isOutputBluetooth() const {
  const std::string& uid = engine_.currentOutputUID();
  const auto output = uid.empty() ? std::nullopt : hal_.device(uid);
  return output && (output->transportType == kAudioDeviceTransportTypeBluetooth ||
                    output->transportType == kAudioDeviceTransportTypeBluetoothLE);
}

bool AudioController::hasRealPlayers() const {
  return std::ranges::any_of(processes_.outputting(), [this](const AudioProcessInfo& process) {
    return isRealPlayer(process.pid, processes_.name(process, host_.applicationNames),
                        process.bundleID);
  });
}

// Level meter

void AudioController::startLevelMeter() {
  stopLevelMeter();
  levelTimer_ = host_.engine.queue.repeat(kMeterIntervalSeconds, kMeterIntervalSeconds,
                                          whileAlive([this] { meterTick(); }));
}

void AudioController::stopLevelMeter() {
  host_.engine.queue.cancel(std::exchange(levelTimer_, 0));
  publish(level_, 0.0F, &AudioController::levelChanged);
}

void AudioController::meterTick() {
  const float next = isPanelVisible() ? nextMeterLevel(level_, engine_.currentLevel) : 0.0F;
  publish(level_, next, &AudioController::levelChanged);
}

bool AudioController::isPanelVisible() const {
  return host_.services.anyWindow(isVisiblePanel);
}

}  // namespace orvelle
