// Which programs the PipeWire back end finds between the players and the outputs.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "instruments/Recorder.h"
#include "tests/session/HardwareSession.h"

namespace orvelle::instruments {
namespace {

using Names = std::vector<std::string>;

constexpr const char* equalizerConfiguration = R"(
context.spa-libs = {
  audio.convert.* = audioconvert/libspa-audioconvert
  support.* = support/libspa-support
}
context.modules = [
  { name = libpipewire-module-protocol-native }
  { name = libpipewire-module-client-node }
  { name = libpipewire-module-adapter }
  { name = libpipewire-module-filter-chain args = {
    node.description = "Room Equalizer"
    filter.graph = { nodes = [ { type = builtin name = eq label = bq_peaking } ] }
    audio.channels = 2
    capture.props = { node.name = equalizer media.class = Audio/Sink }
    playback.props = { node.name = equalizer_output }
  } }
])";

class EffectProgramsTest : public testing::Test {
 protected:
  EffectProgramsTest() {
    told_ = hardware().effectPrograms();
    EXPECT_EQ(hardware().addPropertyListener(
                  kAudioObjectSystemObject, {kAudioHardwarePropertyDevices},
                  [this] { told_ = hardware().effectPrograms(); }, token_),
              0);
  }
  ~EffectProgramsTest() override { hardware().removePropertyListener(token_); }

  AudioHardware& hardware() { return session_.hardware(); }

  std::unique_ptr<Subprocess> start(const std::vector<std::string>& command) {
    return std::make_unique<Subprocess>(command, session_.session().environment());
  }

  /// Nobody asks but those who are told of a change.
  testing::AssertionResult areTold(const Names& names) {
    return session_.eventually([&] { return told_ == names; })
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << testing::PrintToString(told_);
  }

  HardwareSession session_{
      {.standIns = {
           {.name = "hw_usb"},
           {.name = "plain", .description = "Plain Output", .api = "", .bus = "", .priority = 1}}}};
  Names told_{"not asked"};
  ListenerToken token_ = 0;
};

// Would catch a kind of effect that is overlooked, one that is told of before it is linked and
// never again, and one that is listed after it has gone.
TEST_F(EffectProgramsTest, AreThoseWhoseSinksLeadToAnOutput) {
  EXPECT_EQ(told_, Names{});
  const auto loopback =
      start({"pw-loopback", "--capture-props=media.class=Audio/Sink node.name=fx"});
  EXPECT_TRUE(areTold({"pw-loopback"}));

  const auto file = session_.session().directory() / "equalizer.conf";
  std::ofstream(file) << equalizerConfiguration;
  const auto equalizer = start({"pipewire", "-c", file});
  EXPECT_TRUE(areTold({"Room Equalizer", "pw-loopback"})) << equalizer->standardError();

  const auto forwarder = start({"pw-loopback", "--capture=plain",
                                "--capture-props=stream.capture.sink=true node.name=forward"});
  EXPECT_TRUE(areTold({"Plain Output", "Room Equalizer", "pw-loopback"}));

  forwarder->signal(SIGTERM);
  loopback->signal(SIGTERM);
  EXPECT_TRUE(areTold({"Room Equalizer"}));
  session_.plugs().unplug("hw_usb");
  EXPECT_TRUE(areTold({})) << "it leads nowhere";
}

// Would catch a null sink that is taken for an effect because somebody records it, or because this
// program boosts from it.
TEST_F(EffectProgramsTest, AreNotThoseThatArePlayedOnByNobody) {
  const Recorder recorder("plain");
  const auto recording = start(
      {"pw-record", "--target=plain", "--properties={ stream.capture.sink = true }", "/dev/null"});
  const auto player = session_.startPlayer("pw-play", 0.1F);
  AggregateDescription boost = aggregateOf("hw_usb", "plain");
  boost.uid = "app.orvelle.aggregate.test";
  AudioObjectID aggregate = 0;
  AudioDeviceIOProcID proc = 0;
  ASSERT_EQ(hardware().createAggregateDevice(boost, aggregate), 0);
  ASSERT_EQ(hardware().createIOProcID(
                aggregate, [](auto, auto) {}, proc),
            0);
  ASSERT_EQ(hardware().startDevice(aggregate, proc), 0);
  ASSERT_TRUE(session_.eventually(
      [&] { return session_.panel().outputsOf("pw-play").contains("hw_usb"); }));
  session_.settle(0.3);
  EXPECT_EQ(hardware().effectPrograms(), Names{});
}

}  // namespace
}  // namespace orvelle::instruments
