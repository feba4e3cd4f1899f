// Processes and taps of the PipeWire back end: who is listed, where streams go, and that they get
// back what they had.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <optional>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "instruments/Subprocess.h"
#include "instruments/WaveFile.h"
#include "tests/session/HardwareSession.h"

namespace orvelle::instruments {
namespace {

constexpr PropertyAddress processList{kAudioHardwarePropertyProcessObjectList};

const SessionOptions twoOutputs{
    .standIns = {{.name = "hw_first"}, {.name = "hw_second", .priority = 500}}};

template <class Value>
Value valueOf(const HardwareSession& session, AudioObjectID object, std::uint32_t selector) {
  PropertyValue value;
  EXPECT_EQ(session.hardware().getPropertyData(object, {selector}, value), 0);
  const Value* typed = std::get_if<Value>(&value);
  return typed == nullptr ? Value{} : *typed;
}

/// 0 while there is none.
AudioObjectID processOf(const HardwareSession& session, std::int32_t pid) {
  const auto all = valueOf<std::vector<AudioObjectID>>(session, kAudioObjectSystemObject,
                                                       kAudioHardwarePropertyProcessObjectList);
  for (const AudioObjectID id : all) {
    if (valueOf<std::int32_t>(session, id, kAudioProcessPropertyPID) == pid) {
      return id;
    }
  }
  return kAudioObjectUnknown;
}

std::unique_ptr<Subprocess> player(HardwareSession& session, const std::string& program) {
  const auto file = session.session().directory() / "tone.wav";
  WaveFile wave{48000, {{}, {}}};
  for (int frame = 0; frame < 48000 * 20; ++frame) {
    for (std::vector<float>& channel : wave.channels) {
      channel.push_back(0.1F);
    }
  }
  writeWave(file, wave, WaveFormat::float32);
  return std::make_unique<Subprocess>(std::vector<std::string>{program, file},
                                      session.session().environment());
}

/// A tap of this test's own process that is read into an output.
class TapToOutput {
 public:
  TapToOutput(HardwareSession& session, const std::string& uuid, const std::string& sink,
              std::int32_t pid = getpid())
      : hardware_(session.hardware()) {
    const AudioObjectID process = processOf(session, pid);
    EXPECT_EQ(hardware_.createProcessTap({.processes = {process},
                                          .uuid = uuid,
                                          .muteBehavior = TapMuteBehavior::mutedWhenTapped},
                                         tap_),
              0);
    AggregateDescription description;
    description.name = "Test Tap";
    description.uid = "app.orvelle.appvol.1";  // the same for every one of them
    description.master = sink;
    description.subdevices = {{sink, false}};
    description.taps = {{uuid, true}};
    EXPECT_EQ(hardware_.createAggregateDevice(description, aggregate_), 0);
    const auto block = [](AudioBufferList input, AudioBufferList output) {
      std::memcpy(output[0].mData, input[0].mData, output[0].mDataByteSize);
    };
    EXPECT_EQ(hardware_.createIOProcID(aggregate_, block, proc_), 0);
  }
  TapToOutput(const TapToOutput&) = delete;
  TapToOutput& operator=(const TapToOutput&) = delete;
  ~TapToOutput() {
    EXPECT_EQ(hardware_.destroyIOProcID(aggregate_, proc_), 0);
    EXPECT_EQ(hardware_.destroyAggregateDevice(aggregate_), 0);
    EXPECT_EQ(hardware_.destroyProcessTap(tap_), 0);
  }

  void start() { EXPECT_EQ(hardware_.startDevice(aggregate_, proc_), 0); }
  void stop() { EXPECT_EQ(hardware_.stopDevice(aggregate_, proc_), 0); }
  [[nodiscard]] AudioObjectID id() const { return tap_; }

 private:
  AudioHardware& hardware_;
  AudioObjectID tap_ = kAudioObjectUnknown;
  AudioObjectID aggregate_ = kAudioObjectUnknown;
  AudioDeviceIOProcID proc_ = 0;
};

bool goesTo(HardwareSession& session, const std::string& stream, const std::string& output) {
  return session.eventually(
      [&] { return session.panel().outputsOf(stream) == std::set<std::string>{output}; }, 2.0);
}

bool isTapped(HardwareSession& session, const std::string& stream, const std::string& uuid) {
  return goesTo(session, stream, "app.orvelle.tap." + uuid);
}

// Would catch a process that is missing, listed twice or under the PulseAudio server's number, one
// that stays, and a listener that hears nothing.
TEST(SessionProcesses, AreThoseThatPlay) {
  HardwareSession session(twoOutputs);
  int changes = 0;
  ListenerToken token = 0;
  ASSERT_EQ(session.hardware().addPropertyListener(
                kAudioObjectSystemObject, processList, [&] { ++changes; }, token),
            0);
  const auto count = [&] {
    return valueOf<std::vector<AudioObjectID>>(session, kAudioObjectSystemObject,
                                               kAudioHardwarePropertyProcessObjectList)
        .size();
  };
  EXPECT_EQ(count(), 0U);
  {
    const Probe first(constantSignal(0.1F), {.name = "first"});
    const Probe second(constantSignal(0.1F), {.name = "second", .isPaused = true});
    ASSERT_TRUE(session.eventually([&] { return count() == 1; }));
    const auto native = player(session, "pw-play");
    const auto pulse = player(session, "paplay");
    for (const auto& [pid, binary] :
         {std::pair(native->pid(), "pw-cat"), std::pair(pulse->pid(), "pacat"),
          std::pair(getpid(), "orvelle_pipewire_test")}) {
      ASSERT_TRUE(session.eventually([&, pid = pid] {
        const AudioObjectID id = processOf(session, pid);
        return id != 0 && valueOf<std::uint32_t>(session, id, kAudioProcessPropertyIsRunningOutput);
      })) << binary;
      EXPECT_EQ(
          valueOf<std::string>(session, processOf(session, pid), kAudioProcessPropertyBundleID),
          binary);
      EXPECT_NE(valueOf<std::string>(session, processOf(session, pid), kAudioObjectPropertyName),
                "");
    }
    EXPECT_EQ(count(), 3U);
  }
  EXPECT_TRUE(session.eventually([&] { return count() == 0; }));
  EXPECT_GE(changes, 4);
}

// Would catch a process whose streams come and go and that is another one each time: taps would
// lose it.
TEST(SessionProcesses, AreTheSameWhenTheyComeBack) {
  HardwareSession session(twoOutputs);
  AudioObjectID before = kAudioObjectUnknown;
  for (int round = 0; round < 2; ++round) {
    const Probe probe(constantSignal(0.1F), {});
    ASSERT_TRUE(session.eventually([&] { return processOf(session, getpid()) != 0; }));
    const AudioObjectID now = processOf(session, getpid());
    EXPECT_TRUE(round == 0 || now == before);
    before = now;
  }
  EXPECT_TRUE(session.eventually([&] { return processOf(session, getpid()) == 0; }));
  EXPECT_EQ(session.hardware().createProcessTap({.processes = {before}, .uuid = "late"}, before),
            kAudioHardwareUnsupportedOperationError)
      << "on both paths at once";
}

// Would catch a stream that is forgotten, a user's own choice that is lost, whether it was made
// before or during the tap, and a wish of the program's own.
TEST(SessionTap, GivesEachStreamBackWhatItHad) {
  HardwareSession session(twoOutputs);
  const Probe byDefault(constantSignal(0.1F), {.name = "byDefault"});
  const Probe byName(constantSignal(0.1F), {.name = "byName"});
  const Probe bySerial(constantSignal(0.1F), {.name = "bySerial"});
  const Probe byItself(constantSignal(0.1F), {.name = "byItself", .target = "hw_second"});
  const Probe later(constantSignal(0.1F), {.name = "later"});
  DesktopPanel& panel = session.panel();
  const std::string serial = panel.session().node("hw_second")->property("object.serial");
  panel.sendStream("byName", "hw_second");
  panel.sendStream("bySerial", serial);
  ASSERT_TRUE(goesTo(session, "bySerial", "hw_second"));
  TapToOutput tap(session, "T", "hw_first");
  EXPECT_TRUE(goesTo(session, "byDefault", "hw_first")) << "nobody reads the tap";
  tap.start();
  const Probe newcomer(constantSignal(0.1F), {.name = "newcomer"});
  for (const char* stream : {"byDefault", "byName", "bySerial", "byItself", "later", "newcomer"}) {
    EXPECT_TRUE(isTapped(session, stream, "T")) << stream;
  }
  panel.sendStream("later", "hw_second");
  panel.sendStream("byName", "");
  session.settle(0.1);
  EXPECT_TRUE(isTapped(session, "later", "T")) << "taken again";
  EXPECT_TRUE(isTapped(session, "byName", "T"));

  tap.stop();
  EXPECT_EQ(panel.streamTarget("byDefault"), "");
  EXPECT_EQ(panel.streamTarget("byName"), "") << "the user has let it go meanwhile";
  EXPECT_EQ(panel.streamTarget("bySerial"), serial);
  EXPECT_EQ(panel.streamTarget("byItself"), "");
  EXPECT_EQ(panel.streamTarget("later"), "hw_second") << "the user has sent it there meanwhile";
  for (const char* stream : {"byDefault", "byName", "newcomer"}) {
    EXPECT_TRUE(goesTo(session, stream, "hw_first")) << stream;
  }
  for (const char* stream : {"bySerial", "byItself", "later"}) {
    EXPECT_TRUE(goesTo(session, stream, "hw_second")) << stream;
  }
  tap.start();
  EXPECT_TRUE(isTapped(session, "bySerial", "T")) << "and once more";
}

// Would catch an application whose remembered output is forgotten for its next streams, because one
// of them has been tapped.
TEST(SessionTap, LetsTheSessionRememberAnApplicationsOutput) {
  HardwareSession session(twoOutputs);
  {
    const Probe first(constantSignal(0.1F), {.name = "app"});
    session.panel().sendStream(
        "app", session.panel().session().node("hw_second")->property("object.serial"));
    ASSERT_TRUE(goesTo(session, "app", "hw_second"));
  }
  {
    const Probe second(constantSignal(0.1F), {.name = "app"});
    ASSERT_TRUE(goesTo(session, "app", "hw_second")) << "the session remembers";
    TapToOutput tap(session, "T", "hw_first");
    tap.start();
    EXPECT_TRUE(isTapped(session, "app", "T"));
    tap.stop();
    EXPECT_TRUE(goesTo(session, "app", "hw_second"));
  }
  const Probe third(constantSignal(0.1F), {.name = "app"});
  EXPECT_TRUE(goesTo(session, "app", "hw_second"));
}

// Would catch a stream that counts as tapped because an earlier one of its number was, and one that
// nobody taps any more because a killed process did.
TEST(SessionTap, TakesWhatOnlyLooksTaken) {
  HardwareSession session(twoOutputs);
  auto first = std::make_unique<Probe>(constantSignal(0.1F), ProbeOptions{.name = "first"});
  TapToOutput tap(session, "T", "hw_second");
  tap.start();
  ASSERT_TRUE(isTapped(session, "first", "T"));
  for (int round = 0; round < 5; ++round) {
    first.reset();
    first = std::make_unique<Probe>(constantSignal(0.1F), ProbeOptions{.name = "first"});
    EXPECT_TRUE(isTapped(session, "first", "T")) << round;
  }
  tap.stop();
  session.panel().sendStream("first", "app.orvelle.tap.dead");
  session.settle(0.05);
  tap.start();
  EXPECT_TRUE(isTapped(session, "first", "T"));
  tap.stop();
  EXPECT_EQ(session.panel().streamTarget("first"), "");
}

// Would catch an application that is heard nowhere while the tap's output is away.
TEST(SessionTap, LetsGoWhileItsOutputIsAway) {
  HardwareSession session(twoOutputs);
  const Probe probe(constantSignal(0.1F), {});
  TapToOutput tap(session, "T", "hw_second");
  tap.start();
  ASSERT_TRUE(isTapped(session, "probe", "T"));
  session.plugs().unplug("hw_second");
  EXPECT_TRUE(goesTo(session, "probe", "hw_first"));
  session.plugs().plug({.name = "hw_second", .priority = 500});
  EXPECT_TRUE(isTapped(session, "probe", "T"));
}

// Would catch two taps that take streams from each other, another program's stream in a tap, and
// streams left behind by a back end that ends with its taps.
TEST(SessionTap, LeavesOthersAlone) {
  HardwareSession session(twoOutputs);
  const Probe probe(constantSignal(0.1F), {});
  const auto other = player(session, "pw-play");
  ASSERT_TRUE(session.eventually([&] { return processOf(session, other->pid()) != 0; }));
  {
    TapToOutput mine(session, "mine", "hw_second");
    TapToOutput others(session, "others", "hw_second", other->pid());
    mine.start();
    others.start();
    EXPECT_TRUE(isTapped(session, "probe", "mine"));
    EXPECT_TRUE(isTapped(session, "pw-play", "others"));
    TapToOutput again(session, "again", "hw_second");
    again.start();
    EXPECT_TRUE(isTapped(session, "probe", "mine"));
    mine.stop();
    EXPECT_TRUE(isTapped(session, "probe", "again"));
    EXPECT_TRUE(isTapped(session, "pw-play", "others"));
    AudioObjectID taken = 0;
    EXPECT_NE(session.hardware().createProcessTap({.processes = {processOf(session, getpid())},
                                                   .uuid = "mine",
                                                   .muteBehavior = TapMuteBehavior::muted},
                                                  taken),
              0)
        << "the same name twice";
  }
  EXPECT_TRUE(goesTo(session, "probe", "hw_first"));
  EXPECT_TRUE(goesTo(session, "pw-play", "hw_first"));
  AudioObjectID muted = 0;
  ASSERT_EQ(session.hardware().createProcessTap({.processes = {processOf(session, getpid())},
                                                 .uuid = "muted",
                                                 .muteBehavior = TapMuteBehavior::muted},
                                                muted),
            0);
  EXPECT_TRUE(isTapped(session, "probe", "muted")) << "muted although nobody reads";
  session.reconnect();
  EXPECT_EQ(session.panel().streamTarget("probe"), "");
  EXPECT_TRUE(goesTo(session, "probe", "hw_first"));
}

}  // namespace
}  // namespace orvelle::instruments
