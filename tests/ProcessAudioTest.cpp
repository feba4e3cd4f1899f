#include <gtest/gtest.h>

#include "orvelle/ProcessAudio.h"
#include "orvelle/platform/simulated/KnownApplications.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

namespace {

/// A world whose programs say what they are called, as some back ends can tell.
class NamingHardware final : public SimulatedHardware {
 public:
  using SimulatedHardware::SimulatedHardware;

  OSStatus getPropertyData(AudioObjectID object, const PropertyAddress& address,
                           PropertyValue& value) override {
    const auto named = ownNames.find(object);
    if (named == ownNames.end() || address != PropertyAddress{kAudioObjectPropertyName}) {
      return SimulatedHardware::getPropertyData(object, address, value);
    }
    value = named->second;
    return kAudioHardwareNoError;
  }

  std::map<AudioObjectID, std::string> ownNames;
};

class ProcessAudioTest : public testing::Test {
 protected:
  AudioObjectID launch(std::int32_t pid, const std::string& bundleID, bool isPlaying = true) {
    ProcessDescription program;
    program.pid = pid;
    program.bundleID = bundleID;
    program.isPlaying = isPlaying;
    return hardware.launch(program);
  }

  ManualQueue queue;
  NamingHardware hardware{queue};
  KnownApplications applications;
  ProcessAudio processAudio{hardware};
};

}  // namespace

// Fault: another order, a program that is left out because it cannot be read, or the last of two
// objects of one process.
TEST_F(ProcessAudioTest, ListsEveryProcessObjectInOrder) {
  EXPECT_TRUE(processAudio.all().empty());
  EXPECT_EQ(processAudio.object(7), std::nullopt);
  const AudioObjectID first = launch(7, "org.example.Player");
  const AudioObjectID silent = launch(9, "", false);
  const AudioObjectID twin = launch(7, "twin");
  const AudioObjectID unreadable = launch(8, "unreadable");
  hardware.inject({.kind = CallKind::getPropertyData, .object = unreadable});
  EXPECT_EQ(processAudio.all(),
            (std::vector<AudioProcessInfo>{{first, 7, "org.example.Player", true},
                                           {silent, 9, "", false},
                                           {twin, 7, "twin", true},
                                           {unreadable, 0, "", false}}));
  const auto playing = processAudio.outputting();
  ASSERT_EQ(playing.size(), 2U);
  EXPECT_EQ(playing[0].objectID, first);
  EXPECT_EQ(playing[1].objectID, twin);
  EXPECT_EQ(processAudio.object(7), first);
  EXPECT_EQ(processAudio.object(8), std::nullopt);
  hardware.inject({.kind = CallKind::getPropertyDataSize});
  EXPECT_TRUE(processAudio.processObjectIDs().empty());
}

// Fault: a source of names that is passed over or asked out of turn, and a system service without a
// pid that takes the name of an application.
TEST_F(ProcessAudioTest, NameComesFromTheFirstSourceThatHasOne) {
  applications.names = {{"known", "Known Player"}};
  const AudioObjectID selfNamed = launch(5, "known");
  hardware.ownNames = {{selfNamed, "own name"}};
  const auto name = [&](std::int32_t pid, const std::string& bundleID,
                        AudioObjectID id = kAudioObjectUnknown) {
    return processAudio.name({id, pid, bundleID, true}, applications);
  };
  EXPECT_EQ(name(5, "known", selfNamed), "Known Player");
  EXPECT_EQ(name(5, "unknown", selfNamed), "own name");
  EXPECT_EQ(name(5, "unknown"), "unknown");
  EXPECT_EQ(name(5, ""), "pid 5");
  hardware.ownNames = {{selfNamed, ""}};
  EXPECT_EQ(name(5, "unknown", selfNamed), "unknown");

  hardware.ownNames = {{selfNamed, "own name"}};
  applications.askedPIDs.clear();
  EXPECT_EQ(name(0, "known", selfNamed), "known");
  EXPECT_EQ(name(0, "", selfNamed), "pid 0");
  EXPECT_EQ(name(-3, ""), "pid -3");
  EXPECT_TRUE(applications.askedPIDs.empty());
}

}  // namespace orvelle
