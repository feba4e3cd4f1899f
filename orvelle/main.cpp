#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "orvelle/Commands.h"
#include "orvelle/platform/ApplicationNames.h"
#include "orvelle/platform/BackEnd.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/qt/ConsoleApplication.h"
#include "orvelle/platform/qt/QtMainQueue.h"

namespace {

int run(int argc, char** argv) {
  const orvelle::CommandLine commandLine(std::vector<std::string>(argv, argv + argc));
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
