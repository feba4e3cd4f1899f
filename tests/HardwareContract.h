// What every back end must do, as one suite that runs against each of them.
//
// A back end joins by a rig of its own and, beside it, one INSTANTIATE_TEST_SUITE_P of each suite;
// HardwareContract.cpp and TapContract.cpp are compiled into the same executable.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "orvelle/HAL.h"
#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// Uid of the real output that the suites plug first.
inline const std::string kFirstOutput = "contract.speakers";

/// A world around a back end: devices that can be plugged, programs that play, ears at the outputs.
/// Nothing needs to have happened when a call returns; the suite waits for what it wants to see.
class HardwareRig {
 public:
  HardwareRig() = default;
  HardwareRig(const HardwareRig&) = delete;
  HardwareRig& operator=(const HardwareRig&) = delete;
  virtual ~HardwareRig() = default;

  virtual AudioHardware& hardware() = 0;
  /// Serves the main queue, while sound goes on, until `condition` holds; says whether it held
  /// within `timeoutSeconds`. Jobs of the main queue run nowhere else.
  virtual bool waitUntil(const std::function<bool()>& condition, double timeoutSeconds) = 0;

  /// The loopback that is there from the beginning: two channels in, two out.
  virtual std::string loopbackUID() = 0;
  /// Adds a real output with two channels, a volume of 1.0 on the main element and a mute switch.
  virtual void plug(const std::string& uid, const std::string& name,
                    std::uint32_t transportType) = 0;
  virtual void unplug(const std::string& uid) = 0;
  /// Another program makes the device the default output.
  virtual void chooseDefaultOutput(const std::string& uid) = 0;
  /// Another program plays a 1 kHz sine of this peak on both channels of the default output, from
  /// now on. 0 ends it.
  virtual void play(double peak) = 0;
  /// A program of its own, with a bundle identifier, begins to play this constant on both channels
  /// of the default output. Its process id. Ends with the rig, or by `quitPlayer`.
  virtual std::int32_t launchPlayer(double level) = 0;
  virtual void quitPlayer(std::int32_t pid) = 0;
  /// Peak of what the output's listener got lately (some ten milliseconds), after volume and mute.
  virtual double heardPeak(const std::string& uid) = 0;
  /// Names of what the back end has made on behalf of its calls and not unmade.
  virtual std::vector<std::string> leftovers() = 0;
};

struct HardwareContractParam {
  std::string name;
  std::function<std::unique_ptr<HardwareRig>()> makeRig;

  friend std::ostream& operator<<(std::ostream& stream, const HardwareContractParam& param) {
    return stream << param.name;
  }
};

/// Begins with a plugged output "contract.speakers", which is the default output, and ends with the
/// demand that nothing is left behind.
class HardwareContract : public testing::TestWithParam<HardwareContractParam> {
 protected:
  static constexpr double timeoutSeconds = 5.0;

  void SetUp() override;
  void TearDown() override;

  AudioHardware& hardware() { return rig->hardware(); }
  HAL hal() { return HAL(rig->hardware()); }
  bool eventually(const std::function<bool()>& condition) {
    return rig->waitUntil(condition, timeoutSeconds);
  }
  /// Serves the main queue for a while in which nothing is expected to come.
  void settle() {
    rig->waitUntil([] { return false; }, 0.25);
  }
  /// Counts news of a property from now on. Each must come on this thread, which is the main one.
  ListenerToken listen(AudioObjectID object, const PropertyAddress& address, int& changes);
  /// The id of the device with this uid, once it is listed; 0 when it never is.
  AudioObjectID listed(const std::string& uid);
  static AggregateDescription aggregateOf(const std::vector<std::string>& uids);

  std::unique_ptr<HardwareRig> rig;
};

/// The part about programs and taps on them, with an output "contract.other" beside the speakers.
/// To be instantiated too; its cases are in TapContract.cpp.
class TapContract : public HardwareContract {
 protected:
  /// The process object of the program, once it is listed and plays; 0 when it never does.
  AudioObjectID playing(std::int32_t pid);
  std::vector<AudioObjectID> processes();
  void plugOther();
  /// Waits until the two outputs sound at these peaks.
  void expectHeard(double onSpeakers, double onOther);
};

}  // namespace orvelle
