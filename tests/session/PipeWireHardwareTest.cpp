// What the PipeWire back end does beyond the contract: rules that only a session has.
#include <gtest/gtest.h>
#include <pipewire/version.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/session/HardwareSession.h"

namespace orvelle::instruments {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr PropertyAddress devices{kAudioHardwarePropertyDevices};

StandIn usb() {
  return {.name = "hw_usb", .description = "USB Headphones"};
}
StandIn speaker() {
  return {.name = "hw_speaker", .description = "Speaker", .bus = "pci", .priority = 500};
}
StandIn effect() {
  return {.name = "effect", .description = "Effect", .api = "", .bus = "", .priority = 400};
}

struct Channels {
  int inputs = -1;
  int outputs = -1;

  friend bool operator==(const Channels&, const Channels&) = default;
};

Channels channelsOf(HardwareSession& session, const std::string& uid) {
  const auto device = session.hal().device(uid);
  return device ? Channels{device->inputChannels, device->outputChannels} : Channels{};
}

/// Copies the loopback's sound to the headphones.
struct Copying {
  explicit Copying(HardwareSession& session) {
    AudioHardware& hardware = session.hardware();
    EXPECT_EQ(hardware.createAggregateDevice(aggregateOf("hw_usb", loopbackUID), aggregate), 0);
    const auto block = [calls = calls](AudioBufferList input, AudioBufferList output) {
      ++*calls;
      std::memcpy(output[0].mData, input[0].mData, output[0].mDataByteSize);
    };
    EXPECT_EQ(hardware.createIOProcID(aggregate, block, proc), 0);
    EXPECT_EQ(hardware.startDevice(aggregate, proc), 0);
  }

  AudioObjectID aggregate = 0;
  AudioDeviceIOProcID proc = 0;
  std::shared_ptr<std::atomic<int>> calls = std::make_shared<std::atomic<int>>(0);
};

// Devices

// Would catch an effect's sink, which leads back to the default output, taken for a real output;
// and hardware taken for a loopback because of its monitor.
TEST(SessionDevices, SinksWithoutHardwareAreLoopbacks) {
  HardwareSession session(
      {.standIns = {usb(),
                    effect(),
                    {.name = "network",
                     .api = "",
                     .bus = "",
                     .furtherProperties = {{"node.network", "true"}}},
                    {.name = "headset", .mediaClass = "Audio/Duplex"},
                    {.name = "surround", .positions = {"FL", "FR", "FC", "LFE", "SL", "SR"}},
                    {.name = "mono", .positions = {"MONO"}}}});
  EXPECT_EQ(channelsOf(session, "hw_usb"), (Channels{0, 2}));
  EXPECT_EQ(channelsOf(session, "effect"), (Channels{2, 2}));
  EXPECT_EQ(channelsOf(session, "network"), (Channels{0, 2}));
  EXPECT_EQ(channelsOf(session, "headset"), (Channels{2, 2}));
  EXPECT_EQ(channelsOf(session, "surround"), (Channels{0, 6}));
  EXPECT_EQ(channelsOf(session, "mono"), (Channels{0, 1}));
  EXPECT_EQ(channelsOf(session, loopbackUID), (Channels{2, 2}));
  const auto headphones = session.hal().device("hw_usb");
  ASSERT_TRUE(headphones);
  EXPECT_EQ(headphones->name, "USB Headphones");
  EXPECT_EQ(headphones->transportType, kAudioDeviceTransportTypeUSB);
}

// Would catch a machine without a sound card (remote desktop, virtual machine) that has no output
// to boost, our own loopback offered as one, and a list that is not read anew when hardware comes.
TEST(SessionDevices, WithoutHardwareSuchSinksAreTheOutputs) {
  HardwareSession session({.standIns = {effect()}});
  int changes = 0;
  ListenerToken token = 0;
  ASSERT_EQ(session.hardware().addPropertyListener(
                kAudioObjectSystemObject, devices, [&] { ++changes; }, token),
            0);
  EXPECT_EQ(channelsOf(session, "effect"), (Channels{0, 2}));
  ASSERT_EQ(session.hal().setDefaultOutput(session.listed(loopbackUID)), 0);
  ASSERT_EQ(session.nodesNamed(loopbackUID), 1U);
  EXPECT_EQ(channelsOf(session, loopbackUID), (Channels{2, 2})) << "with its node there, too";
  EXPECT_EQ(session.hal().realOutputs().size(), 1U);

  const int before = changes;
  session.plugs().plug(usb());
  EXPECT_TRUE(session.eventually([&] {
    return changes > before && channelsOf(session, "effect") == Channels{2, 2} &&
           channelsOf(session, "hw_usb") == Channels{0, 2};
  }));
  session.plugs().unplug("hw_usb");
  EXPECT_TRUE(session.eventually([&] { return channelsOf(session, "effect") == Channels{0, 2}; }));
  EXPECT_EQ(session.hardware().removePropertyListener(token), 0);
}

// Would catch a volume or mute that somebody else changes and that is not told.
TEST(SessionDevices, TheUsersMixerIsHeard) {
  HardwareSession session({.standIns = {usb()}});
  const AudioObjectID id = session.listed("hw_usb");
  int changes = 0;
  ListenerToken token = 0;
  ASSERT_EQ(session.hardware().addPropertyListener(
                id, volumeOfOutput, [&] { ++changes; }, token),
            0);
  session.panel().setVolume("hw_usb", 0.3F);
  EXPECT_TRUE(session.eventually([&] {
    return changes > 0 && std::abs(session.hal().outputVolume(id).value_or(-1.0F) - 0.3F) < 1e-5F;
  }));
  session.panel().setMute("hw_usb", true);
  EXPECT_TRUE(session.eventually([&] { return session.hal().outputMute(id) == true; }));
  EXPECT_EQ(session.hardware().removePropertyListener(token), 0);
}

// Default output

// Would catch a configured default that we leave behind where the user has none: later hardware
// would never become default again. And one that the user did configure and that is lost.
TEST(SessionDefault, IsConfiguredAfterwardsAsItWasBefore) {
  HardwareSession session({.standIns = {usb(), speaker()}});
  const AudioObjectID loopback = session.listed(loopbackUID);
  ASSERT_EQ(session.panel().configuredSink(), "");
  ASSERT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));

  ASSERT_EQ(session.hal().setDefaultOutput(loopback), 0);
  EXPECT_EQ(session.hal().defaultOutput(), loopback);
  ASSERT_EQ(session.hal().setDefaultOutput(session.listed("hw_usb")), 0);
  EXPECT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));
  session.settle(0.2);
  EXPECT_EQ(session.panel().configuredSink(), "") << "nobody configured anything";
  EXPECT_EQ(session.panel().defaultSink(), "hw_usb");

  // The output that is chosen in the end need not be the one that the session would take.
  ASSERT_EQ(session.hal().setDefaultOutput(loopback), 0);
  ASSERT_EQ(session.hal().setDefaultOutput(session.listed("hw_speaker")), 0);
  session.settle(0.2);
  EXPECT_EQ(session.panel().defaultSink(), "hw_speaker");

  session.panel().configureSink("hw_usb");
  ASSERT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));
  ASSERT_EQ(session.hal().setDefaultOutput(loopback), 0);
  ASSERT_EQ(session.hal().setDefaultOutput(session.listed("hw_speaker")), 0);
  session.settle(0.2);
  EXPECT_EQ(session.panel().defaultSink(), "hw_speaker");
  EXPECT_EQ(session.panel().configuredSink(), "hw_speaker");
}

// Would catch a back end that holds on to the session manager's old metadata after an update.
TEST(SessionDefault, SurvivesARestartOfTheSessionManager) {
  HardwareSession session({.standIns = {usb(), speaker()}});
  const AudioObjectID speakerID = session.listed("hw_speaker");
  session.session().restartSessionManager();
  session.settle(0.5);
  ASSERT_TRUE(session.eventually(
      [&] { return session.hal().defaultOutput() == session.listed("hw_usb"); }));
  EXPECT_EQ(session.hal().setDefaultOutput(speakerID), 0);
  EXPECT_TRUE(session.eventually([&] { return session.hal().defaultOutput() == speakerID; }));
}

// Loopback

// Would catch a loopback that stands in everybody's list of outputs while nothing needs it, and one
// that outlives the program: everything would play into nothing.
TEST(SessionLoopback, IsThereOnlyWhileItIsNeeded) {
  HardwareSession session({.standIns = {usb()}});
  const AudioObjectID loopback = session.listed(loopbackUID);
  const AudioObjectID headphones = session.listed("hw_usb");
  const auto becomes = [&](std::size_t nodes) {
    return session.eventually([&] { return session.nodesNamed(loopbackUID) == nodes; });
  };
  EXPECT_EQ(session.hal().describe(loopback).name, "Orvelle Audio");
  EXPECT_EQ(session.hal().outputVolume(loopback), 1.0F);
  EXPECT_TRUE(becomes(0)) << "asking is not needing";

  AudioObjectID aggregate = 0;
  const AggregateDescription description = aggregateOf("hw_usb", loopbackUID);
  ASSERT_NE(
      session.hardware().createAggregateDevice(aggregateOf(loopbackUID, loopbackUID), aggregate),
      0);
  EXPECT_TRUE(becomes(0)) << "what was refused needs nothing";
  ASSERT_EQ(session.hardware().createAggregateDevice(description, aggregate), 0);
  EXPECT_TRUE(becomes(1));
  ASSERT_EQ(session.hal().setDefaultOutput(loopback), 0);
  ASSERT_EQ(session.hardware().destroyAggregateDevice(aggregate), 0);
  session.settle(0.2);
  EXPECT_TRUE(becomes(1)) << "it is still the default output";
  ASSERT_EQ(session.hal().setDefaultOutput(headphones), 0);
  EXPECT_TRUE(becomes(0));

  ASSERT_EQ(session.hal().setDefaultOutput(loopback), 0);
  EXPECT_TRUE(becomes(1));
  session.reconnect();
  EXPECT_TRUE(becomes(0)) << "its owner is gone";
  EXPECT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));
}

// Would catch two loopbacks of one name where two programs boost, and the first one's boost ended
// by the second: its real output stands at full volume.
TEST(SessionLoopback, AnotherProgramsIsUsedAndLeftAlone) {
  HardwareSession session({.standIns = {usb(), speaker()}});
  session.plugs().plug({.name = loopbackUID, .api = "", .bus = "", .priority = 1});
  session.panel().configureSink(loopbackUID);
  const AudioObjectID loopback = session.listed(loopbackUID);
  ASSERT_TRUE(session.eventually([&] { return session.hal().defaultOutput() == loopback; }));
  std::size_t entries = 0;
  for (const AudioDeviceInfo& device : session.hal().allDevices()) {
    entries += device.uid == loopbackUID ? 1U : 0U;
  }
  EXPECT_EQ(entries, 1U);

  AudioObjectID aggregate = 0;
  ASSERT_EQ(session.hardware().createAggregateDevice(aggregateOf("hw_usb", loopbackUID), aggregate),
            0);
  EXPECT_EQ(session.hal().setDefaultOutput(loopback), 0);
  session.settle(0.1);
  EXPECT_EQ(session.nodesNamed(loopbackUID), 1U);
  EXPECT_NE(session.hal().setDefaultOutput(session.listed("hw_usb")), 0);
  ASSERT_EQ(session.hardware().destroyAggregateDevice(aggregate), 0);
  session.reconnect();
  session.settle(0.2);
  EXPECT_EQ(session.panel().defaultSink(), loopbackUID);
  EXPECT_EQ(session.nodesNamed(loopbackUID), 1U);
}

// Nominal rate

// Would catch a rate that is told and not true, and a switch that is promised and does not happen.
TEST(SessionRate, SwitchesWhereTheDeviceCan) {
  StandIn free{.name = "hw_free"};
  free.furtherProperties["audio.rate"] = "";
  HardwareSession session({.standIns = {free, speaker()}, .allowedRates = {44100, 48000}});
  const AudioObjectID id = session.listed("hw_free");
  EXPECT_EQ(session.hal().nominalSampleRate(session.listed("hw_speaker")), 48000.0);
  const Recorder recorder("hw_free");
  EXPECT_EQ(session.hal().nominalSampleRate(id), 48000.0);
  for (const double rate : {44100.0, 48000.0}) {
    const OSStatus status = session.hal().setNominalSampleRate(id, rate);
    // From 1.0 on such a sink resamples to its own rate while the graph switches.
    const bool isTaken =
        std::string_view(pw_get_library_version()).starts_with("0.") || rate == 48000.0;
    EXPECT_EQ(status == 0, isTaken);
    EXPECT_EQ(session.hal().nominalSampleRate(id), isTaken ? rate : 48000.0);
    if (!isTaken) {
      continue;
    }
    ASSERT_TRUE(recorder.waitFor(milliseconds(100)));
    EXPECT_EQ(recorder.take().rate(), rate) << "the graph's own word";
  }
}

// Would catch a device that is left waiting, or in between, after a rate that it cannot run at.
TEST(SessionRate, IsRefusedWhereTheDeviceIsFixed) {
  HardwareSession session({.standIns = {usb()}, .allowedRates = {44100, 48000}});
  const AudioObjectID id = session.listed("hw_usb");
  for (const double rate : {44100.0, 44100.5, 1e12, 0.0}) {
    EXPECT_NE(session.hal().setNominalSampleRate(id, rate), 0) << rate;
    EXPECT_EQ(session.hal().nominalSampleRate(id), 48000.0);
  }
  EXPECT_EQ(session.nodesNamed("app.orvelle.rate"), 0U);
}

// Callbacks

// Would catch a start that no callback follows, and whatever is left of fifty starts and stops:
// nodes, links, threads, descriptors.
TEST(SessionCallbacks, FiftyStartsAndStopsLeaveNothing) {
  HardwareSession session({.standIns = {usb()}});
  AudioHardware& hardware = session.hardware();
  ASSERT_EQ(session.hal().setDefaultOutput(session.listed(loopbackUID)), 0);
  const Probe player(constantSignal(0.25F), {});
  const auto cycle = [&](int round) {
    const Copying copying(session);
    EXPECT_TRUE(session.eventually([&] { return *copying.calls > round % 4; })) << round;
    if (round % 3 == 0) {
      ASSERT_EQ(hardware.stopDevice(copying.aggregate, copying.proc), 0);
    }
    if (round % 3 != 2) {
      ASSERT_EQ(hardware.destroyIOProcID(copying.aggregate, copying.proc), 0);
    }
    ASSERT_EQ(hardware.destroyAggregateDevice(copying.aggregate), 0);
  };
  const auto counted = [&] {
    const SessionClient& all = session.panel().session();
    return std::pair(all.nodes().size(), all.links().size());
  };
  cycle(0);
  session.settle(0.3);
  const auto objects = counted();
  const ProcessUsage before = usageOf(getpid());
  const auto begin = std::chrono::steady_clock::now();
  for (int round = 0; round < 50; ++round) {
    ASSERT_NO_FATAL_FAILURE(cycle(round));
  }
  const Seconds duration = std::chrono::steady_clock::now() - begin;
  EXPECT_TRUE(session.eventually([&] { return counted() == objects; }))
      << counted().first << " nodes for " << objects.first << ", " << counted().second
      << " links for " << objects.second;
  EXPECT_TRUE(session.eventually([&] {
    const ProcessUsage now = usageOf(getpid());
    return now.threads <= before.threads && now.descriptors <= before.descriptors;
  })) << usageOf(getpid()).threads
      << " threads for " << before.threads << ", " << usageOf(getpid()).descriptors
      << " descriptors for " << before.descriptors;
  std::printf("measured: start and stop: %.1f ms a round; memory: %+ld KiB\n",
              duration.count() * 1e3 / 50, usageOf(getpid()).residentKiB - before.residentKiB);
}

// Would catch calls that hang for ever, or crash, once the session itself has ended under a running
// callback, as at a logout.
TEST(SessionCallbacks, TheSessionMayEnd) {
  HardwareSession session({.standIns = {usb()}});
  const AudioObjectID headphones = session.listed("hw_usb");
  AudioHardware& hardware = session.hardware();
  const Copying copying(session);
  ASSERT_TRUE(session.eventually([&] { return *copying.calls > 0; }));
  session.endSession();

  const auto begin = std::chrono::steady_clock::now();
  session.hal().setOutputVolume(headphones, 0.5F);
  session.hal().setOutputMute(headphones, true);
  EXPECT_GE(session.hal().nominalSampleRate(headphones), 0.0);
  EXPECT_NE(session.hal().setNominalSampleRate(headphones, 44100.0), 0);
  EXPECT_NE(session.hal().setDefaultOutput(session.listed(loopbackUID)), 0);
  hardware.stopDevice(copying.aggregate, copying.proc);
  EXPECT_NE(hardware.startDevice(copying.aggregate, copying.proc), 0);
  EXPECT_EQ(hardware.destroyIOProcID(copying.aggregate, copying.proc), 0);
  EXPECT_EQ(hardware.destroyAggregateDevice(copying.aggregate), 0);
  const Seconds duration = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(duration.count(), 1.0);
  EXPECT_EQ(copying.calls.use_count(), 1);
}

}  // namespace
}  // namespace orvelle::instruments
