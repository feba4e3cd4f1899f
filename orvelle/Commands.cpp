#include "orvelle/Commands.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "orvelle/AppCommands.h"
#include "orvelle/BoostCommands.h"
#include "orvelle/DeviceCommands.h"

namespace orvelle {

namespace {

constexpr std::string_view kGeneralUsage = R"(Orvelle — audio boost / EQ engine

usage:
  orvelle list                       list all audio devices
  orvelle watch                      log default-output changes
  orvelle boost --input <uid>        route boost through a loopback device
         [--output <uid>] [--gain <x>]
  orvelle auto [--gain <x>]          boost + auto-follow the active output
  orvelle apps                       list apps currently playing audio
  orvelle appvol --pid <pid>         set one app's volume independently
         [--vol <0..3>])";

struct Command {
  std::string_view word;
  int (*run)(const CommandLine& commandLine, const CommandHost& host);
};

constexpr std::array kCommands = {
    Command{"list", listCommand}, Command{"watch", watchCommand}, Command{"boost", boostCommand},
    Command{"auto", autoCommand}, Command{"apps", appsCommand},   Command{"appvol", appvolCommand},
    Command{"rate", rateCommand},
};

}  // namespace

int runCommand(const CommandLine& commandLine, const CommandHost& host) {
  const auto* const command =
      std::find_if(kCommands.begin(), kCommands.end(),
                   [&](const Command& entry) { return entry.word == commandLine.command(); });
  if (command == kCommands.end()) {
    host.console.print(kGeneralUsage);
    return 0;
  }
  return command->run(commandLine, host);
}

}  // namespace orvelle
