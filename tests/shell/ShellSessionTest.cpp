// The application on a real audio system: however it ends, that sounds as before.
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "instruments/DesktopPanel.h"
#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "orvelle/EngineError.h"
#include "tests/session/BoostSession.h"
#include "tests/shell/ShellRig.h"

namespace orvelle {
namespace {

using instruments::DesktopPanel;
using instruments::PrivateSession;

constexpr const char* kOutput = "hw_usb";
constexpr float kVolume = 0.5F;

class ShellSession : public ShellRig {
 protected:
  ShellSession() : session_({.standIns = {{.name = kOutput, .description = "USB Headphones"}}}) {
    for (const auto& [name, value] : session_.environment()) {
      environment.emplace(name, value);
    }
    environment["XDG_RUNTIME_DIR"] = session_.environment().at("XDG_RUNTIME_DIR");
    environment.erase("ORVELLE_BACKEND");
    desktop_.setVolume(kOutput, kVolume);
    putUpNotifierHost();
    // Alone, without the guardian that would put everything right after it.
    std::filesystem::copy(ORVELLE_PANEL_PROGRAM, panelProgram());
  }

  std::filesystem::path panelProgram() const { return folder.path() / "panel"; }
  float volume() { return desktop_.volume(kOutput).cubic(); }

  void boost() {
    program = launch(panelProgram());
    ASSERT_TRUE(eventually([this] { return hasIcon(); }));
    openPanel();
    input({"key", "Tab", "space"});
    ASSERT_TRUE(eventually([this] { return volume() == 1.0F; })) << program->standardError();
  }

  void expectPutBack(const char* way, int status) {
    EXPECT_EQ(program->wait(milliseconds(5000)), status) << way;
    EXPECT_TRUE(eventually([this] { return volume() == kVolume; }, milliseconds(1000))) << way;
    EXPECT_TRUE(desktop_.waitForDefault(kOutput, milliseconds(1000))) << way;
    notifierHost = nullptr;
    putUpNotifierHost();
  }

  /// As assistive technology does; while it waits, the hosts are served.
  void operate(const std::vector<std::string>& orders) {
    std::vector<std::string> command = {"/usr/bin/python3", ORVELLE_OPERATE};
    command.insert(command.end(), orders.begin(), orders.end());
    Subprocess hand(command, environment);
    ASSERT_TRUE(
        eventually([&] { return hand.wait(milliseconds(0)).has_value(); }, milliseconds(15000)));
    EXPECT_EQ(hand.wait(milliseconds(0)), 0) << hand.standardError();
  }

  std::string settings() const {
    std::ifstream file(environment.at("XDG_CONFIG_HOME") + "/orvelle/orvelle.conf");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// How often the main thread has gone to sleep, and so has been woken.
  long wakeUps() const {
    std::ifstream status("/proc/" + std::to_string(program->pid()) + "/status");
    std::string word;
    while (status >> word && word != "voluntary_ctxt_switches:") {
    }
    long count = 0;
    status >> count;
    return count;
  }

  double mainThreadSeconds() const {
    const std::string id = std::to_string(program->pid());
    std::int64_t nanoseconds = 0;
    std::ifstream("/proc/" + id + "/task/" + id + "/schedstat") >> nanoseconds;
    return static_cast<double>(nanoseconds) * 1e-9;
  }

 private:
  PrivateSession session_;
  DesktopPanel desktop_;
};

// Fault: a way to end it that leaves the output raised.
TEST_F(ShellSession, EveryWayLeadsThroughShutdown) {
  for (const auto& [name, signal] :
       {std::pair("SIGINT", SIGINT), std::pair("SIGTERM", SIGTERM), std::pair("SIGHUP", SIGHUP)}) {
    boost();
    program->signal(signal);
    expectPutBack(name, 0);
  }
  boost();
  input({"key", "ctrl+q"});
  expectPutBack("Ctrl+Q", 0);

  boost();
  const QRect place = panelPlace();
  input(
      {"mousemove", std::to_string(place.x() + 60), std::to_string(place.y() + 440), "click", "1"});
  expectPutBack("Quit button", 0);

  boost();
  display->signal(SIGKILL);
  expectPutBack("end of the display", 1);
}

// Fault: a control that assistive technology cannot find or move, one that moves without effect,
// and a level that is not what the panel says.
TEST_F(ShellSession, IsOperatedByAssistiveTechnology) {
  const double toneHz = 1000.0;  // of a band
  environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
  const instruments::Recorder recorder(kOutput);
  const instruments::Probe tone(
      instruments::sineSignal(toneHz, static_cast<float>(std::pow(10.0, -30.0 / 20.0))), {});
  const auto level = [&] {
    EXPECT_TRUE(recorder.waitFor(milliseconds(600)));
    return instruments::levelNow(recorder, toneHz);
  };
  const double direct = level();
  program = launch(panelProgram());
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  openPanel();

  operate({"press Orvelle", "set Volume Boost=4"});
  ASSERT_TRUE(eventually([this] { return volume() == 1.0F; }));
  EXPECT_NEAR(level() - direct, 12.04, 0.1);
  operate({"press EQ", "press Preset", "press Custom", "set 1 kHz=6"});
  EXPECT_NEAR(level() - direct, 18.04, 0.1);
  operate({"focus Name this preset"});
  input({"type", "Evening"});
  operate({"press Save"});
  EXPECT_TRUE(eventually([this] { return settings().find("Evening") != std::string::npos; }));
  operate({"press Preset", "press Flat"});
  EXPECT_NEAR(level() - direct, 12.04, 0.1);
  operate({"press Preset", "press ★ Evening"});
  EXPECT_NEAR(level() - direct, 18.04, 0.1);
  operate({"press Delete"});
  EXPECT_TRUE(eventually([this] { return settings().find("Evening") == std::string::npos; }));
  operate({"press Quit Orvelle"});
  expectPutBack("assistive technology", 0);
}

// Fault: a battery emptied by a panel that nobody looks at, or by a meter that costs more than the
// sound.
TEST_F(ShellSession, SleepsWhileNothingHappens) {
  const auto duration = milliseconds(3000);
  start();
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  openPanel();
  input({"key", "Escape"});
  ASSERT_TRUE(eventually([this] { return !isPanelOpen(); }));
  std::this_thread::sleep_for(milliseconds(500));
  const long before = wakeUps();
  std::this_thread::sleep_for(duration);
  EXPECT_LE(wakeUps() - before, 1);
  program->signal(SIGTERM);
  expectPutBack("SIGTERM", 0);

  boost();
  const instruments::Probe pulse(
      [](const instruments::PlayedFrame& frame) {
        return frame.index % 48000 < 24000 ? 0.1F : 0.001F;
      },
      {});
  std::this_thread::sleep_for(milliseconds(500));
  const auto perSecond = [duration](double count) {
    return 1000.0 * count / static_cast<double>(duration.count());
  };
  const double usedBefore = mainThreadSeconds();
  const long wokenBefore = wakeUps();
  std::this_thread::sleep_for(duration);
  const double share = perSecond(mainThreadSeconds() - usedBefore);
  const double open = perSecond(static_cast<double>(wakeUps() - wokenBefore));
  std::printf("measured: main thread with the meter moving %.2f %% of a core\n", 100.0 * share);
  // Less than 1 % where nothing else runs. Whoever shares the core, its caches or its other half
  // makes each step take half as long again.
  EXPECT_LT(share, 0.015);

  input({"key", "Escape"});
  ASSERT_TRUE(eventually([this] { return !isPanelOpen(); }));
  std::this_thread::sleep_for(milliseconds(500));
  const long wokenOpen = wakeUps();
  std::this_thread::sleep_for(duration);
  const double closed = perSecond(static_cast<double>(wakeUps() - wokenOpen));
  EXPECT_LT(closed, 10.0) << "eight looks at the windows, and one for silence every other second";
  std::printf(
      "measured: main thread wakes up %.1f times a second with the panel open, %.1f closed\n", open,
      closed);
}

// Fault: a second boost that takes the default output off the first one's, or raises what that one
// has raised; and a switch that does not say why it goes back.
TEST_F(ShellSession, AnotherInstanceKeepsItsBoost) {
  environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
  Subprocess console({ORVELLE_PROGRAM, "auto", "--gain", "2"}, environment);
  ASSERT_TRUE(console.waitForLine("Ctrl-C to stop.", milliseconds(5000)));
  program = launch(panelProgram());
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  openPanel();
  operate({"press Orvelle", "see Couldn't start: " +
                                std::string(EngineError::boostingAlready(console.pid()).what())});
  EXPECT_EQ(volume(), 1.0F);
  program->signal(SIGTERM);
  EXPECT_EQ(program->wait(milliseconds(5000)), 0);
  EXPECT_TRUE(stays([this] { return volume() == 1.0F; }));
  console.signal(SIGINT);
  EXPECT_EQ(console.wait(milliseconds(5000)), 0);
  EXPECT_EQ(volume(), kVolume);
}

}  // namespace
}  // namespace orvelle
