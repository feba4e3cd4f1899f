// A desktop for the whole program: display, window manager, message bus and folders of its own.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "instruments/PrivateSession.h"
#include "instruments/Subprocess.h"
#include "tests/shell/NotifierHost.h"
#include "tests/shell/XEmbedHost.h"

namespace orvelle {

using instruments::milliseconds;
using instruments::Subprocess;

class ShellRig : public testing::Test {
 protected:
  ShellRig();

  /// What the user does, and what every desktop entry does.
  void start() { program = launch(); }
  std::unique_ptr<Subprocess> launch(const std::string& path = ORVELLE_PROGRAM) const;
  void putUpNotifierHost() { notifierHost = std::make_unique<NotifierHost>(busAddress().c_str()); }

  /// Serves the hosts until `condition` holds; says whether it held in time.
  bool eventually(const std::function<bool()>& condition, milliseconds limit = milliseconds(5000));
  /// The condition holds now and goes on to.
  bool stays(const std::function<bool()>& condition);

  bool hasIcon();
  /// As the user clicks on it.
  void clickIcon();
  /// Clicks on the icon and waits until the panel is there.
  void openPanel();

  /// The panel's window on the screen; empty while it is closed.
  [[nodiscard]] std::string panel() const;
  [[nodiscard]] bool isPanelOpen() const { return !panel().empty(); }
  [[nodiscard]] QRect panelPlace() const;
  /// A property of the panel's window, as xprop shows it.
  [[nodiscard]] std::string panelProperty(const std::string& name) const;

  /// Runs xdotool and returns what it prints.
  std::string input(const std::vector<std::string>& arguments) const;
  [[nodiscard]] std::string busAddress() const;

  instruments::TemporaryDirectory folder;
  instruments::Environment environment;
  std::unique_ptr<Subprocess> display;
  std::unique_ptr<Subprocess> program;
  std::unique_ptr<NotifierHost> notifierHost;
  std::unique_ptr<XEmbedHost> xEmbedHost;

 private:
  [[nodiscard]] std::string output(const std::vector<std::string>& command) const;

  std::unique_ptr<Subprocess> bus_;
  std::unique_ptr<Subprocess> windowManager_;
};

}  // namespace orvelle
