#include "tests/shell/ShellRig.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace orvelle {

ShellRig::ShellRig() {
  const std::string root = folder.path();
  environment = {{"PATH", std::getenv("PATH")},    {"HOME", root},
                 {"XDG_RUNTIME_DIR", root},        {"DBUS_SESSION_BUS_ADDRESS", busAddress()},
                 {"ORVELLE_BACKEND", "simulated"}, {"LC_ALL", "C.UTF-8"}};
  bus_ = std::make_unique<Subprocess>(
      std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--print-address",
                               "--address=" + busAddress()},
      environment);
  display = std::make_unique<Subprocess>(
      std::vector<std::string>{"Xvfb", "-noreset", "-displayfd", "1", "-screen", "0",
                               "1280x1024x24", "-nolisten", "tcp"},
      environment);
  const bool isUp = eventually([this] {
    return !display->standardOutput().empty() && bus_->waitForLine("unix:", milliseconds(0));
  });
  if (!isUp) {
    throw std::runtime_error("no display or no bus: " + display->standardError() +
                             bus_->standardError());
  }
  environment["DISPLAY"] = ":" + std::to_string(std::stoi(display->standardOutput()));
  setenv("DISPLAY", environment["DISPLAY"].c_str(), 1);
  windowManager_ = std::make_unique<Subprocess>(std::vector<std::string>{"openbox", "--sm-disable"},
                                                environment);
  const bool isManaged = eventually([this] {
    return output({"xprop", "-root", "_NET_SUPPORTING_WM_CHECK"}).find("window id") !=
           std::string::npos;
  });
  if (!isManaged) {
    throw std::runtime_error("no window manager: " + windowManager_->standardError());
  }
}

std::string ShellRig::busAddress() const {
  return "unix:path=" + (folder.path() / "bus").string();
}

std::unique_ptr<Subprocess> ShellRig::launch(const std::string& path) const {
  return std::make_unique<Subprocess>(std::vector<std::string>{path, "gui"}, environment);
}

bool ShellRig::eventually(const std::function<bool()>& condition, milliseconds limit) {
  QElapsedTimer elapsed;
  for (elapsed.start(); !condition();) {
    if (elapsed.elapsed() > limit.count()) {
      return false;
    }
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    if (xEmbedHost) {
      xEmbedHost->serve();
    }
    usleep(1000);
  }
  return true;
}

bool ShellRig::stays(const std::function<bool()>& condition) {
  return !eventually([&] { return !condition(); }, milliseconds(600));
}

bool ShellRig::hasIcon() {
  return (notifierHost && notifierHost->hasIcon()) || (xEmbedHost && xEmbedHost->serve());
}

void ShellRig::clickIcon() {
  std::this_thread::sleep_for(milliseconds(300));  // no double click
  if (xEmbedHost) {
    const QPoint middle = xEmbedHost->place().center();
    input({"mousemove", std::to_string(middle.x()), std::to_string(middle.y()), "click", "1"});
  } else {
    notifierHost->click();
  }
}

void ShellRig::openPanel() {
  clickIcon();
  ASSERT_TRUE(eventually([this] { return isPanelOpen(); }));
  ASSERT_TRUE(eventually([this] { return input({"getactivewindow"}) == panel(); }));
}

std::string ShellRig::output(const std::vector<std::string>& command) const {
  Subprocess process(command, environment);
  process.wait(milliseconds(5000));
  return process.standardOutput();
}

std::string ShellRig::input(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {"xdotool"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return output(command);
}

std::string ShellRig::panel() const {
  return input({"search", "--onlyvisible", "--name", "^Orvelle$"});
}

QRect ShellRig::panelPlace() const {
  std::istringstream lines(
      input({"getwindowgeometry", "--shell", panel().substr(0, panel().find('\n'))}));
  std::map<std::string, int> values;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t sign = line.find('=');
    values[line.substr(0, sign)] = std::atoi(line.c_str() + sign + 1);
  }
  return {values["X"], values["Y"], values["WIDTH"], values["HEIGHT"]};
}

std::string ShellRig::panelProperty(const std::string& name) const {
  return output({"xprop", "-id", panel().substr(0, panel().find('\n')), name});
}

}  // namespace orvelle
