#include <libproc.h>
#include <mach-o/dyld.h>
#include <pthread/qos.h>
#include <sys/proc.h>

#include <cstdlib>
#include <string>
#include <system_error>

#include "orvelle/platform/Process.h"

namespace orvelle {

std::optional<std::uint64_t> processStartTime(std::int32_t pid) {
  constexpr std::uint64_t microsecondsPerSecond = 1'000'000;
  proc_bsdinfo facts{};
  const int size = proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &facts, sizeof facts);
  if (size != static_cast<int>(sizeof facts) || facts.pbi_status == SZOMB) {
    return std::nullopt;  // dead, and perhaps only waited for
  }
  return facts.pbi_start_tvsec * microsecondsPerSecond + facts.pbi_start_tvusec;
}

std::filesystem::path ownProgram() {
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);  // says how much room it needs
  std::string path(size, '\0');
  if (_NSGetExecutablePath(path.data(), &size) != 0) {
    return {};
  }
  std::error_code error;
  return std::filesystem::canonical(path.c_str(), error);  // the other programs are not by the link
}

std::filesystem::path stateFolder() {
  const char* const home = std::getenv("HOME");
  return home != nullptr && *home == '/'
             ? std::filesystem::path(home) / "Library" / "Application Support" / "Orvelle"
             : std::filesystem::path{};
}

void goBeforeOthers() {
  pthread_set_qos_class_self_np(QOS_CLASS_USER_INTERACTIVE, 0);
}

}  // namespace orvelle
