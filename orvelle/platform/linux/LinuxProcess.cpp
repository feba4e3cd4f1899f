#include <sched.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "orvelle/platform/Process.h"

namespace orvelle {

std::optional<std::uint64_t> processStartTime(std::int32_t pid) {
  // proc(5): field 22. The second one is the name in brackets, which may contain anything.
  constexpr int fieldsBetween = 19;
  std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(status, line) || line.rfind(") ") == std::string::npos) {
    return std::nullopt;
  }
  std::size_t position = line.rfind(')') + 1;
  if (const char state = line[position + 1]; state == 'Z' || state == 'X') {
    return std::nullopt;  // dead, and only waited for
  }
  for (int field = 0; field < fieldsBetween && position != std::string::npos; ++field) {
    position = line.find(' ', position + 1);
  }
  std::uint64_t startTime = 0;
  const char* const end = line.data() + line.size();
  const bool isNumber =
      position != std::string::npos &&
      std::from_chars(line.data() + position + 1, end, startTime).ec == std::errc{};
  return isNumber ? std::optional(startTime) : std::nullopt;
}

std::filesystem::path ownProgram() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

std::filesystem::path stateFolder() {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return std::string(value == nullptr ? "" : value);
  };
  // A relative path means nothing here, and is to be ignored.
  if (const std::filesystem::path state = variable("XDG_STATE_HOME"); state.is_absolute()) {
    return state / "orvelle";
  }
  const std::filesystem::path home = variable("HOME");
  return home.is_absolute() ? home / ".local" / "state" / "orvelle" : std::filesystem::path{};
}

void goBeforeOthers() {
  const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_RR)};
  sched_setscheduler(0, SCHED_RR, &lowest);
}

}  // namespace orvelle
