#include "tests/session/HardwareSession.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "instruments/WaveFile.h"

namespace orvelle::instruments {

HardwareSession::HardwareSession(const SessionOptions& options)
    : session_(std::make_unique<PrivateSession>(options)),
      panel_(std::make_unique<DesktopPanel>()),
      plugs_(std::make_unique<HotPlug>()) {
  reconnect();
}

void HardwareSession::reconnect() {
  hardware_.reset();
  std::string problem;
  hardware_ = PipeWireHardware::connect(queue_, problem);
  if (!hardware_) {
    throw std::runtime_error(problem);
  }
}

void HardwareSession::endSession() {
  plugs_.reset();
  panel_.reset();
  session_.reset();
}

bool HardwareSession::eventually(const std::function<bool()>& condition, double timeoutSeconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  queue_.runUntilIdle();
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    queue_.runUntilIdle();
  }
  return true;
}

void HardwareSession::settle(double seconds) {
  eventually([] { return false; }, seconds);
}

AudioObjectID HardwareSession::listed(const std::string& uid) {
  AudioObjectID id = kAudioObjectUnknown;
  eventually([&] {
    const auto device = hal().device(uid);
    id = device ? device->id : kAudioObjectUnknown;
    return device.has_value();
  });
  return id;
}

std::unique_ptr<Subprocess> HardwareSession::startPlayer(const std::string& program, float level) {
  const auto file = session_->directory() / (std::to_string(level) + ".wav");
  constexpr int rate = 48000;
  const std::vector<float> constant(std::size_t{30} * rate, level);
  writeWave(file, {rate, {constant, constant}});
  return std::make_unique<Subprocess>(std::vector<std::string>{program, file},
                                      session_->environment());
}

std::size_t HardwareSession::nodesNamed(const std::string& name) const {
  const auto nodes = panel_->session().nodes();
  return static_cast<std::size_t>(std::ranges::count_if(
      nodes, [&](const SessionObject& node) { return node.property(PW_KEY_NODE_NAME) == name; }));
}

AggregateDescription aggregateOf(const std::string& output, const std::string& input) {
  AggregateDescription description;
  description.name = "Test Aggregate";
  description.uid = "test.aggregate";
  description.master = output;
  description.subdevices = {{output, false}, {input, true}};
  return description;
}

}  // namespace orvelle::instruments
