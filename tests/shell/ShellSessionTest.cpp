// The application on a real audio system: however it ends, that sounds as before.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "instruments/DesktopPanel.h"
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

// Fault: a battery emptied by a panel that nobody looks at.
TEST_F(ShellSession, SleepsWhileNothingHappens) {
  start();
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  openPanel();
  input({"key", "Escape"});
  ASSERT_TRUE(eventually([this] { return !isPanelOpen(); }));
  std::this_thread::sleep_for(milliseconds(500));
  const long before = wakeUps();
  std::this_thread::sleep_for(milliseconds(3000));
  EXPECT_LE(wakeUps() - before, 1);
}

}  // namespace
}  // namespace orvelle
