#include "orvelle/platform/Process.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <system_error>

namespace orvelle {

int currentProcessID() {
  return getpid();
}

bool ignoresSignal(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

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

std::filesystem::path packageProgram(std::string_view name) {
  std::error_code error;
  const auto own = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  for (const auto& folder : {own, own.parent_path() / "bin", own.parent_path() / "libexec"}) {
    if (std::filesystem::exists(folder / name, error)) {
      return folder / name;
    }
  }
  return own / name;
}

std::string becomeProgram(const std::filesystem::path& program) {
  std::string path = program.native();
  std::array<char*, 2> arguments = {path.data(), nullptr};
  execv(path.c_str(), arguments.data());
  return std::system_category().message(errno);
}

}  // namespace orvelle
