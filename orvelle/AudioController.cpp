#include "orvelle/AudioController.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "orvelle/LevelMeter.h"

namespace orvelle {

namespace {

constexpr double kWatchdogSeconds = 8.0;
/// Longer than a start that is asked to give up takes, unless the audio system hangs.
constexpr double kShutdownWaitSeconds = 5.0;
constexpr const char* kNoDeviceName = "—";

std::function<std::unique_ptr<AudioController>()>& sharedMaker() {
  static std::function<std::unique_ptr<AudioController>()> maker;
  return maker;
}

}  // namespace

AudioController& AudioController::shared() {
  // Never destroyed: what it was made with ends before the static objects of the program do.
  static AudioController& controller = *sharedMaker()().release();
  return controller;
}

void AudioController::provideShared(std::function<std::unique_ptr<AudioController>()> make) {
  sharedMaker() = std::move(make);
}

AudioController::AudioController(const ControllerHost& host)
    : host_(host),
      hal_(host.engine.hardware),
      processes_(host.engine.hardware),
      settings_(host.defaults),
      engine_(host.engine),
      starter_(host.engine, host.background, engine_),
      loopbackUID_(DeviceRouter::loopbackUID(hal_)),
      idleStandbyEnabled_(settings_.loadIdleStandby()),
      startAtLogin_(host.services.isLoginItemEnabled()) {
  const Change change(*this);
  engine_.gain = static_cast<float>(boost_);
  engine_.showMeter = std::getenv("ORVELLE_DEBUG_METER") != nullptr;
  loadSettings();
  observeHardware();
  refreshDeviceName();
  refreshHALConflicts();
}

AudioController::~AudioController() = default;

void AudioController::observeHardware() {
  engine_.onOutputWillChange = [this](const std::string& uid) { outputWillChange(uid); };
  engine_.onOutputChanged = [this](const AudioDeviceInfo& output) { outputChanged(output); };
  starter_.onLateStop = [this] {
    const Change change(*this, Change::Telling::later);
    rerouteTaps();
    refreshDeviceName();
  };
  hal_.observeDeviceListChanges(whileAlive([this] { devicesChanged(); }));
}

// Start and stop

void AudioController::start() {
  const Change change(*this);
  publish(boostArmed_, false, &AudioController::boostArmedChanged);
  silence_.reset();
  startStandbyWatcher(kRunningPollSeconds);
  publish(startInProgress_, true, &AudioController::startInProgressChanged);
  const std::int64_t attempt = ++startAttempt_;
  starter_.start(loopbackUID_,
                 [this, attempt](const StartOutcome& outcome) { startEnded(attempt, outcome); });
  host_.engine.queue.postAfter(kWatchdogSeconds,
                               whileAlive([this, attempt] { watchStart(attempt); }));
}

/// The attempt goes on: a late success is as good as an early one.
void AudioController::watchStart(std::int64_t attempt) {
  if (attempt == startAttempt_ && startInProgress_) {
    const QString text = "Audio system is not responding. Quit Orvelle and restart " +
                         audioSystemName() + ", then try again.";
    publish(lastError_, text, &AudioController::lastErrorChanged);
    host_.services.playAlertSound();
  }
}

void AudioController::startEnded(std::int64_t attempt, const StartOutcome& outcome) {
  const Change change(*this);
  if (attempt != startAttempt_) {
    return;
  }
  if (outcome.output) {
    startSucceeded();
  } else {
    startFailed(outcome.problem);
  }
}

void AudioController::startFailed(const std::string& problem) {
  publish(startInProgress_, false, &AudioController::startInProgressChanged);
  if (!isOn_) {
    // It may have been the wake-up of a boost that slept, or an earlier start may have made it.
    starter_.stop(true);
    publish(boostStatus_, QString(), &AudioController::boostStatusChanged);
  }
  const QString text = problem.empty() ? "No output device found."
                                       : "Couldn't start: " + QString::fromStdString(problem);
  publish(lastError_, text, &AudioController::lastErrorChanged);
  host_.services.playAlertSound();
  if (!problem.empty()) {
    host_.engine.console.print("Orvelle start failed: " + problem);
  }
}

void AudioController::startSucceeded() {
  publish(lastError_, QString(), &AudioController::lastErrorChanged);
  publish(boostStatus_, QString(), &AudioController::boostStatusChanged);
  boostStartedAt_ = host_.engine.clock.now();
  napActivity_ = host_.services.beginActivity("Orvelle continuous audio boost");
  router_ = std::make_unique<DeviceRouter>(host_.engine, engine_);
  router_->onSwitch = engine_.onOutputChanged;
  router_->start();
  publish(isOn_, true, &AudioController::isOnChanged);
  publish(startInProgress_, false, &AudioController::startInProgressChanged);
  rerouteTaps();
  switchToDevice(engine_.currentOutputUID());
  refreshDeviceName();
  startLevelMeter();
}

void AudioController::stop() {
  const Change change(*this);
  publish(boostArmed_, false, &AudioController::boostArmedChanged);
  silence_.reset();
  stopStandbyWatcher();
  publish(boostStatus_, QString(), &AudioController::boostStatusChanged);
  leaveOn(true);
}

/// What stopping and falling asleep have in common.
void AudioController::leaveOn(bool restoreDefault) {
  ++startAttempt_;
  publish(startInProgress_, false, &AudioController::startInProgressChanged);
  starter_.stop(restoreDefault);
  router_.reset();
  boostStartedAt_.reset();
  publish(isOn_, false, &AudioController::isOnChanged);
  napActivity_.reset();
  rerouteTaps();
  refreshDeviceName();
  stopLevelMeter();
}

void AudioController::toggle() {
  if (startInProgress_) {
    return;
  }
  if (isOn_ || boostArmed_) {
    stop();
  } else {
    start();
  }
}

bool AudioController::shutdown() {
  const Change change(*this);
  for (const auto& app : apps) {
    app->engine.stop();
    app->engine.teardown();
  }
  ++startAttempt_;
  stopStandbyWatcher();
  stopLevelMeter();
  router_.reset();
  napActivity_.reset();
  if (!starter_.settle(kShutdownWaitSeconds)) {
    return false;
  }
  engine_.stop(true);
  return true;
}

void AudioController::rerouteTaps() {
  for (const auto& app : apps) {
    app->reroute();
  }
}

// What the panel shows of the world

/// The new output's settings are taken over when the sound has moved. Until then it must not be
/// louder than either device is meant to be.
void AudioController::outputWillChange(const std::string& uid) {
  const auto stored = store_.find(uid);
  const double boost = stored == store_.end() ? boost_ : std::min(boost_, stored->second.boost);
  engine_.gain = static_cast<float>(uid == currentDeviceUID_ ? boost_ : boost);
}

void AudioController::outputChanged(const AudioDeviceInfo& output) {
  const Change change(*this, Change::Telling::later);  // the engine is in the middle of it
  switchToDevice(output.uid);
  publish(deviceName_, output.name, &AudioController::deviceNameChanged);
}

void AudioController::devicesChanged() {
  // An output that was gone when something had to be put back may be here again.
  if (!isOn_ && !starter_.isBusy() && engine_.hasDebts()) {
    starter_.stop(!boostArmed_);
  }
  refreshDeviceName();
  refreshHALConflicts();
}

void AudioController::refreshDeviceName() {
  const auto preferred = DeviceRouter::preferredOutput(hal_);
  const std::string fedUID = isOn_ ? engine_.currentOutputUID() : "";
  const std::string preferredUID = preferred ? preferred->uid : "";
  switchToDevice(fedUID.empty() ? preferredUID : fedUID);
  std::string name = preferred ? preferred->name : kNoDeviceName;
  if (const auto fed = fedUID.empty() ? std::nullopt : hal_.device(fedUID)) {
    name = fed->name;
  }
  publish(deviceName_, name, &AudioController::deviceNameChanged);
}

void AudioController::refreshHALConflicts() {
  QStringList conflicts;
  for (const std::string& driver : installedConflictDrivers(host_.installedDrivers)) {
    conflicts.append(QString::fromStdString(driver));
  }
  for (const std::string& program : host_.engine.hardware.effectPrograms()) {
    conflicts.append(QString::fromStdString(program));
  }
  publish(activeHALConflicts_, conflicts, &AudioController::activeHALConflictsChanged);
}

QString AudioController::audioSystemName() const {
  const std::string_view name = host_.engine.hardware.systemName();
  return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

QString AudioController::dbLabel() const {
  return QString::fromStdString(gainLabel(boost_));
}

// Start at login

void AudioController::setStartAtLogin(bool isEnabled) {
  const Change change(*this);
  startAtLogin_ = isEnabled;
  updateLoginItem();
  announce(&AudioController::startAtLoginChanged);
}

void AudioController::updateLoginItem() {
  const auto problem =
      startAtLogin_ ? host_.services.registerLoginItem() : host_.services.unregisterLoginItem();
  if (problem) {
    host_.engine.console.print("Login-item update failed: " + *problem);
    host_.services.playAlertSound();
  }
}

// News for the views

void AudioController::announce(Signal changed) {
  if (std::ranges::find(untold_, changed) == untold_.end()) {
    untold_.push_back(changed);
  }
}

void AudioController::tellViews() {
  // Each step anew: who is told may change something, and tell the rest himself.
  while (openChanges_ == 0 && !untold_.empty()) {
    const Signal changed = untold_.front();
    untold_.erase(untold_.begin());
    emit(this->*changed)();
  }
}

MainQueue::Job AudioController::whileAlive(std::function<void()> job) {
  return [this, job = std::move(job), life = std::weak_ptr<const bool>(life_)] {
    if (!life.expired()) {
      const Change change(*this);
      job();
    }
  };
}

}  // namespace orvelle
