#include "orvelle/platform/Process.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
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

std::filesystem::path packageProgram(std::string_view name) {
  std::error_code error;
  const auto own = ownProgram().parent_path();
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
