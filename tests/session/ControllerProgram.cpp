// The controller on the real audio system, without a panel: obeys lines on standard input and
// tells on standard output what a panel would show.
#include <QCoreApplication>
#include <QSocketNotifier>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "orvelle/AudioController.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/ThreadQueue.h"
#include "orvelle/platform/linux/FileUserDefaults.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#include "orvelle/platform/qt/QtMainQueue.h"
#include "orvelle/platform/simulated/RecordingHostServices.h"

namespace orvelle {
namespace {

void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void tellChanges(AudioController& controller) {
  const auto tell = [&controller](auto signal, auto text) {
    QObject::connect(&controller, signal, [text] { say(text()); });
  };
  tell(&AudioController::isOnChanged,
       [&] { return std::string(controller.isOn() ? "on" : "off"); });
  tell(&AudioController::boostArmedChanged,
       [&] { return std::string(controller.boostArmed() ? "asleep" : "awake"); });
  tell(&AudioController::deviceNameChanged,
       [&] { return "device " + controller.deviceName().toStdString(); });
  tell(&AudioController::lastErrorChanged,
       [&] { return "error " + controller.lastError().toStdString(); });
}

/// Sets the boost 200 times, as a hand on the slider does, and tells what the median step took.
void drag(AudioController& controller, const Clock& clock) {
  constexpr int steps = 200;
  std::vector<double> seconds;
  for (int step = 0; step < steps; ++step) {
    const double before = clock.now();
    controller.setBoost(1.0 + 4.0 * step / (steps - 1));
    seconds.push_back(clock.now() - before);
  }
  std::ranges::sort(seconds);
  say("step " + std::to_string(1000.0 * seconds[steps / 2]) + " ms");
}

void obey(AudioController& controller, MainQueue& queue, const Clock& clock,
          const std::string& line) {
  std::istringstream words(line);
  std::string word;
  double value = 0.0;
  words >> word >> value;
  if (word == "toggle") {
    controller.toggle();
  } else if (word == "boost") {
    controller.setBoost(value);
  } else if (word == "standby") {
    controller.setIdleStandbyEnabled(value != 0.0);
  } else if (word == "drag") {
    drag(controller, clock);
  } else if (word == "quit" || word.empty()) {
    queue.quit(controller.shutdown() ? 0 : 1);
  }
}

int run(int& argc, char** argv) {
  const QCoreApplication application(argc, argv);
  QtMainQueue queue;
  SystemClock clock;
  StandardConsole console;
  std::string problem;
  const auto hardware = PipeWireHardware::connect(queue, problem);
  if (!hardware) {
    std::fprintf(stderr, "%s\n", problem.c_str());
    return 1;
  }
  ThreadQueue background;
  FileUserDefaults defaults(argv[1], console);
  RecordingHostServices services;
  const auto names = openApplicationNames();
  AudioController controller(
      {{*hardware, queue, clock, console}, background, defaults, services, *names});
  tellChanges(controller);
  std::ios::sync_with_stdio(false);  // so that it tells how much it has read ahead
  QSocketNotifier input(0, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, [&] {
    do {
      std::string line;
      std::getline(std::cin, line);
      obey(controller, queue, clock, line);
    } while (std::cin.rdbuf()->in_avail() > 0);
  });
  say("ready");
  return queue.run();
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  return orvelle::run(argc, argv);
}
