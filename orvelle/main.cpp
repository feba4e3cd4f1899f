#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "orvelle/Commands.h"
#include "orvelle/platform/ApplicationNames.h"
#include "orvelle/platform/BackEnd.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/Process.h"
#include "orvelle/platform/qt/ConsoleApplication.h"
#include "orvelle/platform/qt/QtMainQueue.h"

namespace {

/// That is a program of its own: the commands would pay for its libraries.
int becomeMenuBarApp() {
  const auto program = orvelle::packageProgram("orvelle-panel");
  const std::string problem = orvelle::becomeProgram(program);
  std::fprintf(stderr, "The panel is not installed here: %s: %s\n", program.c_str(),
               problem.c_str());
  return 1;
}

int run(int argc, char** argv) {
  const orvelle::CommandLine commandLine(std::vector<std::string>(argv, argv + argc));
  if (commandLine.command() == "gui") {
    return becomeMenuBarApp();
  }
  const orvelle::ConsoleApplication application(argc, argv);
  orvelle::QtMainQueue queue;
  orvelle::SystemClock clock;
  orvelle::StandardConsole console;
  const auto applicationNames = orvelle::openApplicationNames();
  const auto undoKeeper = orvelle::openUndoKeeper(console);
  const auto openHardware = [&queue, &console](std::string& problem) {
    return orvelle::openBackEnd(queue, console, problem);
  };
  return orvelle::runCommand(commandLine,
                             {queue, clock, console, *applicationNames, openHardware, *undoKeeper});
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orvelle: %s\n", error.what());
    return 1;
  }
}
