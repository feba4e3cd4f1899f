// Processes and taps of the PipeWire back end: who is listed, where streams go, and that they get
// back what they had.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>

#include "instruments/Probe.h"
#include "tests/TapPlayer.h"
#include "tests/session/HardwareSession.h"

namespace orvelle::instruments {
namespace {

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

/// A tap of this test's own process, unless another is given.
std::unique_ptr<TapPlayer> tapInto(HardwareSession& session, const std::string& output,
                                   const std::string& uuid = "T", std::int32_t pid = getpid()) {
  return std::make_unique<TapPlayer>(session.hardware(), processOf(session, pid), output, 1.0F,
                                     uuid);
}

bool goesTo(HardwareSession& session, const std::string& stream, const std::string& output) {
  return session.eventually(
      [&] { return session.panel().outputsOf(stream) == std::set<std::string>{output}; }, 2.0);
}

bool isTapped(HardwareSession& session, const std::string& stream, const std::string& uuid) {
  return goesTo(session, stream, "app.orvelle.tap." + uuid);
}

// Would catch a program listed under the PulseAudio server's number or another one's name.
TEST(SessionProcesses, AreThePrograms) {
  HardwareSession session(twoOutputs);
  const Probe probe(constantSignal(0.1F), {});
  const auto native = session.startPlayer("pw-play", 0.1F);
  const auto pulse = session.startPlayer("paplay", 0.1F);
  for (const auto& [pid, binary] :
       {std::pair(native->pid(), "pw-cat"), std::pair(pulse->pid(), "pacat"),
        std::pair(getpid(), "orvelle_pipewire_test")}) {
    ASSERT_TRUE(session.eventually([&, pid = pid] { return processOf(session, pid) != 0; }))
        << binary;
    const AudioObjectID process = processOf(session, pid);
    EXPECT_EQ(valueOf<std::string>(session, process, kAudioProcessPropertyBundleID), binary);
    EXPECT_NE(valueOf<std::string>(session, process, kAudioObjectPropertyName), "");
  }
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
  const auto tap = tapInto(session, "hw_first");
  EXPECT_TRUE(goesTo(session, "byDefault", "hw_first")) << "nobody reads the tap";
  tap->start();
  const Probe newcomer(constantSignal(0.1F), {.name = "newcomer"});
  for (const char* stream : {"byDefault", "byName", "bySerial", "byItself", "later", "newcomer"}) {
    EXPECT_TRUE(isTapped(session, stream, "T")) << stream;
  }
  panel.sendStream("later", "hw_second");
  panel.sendStream("byName", "");
  session.settle(0.1);
  EXPECT_TRUE(isTapped(session, "later", "T")) << "taken again";
  EXPECT_TRUE(isTapped(session, "byName", "T"));

  tap->stop();
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
  tap->start();
  EXPECT_TRUE(isTapped(session, "bySerial", "T")) << "and once more";
}

/// The back end's thread does nothing for a while.
void holdBackEnd() {
  std::signal(SIGUSR1, [](int) {
    const timespec duration{0, 300'000'000};
    nanosleep(&duration, nullptr);
  });
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string name;
    std::getline(comm, name);
    if (name == "orvelle-pipewir") {
      syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGUSR1);
    }
  }
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
    // The session manager is faster than the back end, as on a busy machine.
    holdBackEnd();
    const Probe second(constantSignal(0.1F), {.name = "app"});
    ASSERT_TRUE(goesTo(session, "app", "hw_second")) << "the session remembers";
    ASSERT_TRUE(session.eventually([&] { return processOf(session, getpid()) != 0; }));
    const auto tap = tapInto(session, "hw_first");
    tap->start();
    EXPECT_TRUE(isTapped(session, "app", "T"));
    tap->stop();
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
  const auto tap = tapInto(session, "hw_second");
  tap->start();
  ASSERT_TRUE(isTapped(session, "first", "T"));
  for (int round = 0; round < 5; ++round) {
    first.reset();
    first = std::make_unique<Probe>(constantSignal(0.1F), ProbeOptions{.name = "first"});
    EXPECT_TRUE(isTapped(session, "first", "T")) << round;
  }
  tap->stop();
  session.panel().sendStream("first", "app.orvelle.tap.dead");
  session.settle(0.05);
  tap->start();
  EXPECT_TRUE(isTapped(session, "first", "T"));
  tap->stop();
  EXPECT_EQ(session.panel().streamTarget("first"), "");
}

// Would catch two taps that take streams from each other, a stream that was new to both and goes
// astray when they end, another program's stream in a tap, and streams left behind by a back end
// that ends with its taps.
TEST(SessionTap, LeavesOthersAlone) {
  HardwareSession session(twoOutputs);
  const Probe probe(constantSignal(0.1F), {});
  const auto other = session.startPlayer("pw-play", 0.1F);
  ASSERT_TRUE(session.eventually([&] { return processOf(session, other->pid()) != 0; }));
  const auto createMuted = [&](const std::string& uuid) {
    AudioObjectID muted = 0;
    return session.hardware().createProcessTap({.processes = {processOf(session, getpid())},
                                                .uuid = uuid,
                                                .muteBehavior = TapMuteBehavior::muted},
                                               muted);
  };
  std::optional<Probe> newcomer;
  {
    const auto mine = tapInto(session, "hw_second", "mine");
    const auto others = tapInto(session, "hw_second", "others", other->pid());
    mine->start();
    others->start();
    EXPECT_TRUE(isTapped(session, "probe", "mine"));
    EXPECT_TRUE(isTapped(session, "pw-play", "others"));
    const auto again = tapInto(session, "hw_second", "again");
    again->start();
    newcomer.emplace(constantSignal(0.1F), ProbeOptions{.name = "newcomer"});
    EXPECT_TRUE(isTapped(session, "newcomer", "mine") || isTapped(session, "newcomer", "again"));
    EXPECT_TRUE(isTapped(session, "probe", "mine"));
    mine->stop();
    EXPECT_TRUE(isTapped(session, "probe", "again"));
    EXPECT_TRUE(isTapped(session, "newcomer", "again"));
    EXPECT_TRUE(isTapped(session, "pw-play", "others"));
    EXPECT_NE(createMuted("mine"), 0) << "the same name twice";
  }
  for (const char* stream : {"probe", "newcomer", "pw-play"}) {
    EXPECT_TRUE(goesTo(session, stream, "hw_first")) << stream;
    EXPECT_EQ(session.panel().streamTarget(stream), "") << stream;
  }
  ASSERT_EQ(createMuted("muted"), 0);
  EXPECT_TRUE(isTapped(session, "probe", "muted")) << "muted although nobody reads";
  session.reconnect();
  EXPECT_EQ(session.panel().streamTarget("probe"), "");
  EXPECT_TRUE(goesTo(session, "probe", "hw_first"));
}

}  // namespace
}  // namespace orvelle::instruments
