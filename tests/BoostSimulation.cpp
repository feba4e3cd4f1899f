#include "tests/BoostSimulation.h"

namespace orvelle {

namespace {

DeviceDescription perChannelOutput(const std::string& uid) {
  DeviceDescription device = stereoOutput(uid, kAudioDeviceTransportTypeUSB);
  device.volumes = {{1, {0.4F}}, {2, {0.4F}}};
  return device;
}

DeviceDescription fixedOutput(const std::string& uid) {
  DeviceDescription device = stereoOutput(uid, kAudioDeviceTransportTypeHDMI);
  device.volumes.clear();
  device.mute.reset();
  return device;
}

DeviceDescription surroundOutput(const std::string& uid) {
  DeviceDescription device = stereoOutput(uid, kAudioDeviceTransportTypeDisplayPort, 0.7F);
  device.outputBuffers = {2, 4};
  return device;
}

}  // namespace

BoostSimulation::BoostSimulation(std::uint64_t seed, Tally& tally) : random_(seed), tally_(tally) {
  for (const DeviceDescription& device :
       {stereoOutput("usb", kAudioDeviceTransportTypeUSB, 0.3F), perChannelOutput("channels"),
        stereoOutput("blue", kAudioDeviceTransportTypeBluetooth, 0.8F), headset("headset"),
        stereoOutput("le", kAudioDeviceTransportTypeBluetoothLE, 0.2F), fixedOutput("fixed"),
        surroundOutput("surround")}) {
    away_[device.uid] = device;
  }
  asTheUserLeftIt_ = away_;
  for (const std::string& uid : {kSpeakers, kLoopback}) {
    asTheUserLeftIt_[uid] = hardware_.device(uid);
  }
  hardware_.quitProcess(rig_.program);
  for (std::size_t index = 0; index < kPlayers; ++index) {
    players_[index].tap = std::make_unique<ProcessTapEngine>(host());
    players_[index].tap->showMeter = false;
    launch(index);
  }
  rig_.engine->showMeter = false;
  hardware_.afterChange = [this] { listen(); };
}

void BoostSimulation::step() {
  hardware_.clearLog();
  rig_.console.lines.clear();
  countedCalls_ = 0;
  struct Choice {
    std::size_t weight;
    void (BoostSimulation::*act)();
  };
  constexpr std::array<Choice, 18> choices = {{{10, &BoostSimulation::plug},
                                               {9, &BoostSimulation::unplug},
                                               {12, &BoostSimulation::chooseDefault},
                                               {12, &BoostSimulation::start},
                                               {5, &BoostSimulation::stop},
                                               {4, &BoostSimulation::startOrDropRouter},
                                               {4, &BoostSimulation::launchOrQuit},
                                               {3, &BoostSimulation::playOrPause},
                                               {10, &BoostSimulation::startOrStopTap},
                                               {2, &BoostSimulation::changeTapVolume},
                                               {14, &BoostSimulation::injectFault},
                                               {6, &BoostSimulation::injectListenerFault},
                                               {14, &BoostSimulation::letTimePass},
                                               {4, &BoostSimulation::changeVolume},
                                               {3, &BoostSimulation::changeMute},
                                               {3, &BoostSimulation::changeGain},
                                               {6, &BoostSimulation::calm},
                                               {1, &BoostSimulation::newEngine}}};
  std::size_t total = 0;
  for (const Choice& choice : choices) {
    total += choice.weight;
  }
  std::size_t drawn = below(total);
  for (const Choice& choice : choices) {
    if (drawn < choice.weight) {
      (this->*choice.act)();
      break;
    }
    drawn -= choice.weight;
  }
  if (rig_.engine->currentOutputUID() == "headset") {
    // Its inputs could not be read, so it was taken for a mere output. The loopback now feeds
    // itself, until the user begins anew.
    newEngine();
  }
  listen();
  expectNothingTooMuch();
}

std::string BoostSimulation::story() const {
  std::string text;
  for (const std::string& line : story_) {
    text += "  " + line + "\n";
  }
  for (const std::string& line : hardware_.logTexts()) {
    text += "    " + line + "\n";
  }
  return text;
}

// Devices

void BoostSimulation::plug() {
  if (away_.empty()) {
    return;
  }
  const auto chosen = std::next(away_.begin(), static_cast<std::ptrdiff_t>(below(away_.size())));
  DeviceDescription device = chosen->second;
  if (below(2) == 0) {
    // The session remembers the volume that the user gave it.
    device.volumes = asTheUserLeftIt_.at(device.uid).volumes;
    device.mute = asTheUserLeftIt_.at(device.uid).mute;
  }
  note("plug " + device.uid);
  away_.erase(chosen);
  hardware_.plug(device);
  if (device.uid != kLoopback && isLouderThanTheUserLeftIt(device.uid)) {
    returnedLoud_.insert(device.uid);
  }
  worldMoved();
}

void BoostSimulation::unplug() {
  const std::string uid = anyPlugged();
  // A system without any output is no system to boost.
  if (asTheUserLeftIt_.size() < away_.size() + 4 || (uid == kLoopback && below(4) != 0)) {
    return;
  }
  note("unplug " + uid);
  away_[uid] = hardware_.unplug(uid);
  if (rig_.engine->isRunning()) {
    owed_.insert(uid);
  }
  worldMoved();
}

void BoostSimulation::chooseDefault() {
  const std::string uid = anyPlugged();
  note("choose " + uid);
  hardware_.chooseDefaultOutput(uid);
  worldMoved();
  if (below(3) != 0) {
    pump(0.05);
  }
}

/// The world may put programs, or a tap, on a device that stands raised without its loopback. Until
/// the engine has had its turn nobody can help that.
void BoostSimulation::worldMoved() {
  if (hardware_.defaultOutputUID() == kLoopback) {
    return;
  }
  for (const auto& [uid, device] : asTheUserLeftIt_) {
    const bool isExposed = uid == hardware_.defaultOutputUID() || away_.contains(kLoopback);
    if (isExposed && uid != kLoopback && !away_.contains(uid) && isLouderThanTheUserLeftIt(uid)) {
      exposed_.insert(uid);
    }
  }
}

void BoostSimulation::changeVolume() {
  const std::string uid = rig_.engine->isRunning() ? kLoopback : anyPlugged();
  constexpr std::array<float, 5> volumes = {0.0F, 0.2F, 0.5F, 0.8F, 1.0F};
  const float volume = volumes[below(volumes.size())];
  if (owed_.contains(uid)) {
    return;
  }
  note("volume of " + uid + " = " + std::to_string(volume));
  hardware_.setVolume(uid, volume);
  rememberUsersChoice(uid);
}

void BoostSimulation::changeMute() {
  const std::string uid = rig_.engine->isRunning() ? kLoopback : anyPlugged();
  if (hardware_.device(uid).mute && !owed_.contains(uid)) {
    note("mute or unmute " + uid);
    hardware_.setMute(uid, !*hardware_.device(uid).mute);
    rememberUsersChoice(uid);
  }
}

// Boost and router

void BoostSimulation::start() {
  const std::vector<std::string> outputs = pluggedOutputs();
  if (rig_.engine->isRunning() || outputs.empty()) {
    return;
  }
  const std::string uid = below(20) == 0 ? "nowhere" : outputs[below(outputs.size())];
  countRefusals();
  guardsRefusedBefore_ = refused_[CallKind::addPropertyListener];
  const std::string error = rig_.startError(kLoopback, uid);
  note("start on " + uid + " " + error);
  ++tally_.starts;
  hasBeenStarted_ = true;
  if (!error.empty()) {
    putRight();
  }
}

void BoostSimulation::stop() {
  const bool restoreDefault = below(3) != 0;
  note(restoreDefault ? "stop" : "stop, default stays");
  rig_.engine->stop(restoreDefault);
  putRight();
}

void BoostSimulation::startOrDropRouter() {
  note(router_ ? "router goes" : "router comes");
  if (router_) {
    router_.reset();
    return;
  }
  router_ = std::make_unique<DeviceRouter>(host(), *rig_.engine);
  router_->onSwitch = [this](const AudioDeviceInfo& output) {
    tally_.switches += rig_.engine->isRunning() ? 1 : 0;
    note("switched to " + output.uid);
  };
  const std::size_t listenersBefore = hardware_.listenerCount();
  router_->start();
  routerHears_ = hardware_.listenerCount() > listenersBefore;
  observers_ += routerHears_ ? 1 : 0;
}

void BoostSimulation::changeGain() {
  constexpr std::array<float, 3> gains = {1.0F, 2.0F, 4.0F};
  rig_.engine->gain = gains[below(gains.size())];
  note("gain");
}

void BoostSimulation::newEngine() {
  stop();
  note("another engine");
  const float gain = rig_.engine->gain;
  router_.reset();
  // What the old one still owed it cannot pay any more: the user does.
  rig_.engine = std::make_unique<BoostEngine>(host());
  rig_.engine->showMeter = false;
  rig_.engine->gain = gain;
  hasBeenStarted_ = false;
  for (auto& [uid, device] : away_) {
    device.volumes = asTheUserLeftIt_.at(uid).volumes;
    device.mute = asTheUserLeftIt_.at(uid).mute;
    owed_.erase(uid);
  }
}

// Programs and taps

void BoostSimulation::launch(std::size_t index) {
  ProcessDescription program;
  program.pid = static_cast<std::int32_t>(index) + 1;
  program.signal = [index](std::int64_t frame, std::uint32_t) {
    return static_cast<std::size_t>(frame) % kPlayers == index ? kSource : 0.0F;
  };
  players_[index].process = hardware_.launch(program);
  players_[index].isPlaying = true;
}

void BoostSimulation::launchOrQuit() {
  const std::size_t index = 1 + below(kPlayers - 1);
  Player& player = players_[index];
  note((player.process == kAudioObjectUnknown ? "launch " : "quit ") + std::to_string(index));
  if (player.process == kAudioObjectUnknown) {
    launch(index);
  } else {
    hardware_.quitProcess(std::exchange(player.process, kAudioObjectUnknown));
    player.isPlaying = false;
  }
}

void BoostSimulation::playOrPause() {
  const std::size_t index = below(kPlayers);
  Player& player = players_[index];
  if (player.process != kAudioObjectUnknown) {
    note("play or pause " + std::to_string(index));
    player.isPlaying = !player.isPlaying;
    hardware_.setPlaying(player.process, player.isPlaying);
  }
}

void BoostSimulation::startOrStopTap() {
  const std::size_t index = 1 + below(kPlayers - 1);
  Player& player = players_[index];
  note((player.tap->isRunning() ? "stop tap of " : "start tap of ") + std::to_string(index));
  player.isChanging = true;
  if (player.tap->isRunning()) {
    player.tap->stop();
    player.tapped = kAudioObjectUnknown;
  } else {
    startTap(player);
  }
  player.isChanging = false;
}

void BoostSimulation::startTap(Player& player) {
  const std::vector<std::string> outputs = pluggedOutputs();
  player.outputUID = outputs.empty() || below(20) == 0 ? "nowhere" : outputs[below(outputs.size())];
  try {
    player.tap->start(behindDoor(player.process, hardware_, *rig_.door), player.outputUID);
    player.tapped = player.process;
    ++tally_.taps;
    note("  on " + player.outputUID);
  } catch (const EngineError& error) {
    note(std::string("  ") + error.what());
    player.tap->teardown();
  }
}

void BoostSimulation::changeTapVolume() {
  constexpr std::array<float, 5> volumes = {0.0F, 0.25F, 1.0F, 1.0F, 2.0F};
  players_[1 + below(kPlayers - 1)].tap->volume = volumes[below(volumes.size())];
  note("volume of a tap");
}

// What goes wrong

void BoostSimulation::injectFault() {
  constexpr auto kinds = static_cast<std::size_t>(CallKind::destroyProcessTap) + 1;
  hardware_.clearFaults();
  Fault fault;
  if (below(2) == 0) {
    fault.kind = static_cast<CallKind>(below(kinds));
  }
  fault.skip = below(fault.kind ? 3 : 60);
  // What fails again and again, until retries run out, is making things. If unmaking did, a running
  // callback would stay, and nobody could end it.
  const bool isCreation = fault.kind == CallKind::createAggregateDevice ||
                          fault.kind == CallKind::createIOProcID ||
                          fault.kind == CallKind::startDevice;
  fault.count = isCreation && below(2) == 0 ? 12 : 1;
  fault.effect = below(2) == 0 ? FaultEffect::fail : FaultEffect::failAfterwards;
  if (fault.kind == CallKind::setPropertyData) {
    fault.effect = static_cast<FaultEffect>(below(4));
    fault.delaySeconds = 0.01 * static_cast<double>(1 + below(25));
  }
  note("fault: kind " + (fault.kind ? std::to_string(static_cast<int>(*fault.kind)) : "any") +
       " skip " + std::to_string(fault.skip) + " effect " +
       std::to_string(static_cast<int>(fault.effect)));
  hardware_.inject(fault);
}

void BoostSimulation::injectListenerFault() {
  ListenerFault fault;
  fault.isLost = below(2) == 0;
  fault.delaySeconds = 0.05 * static_cast<double>(below(20));
  fault.count = 1 + below(3);
  note(fault.isLost ? "news get lost" : "news are late");
  hardware_.injectListenerFault(fault);
}

void BoostSimulation::letTimePass() {
  note("time passes");
  pump(0.01 * static_cast<double>(below(100)));
}

// Small things

void BoostSimulation::pump(double seconds) {
  const double end = rig_.queue.now() + seconds;
  // A tap that waits for sound has to get some.
  constexpr double pieceSeconds = 0.04;
  while (!tapsAreImmediate() && rig_.queue.now() + pieceSeconds < end) {
    rig_.queue.advance(pieceSeconds);
    hardware_.runCycle(kFrames);
  }
  rig_.queue.advance(std::max(0.0, end - rig_.queue.now()));
}

std::string BoostSimulation::anyPlugged() {
  std::vector<std::string> uids;
  for (const auto& [uid, device] : asTheUserLeftIt_) {
    if (!away_.contains(uid)) {
      uids.push_back(uid);
    }
  }
  return uids[below(uids.size())];
}

/// What the program offers: outputs without inputs.
std::vector<std::string> BoostSimulation::pluggedOutputs() const {
  std::vector<std::string> uids;
  for (const auto& [uid, device] : asTheUserLeftIt_) {
    if (!away_.contains(uid) && device.inputBuffers.empty()) {
      uids.push_back(uid);
    }
  }
  return uids;
}

void BoostSimulation::note(const std::string& line) {
  story_.push_back(line);
  if (story_.size() > 25) {
    story_.erase(story_.begin());
  }
}

}  // namespace orvelle
