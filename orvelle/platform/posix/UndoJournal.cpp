#include "orvelle/platform/posix/UndoJournal.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "orvelle/platform/Process.h"

namespace orvelle {

namespace {

constexpr std::string_view kPrefix = "undo-";

std::string nameFor(std::int32_t pid, std::uint64_t startTime) {
  return std::string(kPrefix) + std::to_string(pid) + "-" + std::to_string(startTime);
}

/// The numbers in "undo-<pid>-<start>"; absent for any other name.
std::optional<std::pair<std::int32_t, std::uint64_t>> processNamed(std::string_view name) {
  if (!name.starts_with(kPrefix)) {
    return std::nullopt;
  }
  name.remove_prefix(kPrefix.size());
  const char* const end = name.data() + name.size();
  std::int32_t pid = 0;
  std::uint64_t startTime = 0;
  const auto first = std::from_chars(name.data(), end, pid);
  if (first.ec != std::errc{} || first.ptr == end || *first.ptr != '-') {
    return std::nullopt;
  }
  const auto second = std::from_chars(first.ptr + 1, end, startTime);
  return second.ec == std::errc{} && second.ptr == end ? std::optional(std::pair(pid, startTime))
                                                       : std::nullopt;
}

}  // namespace

UndoJournal::UndoJournal() : folder_(stateFolder()) {}

std::vector<UndoJournal::Entry> UndoJournal::entries() const {
  std::vector<Entry> found;
  std::error_code error;
  for (const auto& file : std::filesystem::directory_iterator(folder_, error)) {
    if (const auto process = processNamed(file.path().filename().native());
        process && process->first != currentProcessID()) {
      const auto [pid, startTime] = *process;
      found.push_back({file.path(), pid, processStartTime(pid) == startTime});
    }
  }
  return found;
}

std::filesystem::path UndoJournal::ownFile() const {
  const std::int32_t pid = currentProcessID();
  return folder_.empty() ? folder_ : folder_ / nameFor(pid, processStartTime(pid).value_or(0));
}

bool UndoJournal::write(const std::filesystem::path& file, const UndoRecords& records) {
  std::error_code error;
  std::filesystem::path fresh = file;
  fresh += ".new";
  if (records.empty()) {
    std::filesystem::remove(fresh, error);  // of a process that ended while it wrote
    std::filesystem::remove(file, error);
    return !error;
  }
  std::filesystem::create_directories(file.parent_path(), error);
  std::ofstream stream(fresh, std::ios::binary | std::ios::trunc);
  stream << encodeUndo(records);
  stream.close();
  if (!stream) {
    std::filesystem::remove(fresh, error);
    return false;
  }
  std::filesystem::rename(fresh, file, error);
  return !error;
}

std::optional<UndoRecords> UndoJournal::read(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return std::nullopt;
  }
  std::ostringstream text;
  text << stream.rdbuf();
  return decodeUndo(text.str());
}

}  // namespace orvelle
