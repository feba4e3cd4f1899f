// The application on a desktop: its icon, its window, one instance.
#include <QLibraryInfo>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/shell/SettingsPortal.h"
#include "tests/shell/ShellRig.h"

namespace orvelle {
namespace {

using instruments::monotonicNanoseconds;
using instruments::usageOf;

/// The bolt at 0.4 over the wave at 0.34.
constexpr int kFaint = 154;
constexpr int kOpaque = 255;

double millisecondsBetween(std::int64_t fromNs, std::int64_t toNs) {
  return static_cast<double>(toNs - fromNs) / 1e6;
}

std::string mappedFiles(pid_t process) {
  std::ostringstream text;
  text << std::ifstream("/proc/" + std::to_string(process) + "/maps").rdbuf();
  return text.str();
}

enum class Host { notifier, xEmbed };

class TrayTest : public ShellRig, public testing::WithParamInterface<Host> {
 protected:
  void putUpHost() {
    if (GetParam() == Host::notifier) {
      putUpNotifierHost();
    } else {
      xEmbedHost = std::make_unique<XEmbedHost>();
    }
  }
  void takeDownHost() {
    notifierHost.reset();
    xEmbedHost.reset();
  }
};

// Fault: no icon, a click that does nothing, a panel somewhere else, in the task bar or under other
// windows, or one that cannot be closed in one of the usual ways, or opens again by the very click
// that closes it.
TEST_P(TrayTest, AClickOpensThePanelAndEverythingElseClosesIt) {
  putUpHost();
  start();
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  EXPECT_TRUE(stays([this] { return !isPanelOpen(); }));

  openPanel();
  const QRect place = panelPlace();
  EXPECT_EQ(place.size(), QSize(300, 620));
  EXPECT_TRUE(QRect(0, 0, 1280, 1024).contains(place));
  if (xEmbedHost) {
    EXPECT_EQ(place.right(), 1279);
    EXPECT_NEAR(place.top(), XEmbedHost::kSize, 2) << "not below the icon";
  }
  const std::string state = panelProperty("_NET_WM_STATE");
  EXPECT_NE(state.find("_NET_WM_STATE_ABOVE"), std::string::npos) << state;
  EXPECT_NE(state.find("_NET_WM_STATE_SKIP_TASKBAR"), std::string::npos) << state;

  const auto isClosed = [this] { return !isPanelOpen(); };
  input({"key", "Escape"});
  EXPECT_TRUE(eventually(isClosed)) << "Escape";
  openPanel();
  clickIcon();
  EXPECT_TRUE(eventually(isClosed)) << "second click";
  EXPECT_TRUE(stays(isClosed)) << "opened again by the click that closed it";
  openPanel();
  const Subprocess other({"xmessage", "-center", "another window"}, environment);
  EXPECT_TRUE(eventually(isClosed)) << "another window";
}

// Fault: an icon that never shows because its host was late, or that is gone for good after a crash
// of the host; no way to the panel meanwhile; two of them afterwards.
TEST_P(TrayTest, TheHostMayComeLateAndComeBack) {
  start();
  ASSERT_TRUE(eventually([this] { return isPanelOpen(); })) << "no window though there is no tray";
  EXPECT_NE(panelProperty("_NET_WM_WINDOW_TYPE").find("_NORMAL"), std::string::npos);
  EXPECT_EQ(panelProperty("_NET_WM_STATE").find("SKIP_TASKBAR"), std::string::npos);
  const Subprocess other({"xmessage", "-center", "another window"}, environment);
  EXPECT_TRUE(stays([this] { return isPanelOpen(); })) << "closed though it is a plain window";

  for (int round = 0; round < 3; ++round) {
    putUpHost();
    ASSERT_TRUE(eventually([this] { return hasIcon(); })) << "round " << round;
    EXPECT_TRUE(eventually([this] { return !isPanelOpen(); }));
    openPanel();
    EXPECT_NE(panelProperty("_NET_WM_STATE").find("SKIP_TASKBAR"), std::string::npos);
    input({"key", "Escape"});
    ASSERT_TRUE(eventually([this] { return !isPanelOpen(); }));
    takeDownHost();
    EXPECT_TRUE(stays([this] { return !isPanelOpen(); })) << "a window nobody asked for";
  }
}

INSTANTIATE_TEST_SUITE_P(Hosts, TrayTest, testing::Values(Host::notifier, Host::xEmbed),
                         [](const testing::TestParamInfo<Host>& host) {
                           return host.param == Host::notifier ? "Notifier" : "XEmbed";
                         });

class ShellTest : public ShellRig {
 protected:
  [[nodiscard]] double residentMB() const {
    return static_cast<double>(usageOf(program->pid()).residentKiB) / 1024.0;
  }
};

// Fault: an icon that does not tell whether the boost is on.
TEST_F(ShellTest, TheIconFollowsTheBoost) {
  putUpNotifierHost();
  start();
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  EXPECT_EQ(notifierHost->shade().opacity, kFaint);
  openPanel();
  input({"key", "Tab", "space"});
  EXPECT_TRUE(eventually([this] { return notifierHost->shade().opacity == kOpaque; }));
  input({"key", "space"});
  EXPECT_TRUE(eventually([this] { return notifierHost->shade().opacity == kFaint; }));
}

// Fault: two icons and two boosts; a second start that seems to do nothing; a program that does not
// start any more because it was killed once.
TEST_F(ShellTest, ThereIsOneInstance) {
  putUpNotifierHost();
  const auto first = launch();
  const auto second = launch();
  ASSERT_TRUE(
      eventually([&] { return first->wait(milliseconds(0)) || second->wait(milliseconds(0)); }));
  auto& running = first->wait(milliseconds(0)) ? second : first;
  EXPECT_EQ((running == first ? second : first)->wait(milliseconds(0)), 0);
  EXPECT_TRUE(eventually([this] { return isPanelOpen(); }));
  EXPECT_TRUE(stays([&] { return !running->wait(milliseconds(0)); }));

  running->signal(SIGKILL);
  running->wait(milliseconds(5000));
  start();
  EXPECT_FALSE(program->wait(milliseconds(500)));
  EXPECT_FALSE(isPanelOpen());
  EXPECT_EQ(launch()->wait(milliseconds(5000)), 0);
  EXPECT_TRUE(eventually([this] { return isPanelOpen(); }));
}

// Fault: a black icon on the dark bar, and light windows, where the desktop is dark and has told
// its portal alone.
TEST_F(ShellTest, FollowsTheDesktopsFace) {
  SettingsPortal portal(busAddress().c_str(), {{"org.freedesktop.appearance", "color-scheme", 1U}});
  putUpNotifierHost();
  start();
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  EXPECT_TRUE(eventually([this] { return notifierHost->shade().brightness == kOpaque; }));
  portal.change({"org.freedesktop.appearance", "color-scheme", 0U});
  EXPECT_TRUE(eventually([this] { return notifierHost->shade().brightness == 0; }));
}

// Fault: a crash report instead of a line where there is no display; a click that ends everything
// without a word where a part of Qt is missing.
TEST_F(ShellTest, WhatIsMissingIsSaid) {
  const auto copy = folder.path() / "panel";
  std::filesystem::copy(ORVELLE_PANEL_PROGRAM, copy);
  std::ofstream(folder.path() / "qt.conf")
      << "[Paths]\nQmlImports=/nowhere\nPlugins="
      << QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString() << "\n";
  putUpNotifierHost();
  program = launch(copy);
  ASSERT_TRUE(eventually([this] { return hasIcon(); }));
  openPanel();
  EXPECT_NE(panelPlace().size(), QSize(300, 620)) << "no box";
  EXPECT_TRUE(stays([this] { return !program->wait(milliseconds(0)); }));
  input({"key", "Escape"});
  EXPECT_EQ(program->wait(milliseconds(5000)), 1);

  environment["DISPLAY"] = ":4711";
  start();
  EXPECT_EQ(program->wait(milliseconds(5000)), 1);
  EXPECT_EQ(program->lines().size(), 1U) << program->standardError();
}

// Fault: a desktop on which nothing happens where there is no sound server, one that stays without
// when it has come, and a program that then only a kill ends.
TEST_F(ShellTest, WaitsForTheSoundServer) {
  putUpNotifierHost();
  environment["ORVELLE_BACKEND"] = "pipewire";
  const auto startWithBox = [this] {
    start();
    ASSERT_TRUE(program->waitForLine("PipeWire", milliseconds(5000)));
    ASSERT_TRUE(eventually([this] { return isPanelOpen(); })) << "no box";
  };
  startWithBox();
  input({"key", "Escape"});
  EXPECT_EQ(program->wait(milliseconds(5000)), 1);
  EXPECT_EQ(program->lines().size(), 1U) << program->standardError();
  startWithBox();
  program->signal(SIGTERM);
  EXPECT_EQ(program->wait(milliseconds(5000)), 0);

  startWithBox();
  const Subprocess other({"xmessage", "-center", "another window"}, environment);
  ASSERT_TRUE(eventually([this] { return input({"getactivewindow"}) != panel(); }));
  EXPECT_EQ(launch()->wait(milliseconds(5000)), 0) << "a second start";
  EXPECT_TRUE(eventually([this] { return input({"getactivewindow"}) == panel(); }));
  const instruments::PrivateSession session({});
  const std::filesystem::path server = session.environment().at("XDG_RUNTIME_DIR");
  std::filesystem::create_symlink(server / "pipewire-0", folder.path() / "pipewire-0");
  EXPECT_TRUE(eventually([this] { return hasIcon() && !isPanelOpen(); }));
}

// Fault: an application that a desktop feels, and commands that pay for it.
TEST_F(ShellTest, StartsQuicklyAndStaysSmall) {
  double toIcon = 1e9;
  double toPanel = 1e9;
  for (int run = 0; run < 3; ++run) {  // the best of them: others use this computer, too
    putUpNotifierHost();
    start();
    ASSERT_TRUE(eventually([this] { return hasIcon(); }));
    toIcon = std::min(toIcon, millisecondsBetween(program->startNs(), notifierHost->iconNs()));
    std::this_thread::sleep_for(milliseconds(500));
    const double closedMB = residentMB();
    const std::int64_t click = monotonicNanoseconds();
    notifierHost->click();
    ASSERT_TRUE(eventually([this] { return isPanelOpen(); }));
    toPanel = std::min(toPanel, millisecondsBetween(click, monotonicNanoseconds()));
    std::this_thread::sleep_for(milliseconds(500));
    const double openMB = residentMB();
    EXPECT_LT(closedMB, 35.0);
    EXPECT_LT(openMB, 60.0);
    std::printf("measured: memory, panel never opened %.1f MB, open %.1f MB\n", closedMB, openMB);
    program.reset();
    notifierHost.reset();
  }
  EXPECT_LT(toIcon, 60.0);
  EXPECT_LT(toPanel, 100.0);
  std::printf("measured: start to tray icon %.1f ms, click to panel %.1f ms\n", toIcon, toPanel);

  const Subprocess command({ORVELLE_PROGRAM, "watch"}, environment);
  std::this_thread::sleep_for(milliseconds(300));
  const std::string mapped = mappedFiles(command.pid());
  EXPECT_NE(mapped.find("libQt6Core"), std::string::npos);
  for (const char* library : {"libQt6Gui", "libQt6Widgets", "libQt6Qml", "libxcb", "libX11"}) {
    EXPECT_EQ(mapped.find(library), std::string::npos) << library;
  }
}

}  // namespace
}  // namespace orvelle
