// The menu-bar application: an icon in the desktop's panel, and the control panel that it opens.
#pragma once

#include <memory>

#include "orvelle/AudioController.h"
#include "orvelle/platform/DesktopLook.h"
#include "orvelle/platform/MainQueue.h"
#include "orvelle/platform/TrayHost.h"
#include "orvelle/platform/qt/SingleInstance.h"
#include "orvelle/shell/PanelWindow.h"
#include "orvelle/shell/TrayIcon.h"

namespace orvelle {

class AppDelegate {
 public:
  /// Puts the system's sound as it was. To be called once, whatever ends the program. False when
  /// the audio system hangs.
  static bool applicationWillTerminate();
};

/// Holds the one controller and what is seen of it. GUI thread.
class OrvelleMenuBarApp {
 public:
  /// Runs the application until the user quits it: 0, also where another instance runs already and
  /// has opened its panel; 1 with a line on standard error where there is no display, no panel or
  /// no audio system. Once in a process, which ends within it when a controller has been made.
  static int main(int& argc, char** argv);

  /// All of them outlive the application.
  OrvelleMenuBarApp(AudioController& controller, MainQueue& queue, SingleInstance& instance);
  OrvelleMenuBarApp(const OrvelleMenuBarApp&) = delete;
  OrvelleMenuBarApp& operator=(const OrvelleMenuBarApp&) = delete;
  ~OrvelleMenuBarApp();

 private:
  void openPanel();
  void endWithoutPanel(const QString& reason);
  void trayChanged();
  void plainWindowClosed();

  AudioController& controller_;
  MainQueue& queue_;
  SingleInstance& instance_;
  const std::unique_ptr<DesktopLook> look_;
  const std::unique_ptr<TrayHost> trayHost_;
  TrayIcon icon_;
  PanelWindow panel_;
  TimerID trayPatience_ = 0;
  bool isEnding_ = false;  ///< for want of a panel
};

}  // namespace orvelle
