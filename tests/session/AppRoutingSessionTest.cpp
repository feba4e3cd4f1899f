// Where the streams of a tapped application go: to the tap and back, whatever happens meanwhile.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <ostream>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "instruments/HotPlug.h"
#include "instruments/Probe.h"
#include "tests/session/AppSession.h"

namespace orvelle::instruments {
namespace {

const double fullLevel = toDecibels(static_cast<double>(quietAmplitude));
/// At volume 0.5, where the curve does not bend yet.
const double halfLevel = toDecibels(static_cast<double>(quietAmplitude) / 2.0);

using Outputs = std::set<std::string>;

/// The default output, one for the tap, and one that the user prefers for an application.
SessionOptions threeOutputs() {
  return {.standIns = {usbOutput(), speaker(), display()}};
}

Signal tone() {
  return sineSignal(toneHz, quietAmplitude);
}

/// How a user sends a stream to an output.
enum class Order : std::uint8_t { none, name, serial, mixer };

struct Wish {
  const char* what;
  std::string ownTarget;  ///< node.name among the stream's own properties; empty: none
  Order before = Order::none;
  Order during = Order::none;
};

void PrintTo(const Wish& wish, std::ostream* stream) {
  *stream << wish.what;
}

bool comesTo(AppSession& session, const std::string& output) {
  return SessionClient::waitFor(
      [&] { return session.panel().outputsOf("player") == Outputs{output}; }, milliseconds(1000));
}

/// The PulseAudio server loses an order now and then.
void sendWithMixer(AppSession& session) {
  const std::vector<std::string> command = {
      "sh", "-c", "pactl move-sink-input $(pactl list short sink-inputs | cut -f 1) hw_display"};
  for (int attempt = 0; attempt < 5; ++attempt) {
    Subprocess mixer(command, session.session().environment());
    ASSERT_EQ(mixer.wait(patience), 0) << mixer.standardError();
    if (comesTo(session, "hw_display")) {
      return;
    }
  }
}

void sendToDisplay(AppSession& session, Order order) {
  DesktopPanel& panel = session.panel();
  if (order == Order::name) {
    panel.sendStream("player", "hw_display");
  } else if (order == Order::serial) {
    panel.sendStream("player", panel.session().node("hw_display")->property("object.serial"));
  } else if (order == Order::mixer) {
    sendWithMixer(session);
  }
}

class AppRoute : public testing::TestWithParam<Wish> {};

// Would catch an application that is left on a tap that is gone, moved to another output than the
// user's, or silent for longer than a breath.
TEST_P(AppRoute, LeadsBackToWhereItWas) {
  const Wish& wish = GetParam();
  AppSession session(threeOutputs());
  DesktopPanel& panel = session.panel();
  const Probe probe(tone(), {.name = "player", .target = wish.ownTarget});
  sendToDisplay(session, wish.before);
  const bool isFree =
      wish.ownTarget.empty() && wish.before == Order::none && wish.during == Order::none;
  const std::string home = isFree ? "hw_usb" : "hw_display";
  if (wish.during == Order::none) {
    ASSERT_TRUE(comesTo(session, home));
  }
  Recorder normalPath(home);
  Recorder tapped("hw_speaker");
  std::string wanted = panel.streamTarget("player");
  const auto before = session.inventory();

  const auto tap = session.tapProbes("0.5", toSpeaker);
  EXPECT_NEAR(levelNow(tapped, toneHz), halfLevel, levelToleranceDb);
  if (wish.during != Order::none) {
    normalPath.forget();
    sendToDisplay(session, wish.during);
    wanted = wish.during == Order::name
                 ? "hw_display"
                 : panel.session().node("hw_display")->property("object.serial");
    ASSERT_TRUE(normalPath.waitFor(milliseconds(300)));
    const Recording moved = normalPath.take();
    report("moved by the user, heard at full volume for", excessOver(halfLevel, moved).milliseconds,
           "ms");
    EXPECT_NEAR(levelNow(tapped, toneHz), halfLevel, levelToleranceDb);
  }
  EXPECT_FALSE(panel.outputsOf("player").contains(home));

  normalPath.forget();
  tapped.forget();
  ASSERT_TRUE(tapped.waitFor(milliseconds(100)));
  const std::int64_t pressed = monotonicNanoseconds();
  AppSession::interruptTap(*tap);
  ASSERT_TRUE(normalPath.waitFor(milliseconds(400)));
  const double sound = millisecondsToSound(normalPath.take(), pressed, 1e-4F);
  const double gap = handOverMs(tapped.take(), normalPath.take());
  report("Ctrl-C to sound on the normal path", sound, "ms");
  report("gap at Ctrl-C", gap, "ms");
  EXPECT_LT(sound, 100.0);
  EXPECT_LT(gap, 50.0);
  EXPECT_NEAR(levelNow(normalPath, toneHz), fullLevel, levelToleranceDb);
  EXPECT_EQ(panel.outputsOf("player"), Outputs{home});
  EXPECT_EQ(panel.streamTarget("player"), wanted);
  if (wish.during == Order::none) {
    EXPECT_TRUE(session.returnsTo(before));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Wishes, AppRoute,
    testing::Values(Wish{"follows the default", ""}, Wish{"pinned by its program", "hw_display"},
                    Wish{"sent by name before", "", Order::name},
                    Wish{"sent by serial before", "", Order::serial},
                    Wish{"sent by a mixer before", "", Order::mixer},
                    Wish{"sent by name meanwhile", "", Order::none, Order::name},
                    Wish{"sent by serial meanwhile", "", Order::none, Order::serial}));

// Would catch an application that falls silent with the tap's output, and one that stays at full
// volume after its return.
TEST(AppRouting, LetsGoWhenTheOutputVanishes) {
  AppSession session(threeOutputs());
  HotPlug plugs;
  const Probe probe(tone(), {.name = "player"});
  Recorder normalPath("hw_usb");
  Recorder tapped("hw_speaker");
  const auto tap = session.tapProbes("0.5", toSpeaker);
  EXPECT_NEAR(levelNow(tapped, toneHz), halfLevel, levelToleranceDb);

  normalPath.forget();
  const std::int64_t unplugged = plugs.unplug("hw_speaker");
  ASSERT_TRUE(normalPath.waitFor(milliseconds(400)));
  const double free = millisecondsToSound(normalPath.take(), unplugged, 1e-4F);
  report("output gone to sound on the normal path", free, "ms");
  EXPECT_LT(free, 100.0);
  EXPECT_NEAR(levelNow(normalPath, toneHz), fullLevel, levelToleranceDb);

  tapped.forget();
  plugs.plug(speaker());
  const std::int64_t plugged = session.panel().session().node("hw_speaker")->appearedNs;
  ASSERT_TRUE(tapped.waitFor(milliseconds(800)));
  const double back = millisecondsToSound(tapped.take(), plugged, 1e-4F);
  report("output back to sound there", back, "ms");
  EXPECT_LT(back, 300.0);
  EXPECT_NEAR(levelNow(tapped, toneHz), halfLevel, levelToleranceDb);
  normalPath.forget();
  ASSERT_TRUE(normalPath.waitFor(milliseconds(200)));
  EXPECT_EQ(peak(normalPath.take().channel("FL")), 0.0F);
  AppSession::interruptTap(*tap);
  EXPECT_TRUE(comesTo(session, "hw_usb"));
}

// Would catch a killed program that leaves an application silent, and leftovers of it in the way of
// the next one.
TEST(AppRouting, AKilledTapLeavesTheApplicationPlaying) {
  AppSession session(threeOutputs());
  const Probe probe(tone(), {.name = "player"});
  Recorder normalPath("hw_usb");
  Recorder tapped("hw_speaker");
  const auto before = session.inventory();
  const auto tap = session.tapProbes("0.5", toSpeaker);
  ASSERT_TRUE(normalPath.waitFor(milliseconds(200)));
  normalPath.forget();
  tapped.forget();
  ASSERT_TRUE(tapped.waitFor(milliseconds(200)));
  tap->signal(SIGKILL);
  EXPECT_EQ(tap->wait(patience), 128 + SIGKILL);
  ASSERT_TRUE(normalPath.waitFor(milliseconds(400)));
  report("gap after the kill", handOverMs(tapped.take(), normalPath.take()), "ms");
  EXPECT_NEAR(levelNow(normalPath, toneHz), fullLevel, levelToleranceDb);
  EXPECT_TRUE(session.returnsTo(before));

  const auto next = session.tapProbes("0.5", toSpeaker);
  EXPECT_NEAR(levelNow(tapped, toneHz), halfLevel, levelToleranceDb);
  AppSession::interruptTap(*next);
  EXPECT_TRUE(comesTo(session, "hw_usb"));
}

// Would catch a tap that trips over a stream that has gone, or leaves one behind.
TEST(AppRouting, StartsAndStopsWhileStreamsComeAndGo) {
  AppSession session(threeOutputs());
  const Probe steady(tone(), {.name = "player"});
  Recorder normalPath("hw_usb");
  const auto before = session.inventory();
  {
    std::jthread browser([](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        const Probe page(constantSignal(0.0F), {.name = "page"});
      }
    });
    for (int round = 0; round < 10; ++round) {
      const auto tap = session.tapProbes("0.5", toSpeaker);
      std::this_thread::sleep_for(milliseconds(100 + 7 * round));
      AppSession::interruptTap(*tap);
    }
  }
  EXPECT_NEAR(levelNow(normalPath, toneHz), fullLevel, levelToleranceDb);
  EXPECT_TRUE(session.returnsTo(before));
}

}  // namespace
}  // namespace orvelle::instruments
