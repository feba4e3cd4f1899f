// The session's own servers are restarted, or the program is held, while it boosts.
//
// ORVELLE_RESTARTS: how many of each.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "tests/session/GuardedSession.h"

namespace orvelle::instruments {
namespace {

constexpr float gain = 2.0F;
constexpr float boostedPeak = gain * formerPeak;
/// What the user has set the boost to, as mixers show it, and the peak of the sine with it.
constexpr float chosenVolume = 0.3F;
constexpr float chosenPeak = gain * sineAmplitude * chosenVolume * chosenVolume * chosenVolume;
const std::vector<std::string> autoWords = {"auto", "--gain", "2"};

int restarts() {
  return numberFrom("ORVELLE_RESTARTS", 2);
}

/// Some restarts in a row, with their figures.
struct Figures {
  std::vector<double> untilSoundMs;
  std::vector<double> louderMs;

  void add(const Recording& recording, std::int64_t sinceNs, float peak = boostedPeak) {
    untilSoundMs.push_back(millisecondsUntilSteady(peak, recording, sinceNs));
    louderMs.push_back(millisecondsAbove(peak, recording));
  }
  void reportAs(const std::string& name) {
    for (auto* figures : {&untilSoundMs, &louderMs}) {
      std::ranges::sort(*figures);
      const std::string what = figures == &untilSoundMs ? ": right again after" : ": louder for";
      report(name + what + ", median", (*figures)[figures->size() / 2], "ms");
      report(name + what + ", worst", figures->back(), "ms");
    }
  }
};

std::unique_ptr<Subprocess> startAuto(BoostSession& session) {
  auto process = session.run(autoWords);
  EXPECT_TRUE(process->waitForLine("Ctrl-C to stop.", patience).has_value())
      << process->standardError();
  EXPECT_TRUE(session.panel().waitForDefault(loopbackName, patience));
  return process;
}

// Would catch, all three: a boost that stays silent after a restart, plays at another level, leaves
// something of its former connection, or does not find the way back at its end.

TEST(Restart, OfThePulseServer) {
  GuardedSession session(std::chrono::seconds(20 + 4 * restarts()));
  const Standing before = session.standing();
  const auto nodes = session.panel().session().nodes().size();
  const auto boost = startAuto(session);
  std::this_thread::sleep_for(milliseconds(500));
  const auto running = session.inventory();
  Figures figures;
  for (int round = 0; round < restarts(); ++round) {
    SCOPED_TRACE(round);
    session.usb().forget();
    const std::int64_t restarted = monotonicNanoseconds();
    session.session().restartPulseServer();
    ASSERT_TRUE(session.usb().waitFor(milliseconds(1500)));
    figures.add(session.usb().take(), restarted);
    EXPECT_LT(figures.untilSoundMs.back(), 1000.0);
    EXPECT_EQ(figures.louderMs.back(), 0.0);
    EXPECT_TRUE(session.returnsTo(running));
    EXPECT_NEAR(session.panel().volume("hw_usb").cubic(), 1.0F, 1e-4F);
    ASSERT_FALSE(boost->wait(milliseconds(0)).has_value()) << boost->standardError();
  }
  figures.reportAs("PulseAudio server");
  boost->signal(SIGINT);
  EXPECT_EQ(boost->wait(patience), 0);
  EXPECT_TRUE(session.millisecondsUntil({before}, monotonicNanoseconds()).has_value())
      << session.standing();
  EXPECT_TRUE(SessionClient::waitFor(
      [&] { return session.panel().session().nodes().size() == nodes; }, milliseconds(1000)));
}

bool hasPorts(const SessionClient& session, const std::string& node) {
  const auto found = session.node(node);
  return found && std::ranges::any_of(session.ports(), [&](const SessionObject& port) {
           return port.idProperty(PW_KEY_NODE_ID) == found->id;
         });
}

/// Restarts what takes the outputs with it, and the players too, while `auto` runs; kills that in
/// the end.
void restartWithPlayers(const std::string& name, bool areManagersOwn,
                        void (PrivateSession::*restart)(), double limitMs) {
  PrivateSession session({.standIns = {usbOutput()}, .areManagersOwn = areManagersOwn});
  {
    DesktopPanel panel;
    panel.setVolume("hw_usb", formerVolume);
    panel.configureSink("hw_usb");
    std::this_thread::sleep_for(milliseconds(1500));  // until the session manager has stored both
  }
  std::vector<std::string> command = autoWords;
  command.insert(command.begin(), ORVELLE_PROGRAM);
  Subprocess boost(command, session.environment());
  ASSERT_TRUE(boost.waitForLine("Ctrl-C to stop.", patience).has_value()) << boost.standardError();
  const std::string aggregate = "app.orvelle.aggregate." + std::to_string(boost.pid());
  DesktopPanel().setVolume(loopbackName, chosenVolume);
  Figures figures;
  for (int round = 0; round < restarts(); ++round) {
    SCOPED_TRACE(round);
    const std::int64_t restarted = monotonicNanoseconds();
    (session.*restart)();
    // A player comes back as soon as there is an output for it.
    DesktopPanel panel;
    ASSERT_TRUE(SessionClient::waitFor(
        [&] { return !panel.defaultSink().empty() && hasPorts(panel.session(), "hw_usb"); },
        patience));
    Recorder recorder("hw_usb");
    const Probe probe(sineSignal(sineHz, sineAmplitude), {});
    ASSERT_TRUE(recorder.waitFor(milliseconds(2000)));
    figures.add(recorder.take(), restarted, chosenPeak);
    // The recording itself begins later than the restart.
    figures.untilSoundMs.back() +=
        static_cast<double>(recorder.take().timeAt(0) - restarted) * 1e-6;
    EXPECT_LT(figures.untilSoundMs.back(), limitMs);
    EXPECT_LT(figures.louderMs.back(), 20.0);
    EXPECT_EQ(panel.defaultSink(), loopbackName);
    EXPECT_EQ(panel.outputsOf("probe"), std::set<std::string>{loopbackName});
    EXPECT_EQ(panel.outputsOf(aggregate), std::set<std::string>{"hw_usb"});
    EXPECT_NEAR(panel.volume("hw_usb").cubic(), 1.0F, 1e-4F);
    EXPECT_NEAR(panel.volume(loopbackName).cubic(), chosenVolume, 1e-4F);
    ASSERT_FALSE(boost.wait(milliseconds(0)).has_value()) << boost.standardError();
  }
  figures.reportAs(name);
  // The guardian has lost the same.
  const pid_t guardian = guardianOf(boost.pid());
  boost.signal(SIGKILL);
  DesktopPanel panel;
  EXPECT_TRUE(SessionClient::waitFor(
      [&] {
        return panel.defaultSink() == "hw_usb" && panel.configuredSink() == "hw_usb" &&
               std::abs(panel.volume("hw_usb").cubic() - formerVolume) < 1e-4F;
      },
      milliseconds(1000)))
      << panel.defaultSink() << " " << panel.configuredSink() << " "
      << panel.volume("hw_usb").cubic();
  EXPECT_TRUE(SessionClient::waitFor([&] { return !isRunning(guardian); }, milliseconds(1000)));
  EXPECT_FALSE(panel.session().node(loopbackName).has_value());
}

// Session managers up to 0.4 link no player any more that was there before them.
TEST(Restart, OfTheSessionManager) {
  restartWithPlayers("session manager", true, &PrivateSession::restartSessionManager, 1000.0);
}

TEST(Restart, OfTheServer) {
  restartWithPlayers("server", false, &PrivateSession::restartServer, 2000.0);
}

// Would catch a tap into which the new session manager links nobody: the program could not play any
// more.
TEST(Restart, OfTheSessionManagerUnderATap) {
  constexpr float tappedPeak = 0.244919F;  // tanh(0.25)
  PrivateSession session({.standIns = {usbOutput()}, .areManagersOwn = true});
  auto player = std::make_unique<Probe>(sineSignal(sineHz, sineAmplitude), ProbeOptions{});
  Subprocess tap({ORVELLE_PROGRAM, "appvol", "--pid", std::to_string(getpid()), "--vol", "0.5"},
                 session.environment());
  ASSERT_TRUE(tap.waitForLine("Ctrl-C to stop.", patience).has_value()) << tap.standardError();
  for (int round = 0; round < restarts(); ++round) {
    SCOPED_TRACE(round);
    session.restartSessionManager();
    const DesktopPanel panel;
    ASSERT_TRUE(SessionClient::waitFor(
        [&] { return !panel.defaultSink().empty() && hasPorts(panel.session(), "hw_usb"); },
        patience));
    const Recorder recorder("hw_usb");
    player.reset();
    player = std::make_unique<Probe>(sineSignal(sineHz, sineAmplitude), ProbeOptions{});
    ASSERT_TRUE(recorder.waitFor(milliseconds(1000)));
    EXPECT_LT(millisecondsUntilSteady(tappedPeak, recorder.take(), 0), 500.0);
    EXPECT_EQ(millisecondsAbove(tappedPeak, recorder.take()), 0.0);
  }
  tap.signal(SIGINT);
  EXPECT_EQ(tap.wait(patience), 0) << tap.standardError();
  const DesktopPanel panel;
  EXPECT_EQ(panel.outputsOf("probe"), std::set<std::string>{"hw_usb"});
}

// Would catch a guardian that takes a held process for a dead one, a graph that the held process
// brings to a standstill, and sound that does not come back.
TEST(Restart, OfAHeldProcess) {
  GuardedSession session;
  const Standing before = session.standing();
  const auto boost = startAuto(session);
  const Probe other(sineSignal(sineHz, sineAmplitude), {.name = "other", .target = "hw_speaker"});
  std::this_thread::sleep_for(milliseconds(500));
  boost->signal(SIGSTOP);
  std::this_thread::sleep_for(milliseconds(4000));
  session.speaker().forget();
  ASSERT_TRUE(session.speaker().waitFor(milliseconds(1000)));
  const double gap =
      longestGapMs(session.speaker().take().channel("FL"), 48000.0, formerPeak / 2.0F);
  report("gap of another application in the last second of 5 s", gap, "ms");
  EXPECT_LT(gap, 50.0);
  EXPECT_EQ(session.panel().defaultSink(), loopbackName);
  session.usb().forget();
  const std::int64_t continued = monotonicNanoseconds();
  boost->signal(SIGCONT);
  ASSERT_TRUE(session.usb().waitFor(milliseconds(1500)));
  Figures figures;
  figures.add(session.usb().take(), continued);
  figures.reportAs("held for 5 s");
  EXPECT_LT(figures.untilSoundMs.back(), 1000.0);
  EXPECT_EQ(figures.louderMs.back(), 0.0);
  boost->signal(SIGINT);
  EXPECT_EQ(boost->wait(patience), 0);
  EXPECT_TRUE(session.millisecondsUntil({before}, monotonicNanoseconds()).has_value());
}

}  // namespace
}  // namespace orvelle::instruments
