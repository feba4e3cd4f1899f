#include "orvelle/GUIApp.h"

#include <QApplication>
#include <QMessageBox>
#include <QQuickWindow>
#include <QSessionManager>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "orvelle/platform/ApplicationNames.h"
#include "orvelle/platform/BackEnd.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/Process.h"
#include "orvelle/platform/ThreadQueue.h"
#include "orvelle/platform/qt/Locale.h"
#include "orvelle/platform/qt/QtMainQueue.h"
#include "orvelle/platform/qt/QtWindowList.h"

namespace orvelle {

namespace {

/// At login the desktop's panel may come later than this program. A window that flashes up until
/// then would be in the way.
constexpr double kTrayPatienceSeconds = 2.0;
constexpr double kRetrySeconds = 1.0;

/// Qt would abort, with a crash report, where it finds no display.
class DisplayCheck {
 public:
  DisplayCheck() : former_(qInstallMessageHandler(&DisplayCheck::handle)) {}
  DisplayCheck(const DisplayCheck&) = delete;
  DisplayCheck& operator=(const DisplayCheck&) = delete;
  ~DisplayCheck() {
    qInstallMessageHandler(former_);
    for (const QString& warning : std::as_const(warnings)) {
      qWarning("%s", qPrintable(warning));
    }
  }

 private:
  /// The first warning is the reason of the end, or belongs to no end.
  static void handle(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
    if (type == QtFatalMsg) {
      const QString reason = warnings.isEmpty() ? text.section('\n', 0, 0) : warnings.first();
      std::fprintf(stderr,
                   "Orvelle finds no display to show its panel on (%s); \"orvelle auto\" needs "
                   "none.\n",
                   qPrintable(reason));
      std::_Exit(1);
    }
    if (type == QtWarningMsg) {
      warnings.append(text);
    }
  }

  inline static QStringList warnings;
  QtMessageHandler former_;
};

/// What the controller stands on.
struct World {
  QtMainQueue queue;
  SystemClock clock;
  StandardConsole console;
  std::unique_ptr<ApplicationNames> applicationNames = openApplicationNames();
  // Before the hardware: what it holds is closed first when the process dies.
  std::unique_ptr<UndoKeeper> undoKeeper = openUndoKeeper(console);
  std::unique_ptr<AudioHardware> hardware;
  ThreadQueue background;
  std::unique_ptr<UserDefaults> defaults = openUserDefaults(console);
  QtWindowList windows;
  std::unique_ptr<HostServices> services = openHostServices(windows);
};

void quitOnSignals(MainQueue& queue) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (!ignoresSignal(signal)) {
      queue.onSignal(signal, [&queue] { queue.quit(0); });
    }
  }
}

/// A person who has clicked on an icon sees no standard error: a box tells of a missing audio
/// system, and goes away by itself when that has come. Null when the queue is to quit, as it is
/// after the user has closed the box.
std::unique_ptr<AudioHardware> connectToAudio(MainQueue& queue, Console& console,
                                              SingleInstance& instance) {
  std::string problem;
  auto hardware = openBackEnd(queue, console, problem);
  if (hardware) {
    return hardware;
  }
  console.printError(problem + "\n");
  QMessageBox box(QMessageBox::Critical, "Orvelle", QString::fromStdString(problem),
                  QMessageBox::Close);
  const TimerID retries = queue.repeat(kRetrySeconds, kRetrySeconds, [&] {
    hardware = openBackEnd(queue, console, problem);
    if (hardware) {
      queue.cancel(retries);
      box.accept();
    }
  });
  instance.onCall = [&box] {
    box.raise();
    box.activateWindow();
  };
  box.exec();
  instance.onCall = nullptr;
  queue.cancel(retries);
  if (!hardware) {
    queue.quit(1);
  }
  return hardware;
}

/// Called by `exit`, with which Qt ends a process whose X server has gone away. Nothing of Qt can
/// be used or taken apart any more. Without a Wayland compositor Qt ends it at once; the guardian
/// puts things right then.
void endWithoutDisplay() {
  AppDelegate::applicationWillTerminate();
  std::_Exit(1);
}

std::unique_ptr<AudioController> makeController(World& world) {
  return std::make_unique<AudioController>(
      ControllerHost{{*world.hardware, world.queue, world.clock, world.console, *world.undoKeeper},
                     world.background,
                     *world.defaults,
                     *world.services,
                     *world.applicationNames});
}

void configureApplication() {
  QGuiApplication::setApplicationDisplayName("Orvelle");
  QGuiApplication::setDesktopFileName("app.orvelle");
  QGuiApplication::setQuitOnLastWindowClosed(false);
  // The user's own switch decides whether it runs after the next login, not what runs at logout.
  QObject::connect(qApp, &QGuiApplication::saveStateRequest, [](QSessionManager& session) {
    session.setRestartHint(QSessionManager::RestartNever);
  });
}

}  // namespace

bool AppDelegate::applicationWillTerminate() {
  return AudioController::shared().shutdown();
}

int OrvelleMenuBarApp::main(int& argc, char** argv) {
  useUtf8();
  std::optional<DisplayCheck> displayCheck(std::in_place);
  const QApplication application(argc, argv);
  displayCheck.reset();
  keepNumbersPlain();
  configureApplication();

  std::optional<SingleInstance> instance(std::in_place);
  if (!instance->isFirst()) {
    if (instance->callFirst()) {
      return 0;
    }
    std::fputs("Orvelle is running already, but does not answer.\n", stderr);
    return 1;
  }

  World world;
  quitOnSignals(world.queue);
  world.hardware = connectToAudio(world.queue, world.console, *instance);
  if (!world.hardware) {
    return world.queue.run();
  }
  AudioController::provideShared([&world] { return makeController(world); });
  AudioController& controller = AudioController::shared();
  std::atexit(endWithoutDisplay);

  int status = 0;
  {
    const OrvelleMenuBarApp app(controller, world.queue, *instance);
    status = world.queue.run();
    if (!AppDelegate::applicationWillTerminate()) {
      world.console.printError("The audio system does not respond; left to the guardian.\n");
    }
  }
  instance.reset();
  // The controller lives as long as the process, and the world under it with it.
  std::_Exit(status);
}

OrvelleMenuBarApp::OrvelleMenuBarApp(AudioController& controller, MainQueue& queue,
                                     SingleInstance& instance)
    : controller_(controller),
      queue_(queue),
      instance_(instance),
      look_(openDesktopLook()),
      trayHost_(openTrayHost()),
      icon_(*trayHost_, *look_, controller_),
      panel_(controller_, *look_) {
  if (look_->paintsOnProcessor()) {
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  }
  QObject::connect(&icon_, &TrayIcon::isShownChanged, &icon_, [this] { trayChanged(); });
  QObject::connect(&icon_, &TrayIcon::clicked, &icon_,
                   [this] { panel_.toggleByIcon(icon_.geometry()); });
  QObject::connect(&panel_, &PanelWindow::quitRequested, &panel_, [this] { queue_.quit(0); });
  QObject::connect(&panel_, &PanelWindow::loadFailed, &panel_,
                   [this](const QString& reason) { endWithoutPanel(reason); });
  QObject::connect(&panel_, &PanelWindow::plainClosed, &panel_, [this] { plainWindowClosed(); });
  instance_.onCall = [this] { openPanel(); };
  trayPatience_ = queue_.postAfter(kTrayPatienceSeconds, [this] {
    if (!icon_.isShown()) {
      panel_.openPlain();
    }
  });
}

OrvelleMenuBarApp::~OrvelleMenuBarApp() {
  instance_.onCall = nullptr;
  queue_.cancel(trayPatience_);
}

void OrvelleMenuBarApp::openPanel() {
  if (icon_.isShown()) {
    panel_.openByIcon(icon_.geometry());
  } else {
    panel_.openPlain();
  }
}

/// Whoever has clicked on the icon does not see what Qt has told on standard error.
void OrvelleMenuBarApp::endWithoutPanel(const QString& reason) {
  if (!std::exchange(isEnding_, true)) {
    QMessageBox::critical(nullptr, "Orvelle",
                          "Orvelle's panel cannot be shown, because a part of Qt is missing:\n" +
                              reason + "\nInstall Orvelle again, with all that it needs.");
    queue_.quit(1);
  }
}

void OrvelleMenuBarApp::trayChanged() {
  if (icon_.isShown()) {
    panel_.closePlainUnlessActive();
  }
}

/// Without an icon, nothing would show any more that the program runs.
void OrvelleMenuBarApp::plainWindowClosed() {
  if (!icon_.isShown()) {
    queue_.quit(0);
  }
}

}  // namespace orvelle
