// The parts of the PipeWire back end that need no session.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <span>
#include <vector>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/pipewire/ProcessIdentity.h"
#include "orvelle/platform/pipewire/StereoCycle.h"
#include "orvelle/platform/pipewire/Transport.h"
#include "orvelle/platform/pipewire/Volume.h"

namespace orvelle::pipewire {
namespace {

// Transport

// Would catch a headset taken for a loudspeaker (they rank differently as outputs), a screen taken
// for the built-in output because both sit on the same bus, and hardware without a known bus taken
// for a loopback.
TEST(Transport, FollowsFromWhatNodeAndCardTell) {
  const auto on = [](const char* bus) { return Properties{{"device.bus", bus}}; };
  const auto alsa = [](Properties more = {}) {
    more["device.api"] = "alsa";
    return more;
  };
  const auto screen = alsa({{"device.profile.name", "hdmi-surround-extra1"}});
  const auto analogue = alsa({{"device.profile.name", "analog-stereo"}});
  struct Case {
    const char* name;
    Properties node;
    Properties card;
    std::uint32_t transport;
  };
  for (const Case& each : std::vector<Case>{
           {"told by its card", analogue, alsa(on("pci")), kAudioDeviceTransportTypeBuiltIn},
           {"system on a chip", alsa(), on("platform"), kAudioDeviceTransportTypeBuiltIn},
           {"screen on the same bus", screen, on("pci"), kAudioDeviceTransportTypeHDMI},
           {"USB, told by the card", alsa(), on("usb"), kAudioDeviceTransportTypeUSB},
           {"USB, told by the node", alsa(on("usb")), {}, kAudioDeviceTransportTypeUSB},
           {"the node knows better", alsa(on("usb")), on("pci"), kAudioDeviceTransportTypeUSB},
           {"FireWire", alsa(), on("firewire"), kAudioDeviceTransportTypeFireWire},
           {"by interface", {{"device.api", "bluez5"}}, {}, kAudioDeviceTransportTypeBluetooth},
           {"by its bus", alsa(), on("bluetooth"), kAudioDeviceTransportTypeBluetooth},
           {"unheard-of bus", alsa(), on("quantum"), kAudioDeviceTransportTypeUnknown},
           {"network", {{"node.network", "true"}}, {}, kAudioDeviceTransportTypeUnknown},
           {"null sink", {{"node.name", "null"}}, {}, kAudioDeviceTransportTypeVirtual},
           {"nothing known at all", {}, {}, kAudioDeviceTransportTypeVirtual},
       }) {
    EXPECT_EQ(transportOf(each.node, each.card), each.transport) << each.name;
  }
}

// Would catch an effect program's sink taken for hardware: boosting into it would feed back.
TEST(Transport, OnlyCardsRadiosAndNetworksAreBehindANode) {
  EXPECT_TRUE(hasDeviceBehind({{"device.api", "alsa"}}));
  EXPECT_TRUE(hasDeviceBehind({{"node.network", "true"}}));
  EXPECT_FALSE(hasDeviceBehind({{"node.network", "false"}}));
  EXPECT_FALSE(hasDeviceBehind({{"device.api", ""}}));
  EXPECT_FALSE(hasDeviceBehind({{"node.virtual", "true"}}));
}

// Processes

// Would catch a program of the PulseAudio server listed as the server, and a sandboxed one as the
// process outside that happens to have the number it has inside.
TEST(ProcessIdentity, IsWhatCanBeBelieved) {
  const Properties native = {{"pipewire.sec.pid", "70"}, {"application.name", "Connection"}};
  const Properties pulse = {{"client.api", "pipewire-pulse"},
                            {"pipewire.sec.pid", "40"},
                            {"application.process.id", "71"},
                            {"application.process.binary", "browser"}};
  const auto sandboxed = [](Properties client) {
    client["pipewire.access.portal.app_id"] = "org.example.App";
    return client;
  };
  const Properties stream = {{"application.process.id", "2"}, {"application.name", "Stream"}};
  struct Case {
    Properties stream;
    Properties client;
    std::int32_t pid;
    std::string bundleID;
    std::string name;
  };
  for (const Case& each :
       {Case{{}, native, 70, "", "Connection"}, Case{stream, native, 2, "", "Stream"},
        Case{{}, pulse, 71, "browser", ""},
        Case{{{"application.id", "org.example.Browser"}}, pulse, 71, "org.example.Browser", ""},
        Case{stream, sandboxed(native), 70, "org.example.App", "Stream"},
        Case{stream, sandboxed(pulse), 0, "org.example.App", "Stream"},
        Case{{{"application.name", "two\nlines\xC2\x9B[2J"}}, native, 70, "", "two lines [2J"},
        Case{{{"application.process.id", "12x"}}, {}, 0, "", ""},
        Case{{{"application.process.id", "-5"}}, native, 70, "", "Connection"}}) {
    const ProcessIdentity identity = identify(each.stream, each.client);
    EXPECT_EQ(identity.pid, each.pid);
    EXPECT_EQ(identity.bundleID, each.bundleID);
    EXPECT_EQ(identity.name, each.name);
  }
}

// Volume

// Would catch a scalar that is not the one that mixers show, and one that is cut at 1.0.
TEST(VolumeScale, IsTheCubeRootOfTheLoudestChannel) {
  EXPECT_FLOAT_EQ(scalarFromVolumes(std::array{0.125F, 0.125F}), 0.5F);
  EXPECT_FLOAT_EQ(scalarFromVolumes(std::array{0.001F, 0.064F, 0.0F}), 0.4F);
  EXPECT_FLOAT_EQ(scalarFromVolumes(std::array{3.375F}), 1.5F);
  EXPECT_EQ(scalarFromVolumes(std::array{0.0F, 0.0F}), 0.0F);
  EXPECT_EQ(scalarFromVolumes({}), 0.0F);
  const std::vector<float> stereo = {1.0F, 1.0F};
  EXPECT_EQ(volumesFromScalar(1.0F, stereo), stereo) << "full is exactly full";
  EXPECT_FLOAT_EQ(volumesFromScalar(0.5F, stereo)[0], 0.125F);
  EXPECT_FLOAT_EQ(volumesFromScalar(1.5F, stereo)[1], 3.375F);
}

// Would catch a balance that drifts while the volume is turned, or is lost for good at silence.
TEST(VolumeScale, KeepsTheBalance) {
  const std::vector<float> leaning = {0.25F, 0.5F, 0.0F};
  std::vector<float> volumes = leaning;
  for (const float scalar : {1.0F, 0.3F, 2.0F, 0.01F, 1.0F}) {
    volumes = volumesFromScalar(scalar, volumes);
    EXPECT_FLOAT_EQ(volumes[1], scalar * scalar * scalar);
    EXPECT_FLOAT_EQ(volumes[0], volumes[1] / 2.0F);
    EXPECT_EQ(volumes[2], 0.0F);
    EXPECT_FLOAT_EQ(scalarFromVolumes(volumes), scalar);
  }
  EXPECT_EQ(volumesFromScalar(0.0F, leaning), (std::vector<float>{0.0F, 0.0F, 0.0F}));
  EXPECT_EQ(volumesFromScalar(1.0F, std::array{0.0F, 0.0F}), (std::vector<float>{1.0F, 1.0F}))
      << "silence has no proportions, and must not become not-a-number";
}

// One cycle

/// What a block was given, piece by piece.
struct Pieces {
  std::vector<std::size_t> frames;
  std::vector<float> samples;
};

/// Notes its input and writes it back, left and right exchanged and the right side halved.
IOBlock exchangingBlock(Pieces& pieces) {
  return [&pieces](AudioBufferList input, AudioBufferList output) {
    ASSERT_EQ(input.size(), 1U);
    ASSERT_EQ(output.size(), 1U);
    ASSERT_EQ(input[0].mNumberChannels, 2U);
    ASSERT_EQ(output[0].mNumberChannels, 2U);
    ASSERT_EQ(input[0].mDataByteSize, output[0].mDataByteSize);
    const std::size_t count = input[0].mDataByteSize / sizeof(float);
    const std::span<const float> from(static_cast<const float*>(input[0].mData), count);
    const std::span<float> to(static_cast<float*>(output[0].mData), count);
    pieces.frames.push_back(count / 2);
    pieces.samples.insert(pieces.samples.end(), from.begin(), from.end());
    for (std::size_t frame = 0; frame < count / 2; ++frame) {
      to[2 * frame] = from[2 * frame + 1];
      to[2 * frame + 1] = 0.5F * from[2 * frame];
    }
  };
}

std::vector<float> ramp(std::size_t frames, float first) {
  std::vector<float> plane(frames);
  std::iota(plane.begin(), plane.end(), first);
  return plane;
}

// Would catch exchanged channels, a mono output that hears one side only or twice the level, and
// pieces of a long cycle that overlap, repeat or lose frames.
TEST(StereoCycleTest, CarriesEverySampleThroughCyclesOfAnyLength) {
  constexpr std::size_t limit = 8192;
  for (const std::size_t frames :
       {std::size_t{1}, std::size_t{1023}, limit, limit + 1, 2 * limit, 2 * limit + 700}) {
    SCOPED_TRACE(frames);
    Pieces pieces;
    StereoCycle cycle(exchangingBlock(pieces));
    const std::vector<float> left = ramp(frames, 1.0F);
    const std::vector<float> right = ramp(frames, 100'000.0F);
    std::vector<float> outputLeft(frames + 1, -7.0F);
    std::vector<float> outputRight(frames + 1, -7.0F);
    std::vector<float> outputMono(frames + 1, -7.0F);
    cycle.run({left.data(), right.data(), outputLeft.data(), outputRight.data(), outputMono.data()},
              static_cast<std::uint32_t>(frames));

    ASSERT_EQ(pieces.samples.size(), 2 * frames);
    std::size_t wrong = 0;
    for (std::size_t frame = 0; frame < frames; ++frame) {
      const bool isRight = pieces.samples[2 * frame] == left[frame] &&
                           pieces.samples[2 * frame + 1] == right[frame] &&
                           outputLeft[frame] == right[frame] &&
                           outputRight[frame] == 0.5F * left[frame] &&
                           outputMono[frame] == 0.5F * (right[frame] + 0.5F * left[frame]);
      wrong += isRight ? 0U : 1U;
    }
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(outputLeft[frames], -7.0F) << "written behind the end";
    EXPECT_EQ(outputMono[frames], -7.0F) << "written behind the end";
    for (const std::size_t piece : pieces.frames) {
      EXPECT_LE(piece, limit);
    }
  }
}

// Would catch a crash or old samples where a channel is not linked: the ports of a device that has
// just vanished have no buffers, and of a long cycle that holds for every piece.
TEST(StereoCycleTest, UnlinkedChannelsAreSilentAndUnwanted) {
  constexpr std::uint32_t frames = 10'000;
  Pieces pieces;
  StereoCycle cycle(exchangingBlock(pieces));
  const std::vector<float> sound(frames, 0.5F);
  std::vector<float> outputLeft(frames, -7.0F);
  std::vector<float> outputRight(frames, -7.0F);
  cycle.run({.inputLeft = sound.data(), .inputRight = sound.data()}, frames);
  cycle.run({.inputRight = sound.data(),
             .outputLeft = outputLeft.data(),
             .outputRight = outputRight.data()},
            frames);
  EXPECT_EQ(outputLeft, sound);
  EXPECT_EQ(outputRight, std::vector<float>(frames, 0.0F));
  cycle.run({.outputLeft = outputLeft.data()}, frames);
  EXPECT_EQ(outputLeft, std::vector<float>(frames, 0.0F));
  cycle.run({.outputLeft = outputLeft.data()}, 0);
  EXPECT_EQ(pieces.samples.size(), std::size_t{3} * frames * 2);
}

// Would catch a factor on the wrong side, one that outlives its time, and a copy that is not exact
// without one.
TEST(StereoCycleTest, FactorsActOnWhatTheBlockPlays) {
  StereoCycle cycle([](AudioBufferList input, AudioBufferList output) {
    std::memcpy(output[0].mData, input[0].mData, output[0].mDataByteSize);
  });
  // One vector, and a rest.
  const std::vector<float> input = {0.1F, -0.7F, 1.5F, 0.2F, -0.3F, 0.9F};
  std::vector<float> left(6);
  std::vector<float> right(6);
  std::vector<float> mono(6);
  const auto run = [&](float leftFactor, float rightFactor) {
    cycle.setOutputFactors(leftFactor, rightFactor);
    cycle.run({input.data(), input.data(), left.data(), right.data(), mono.data()}, 6);
  };
  run(0.5F, 0.0F);
  EXPECT_EQ(left, (std::vector<float>{0.05F, -0.35F, 0.75F, 0.1F, -0.15F, 0.45F}));
  EXPECT_EQ(right, std::vector<float>(6, 0.0F));
  EXPECT_EQ(mono, (std::vector<float>{0.025F, -0.175F, 0.375F, 0.05F, -0.075F, 0.225F}));
  run(1.0F, 1.0F);
  EXPECT_EQ(left, input);
  EXPECT_EQ(right, input);
}

// Would catch the last sound repeated for ever as a buzz once the block's owner is gone.
TEST(StereoCycleTest, ABlockThatWritesNothingIsSilent) {
  constexpr std::uint32_t frames = 256;
  bool isGone = false;
  StereoCycle cycle([&](AudioBufferList, AudioBufferList output) {
    if (!isGone) {
      std::fill_n(static_cast<float*>(output[0].mData), 2 * frames, 0.5F);
    }
  });
  std::vector<float> left(frames);
  std::vector<float> right(frames);
  std::vector<float> mono(frames);
  const StereoPlanes planes{
      .outputLeft = left.data(), .outputRight = right.data(), .outputMono = mono.data()};
  cycle.run(planes, frames);
  EXPECT_EQ(mono, std::vector<float>(frames, 0.5F));
  isGone = true;
  cycle.run(planes, frames);
  EXPECT_EQ(left, std::vector<float>(frames, 0.0F));
  EXPECT_EQ(right, std::vector<float>(frames, 0.0F));
  EXPECT_EQ(mono, std::vector<float>(frames, 0.0F));
}

}  // namespace
}  // namespace orvelle::pipewire
