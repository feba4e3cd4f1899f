// The contract of the hardware interface, kept by the PipeWire back end on a real session.
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/HardwareContract.h"
#include "tests/session/HardwareSession.h"

namespace orvelle::instruments {
namespace {

StandIn standIn(const std::string& uid, const std::string& name, std::uint32_t transport) {
  StandIn output{.name = uid, .description = name};
  if (transport != kAudioDeviceTransportTypeUSB) {
    output.bus = "pci";
  }
  if (transport == kAudioDeviceTransportTypeHDMI) {
    output.furtherProperties["device.profile.name"] = "hdmi-stereo";
  }
  return output;
}

class PipeWireRig final : public HardwareRig {
 public:
  AudioHardware& hardware() override { return session_.hardware(); }

  bool waitUntil(const std::function<bool()>& condition, double timeoutSeconds) override {
    return session_.eventually(condition, timeoutSeconds);
  }

  std::string loopbackUID() override { return instruments::loopbackUID; }

  void plug(const std::string& uid, const std::string& name, std::uint32_t transportType) override {
    session_.plugs().plug(standIn(uid, name, transportType));
  }

  void unplug(const std::string& uid) override {
    recorders_.erase(uid);
    session_.plugs().unplug(uid);
  }

  void chooseDefaultOutput(const std::string& uid) override { session_.panel().configureSink(uid); }

  void play(double peak) override {
    player_.reset();
    if (peak > 0.0) {
      player_ = std::make_unique<Probe>(sineSignal(1000.0, static_cast<float>(peak)),
                                        ProbeOptions{.name = "player"});
    }
  }

  std::int32_t launchPlayer(double level) override {
    auto player = session_.startPlayer("pw-play", static_cast<float>(level));
    const std::int32_t pid = player->pid();
    players_[pid] = std::move(player);
    return pid;
  }

  void quitPlayer(std::int32_t pid) override { players_.at(pid).reset(); }

  double heardPeak(const std::string& uid) override {
    std::unique_ptr<Recorder>& recorder = recorders_[uid];
    if (!recorder) {
      recorder = std::make_unique<Recorder>(uid, std::chrono::seconds(120));
    }
    recorder->forget();
    static_cast<void>(recorder->waitFor(milliseconds(30)));
    double loudest = 0.0;
    for (const auto& channel : recorder->take().channels) {
      loudest = std::max(loudest, static_cast<double>(peak(channel)));
    }
    return loudest;
  }

  /// While it is the default output, the loopback is wanted.
  std::vector<std::string> leftovers() override {
    std::vector<std::string> names;
    for (const SessionObject& node : session_.panel().session().nodes()) {
      const std::string name = node.property(PW_KEY_NODE_NAME);
      const bool isUnwantedLoopback = name == instruments::loopbackUID &&
                                      session_.panel().defaultSink() != instruments::loopbackUID;
      if (name == "contract.aggregate" || isUnwantedLoopback) {
        names.push_back(name);
      }
    }
    return names;
  }

 private:
  // With an output from the beginning, so that the session manager is at work before the first
  // test.
  HardwareSession session_{{.standIns = {{.name = "first", .priority = 1}}}};
  std::map<std::string, std::unique_ptr<Recorder>> recorders_;
  std::unique_ptr<Probe> player_;
  std::map<std::int32_t, std::unique_ptr<Subprocess>> players_;  // by pid
};

}  // namespace
}  // namespace orvelle::instruments

namespace orvelle {

namespace {

const auto kPipeWire = testing::Values(
    HardwareContractParam{"PipeWire", [] { return std::make_unique<instruments::PipeWireRig>(); }});

}  // namespace

INSTANTIATE_TEST_SUITE_P(PipeWire, HardwareContract, kPipeWire);
INSTANTIATE_TEST_SUITE_P(PipeWire, TapContract, kPipeWire);

}  // namespace orvelle
