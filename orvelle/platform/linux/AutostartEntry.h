// Start at login, as the desktops of Linux do it: by an entry in their autostart folders.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

/// Reads the files at each question and keeps nothing of them: the user may switch the entry in the
/// settings of the desktop, too. Main thread; no call throws.
class AutostartEntry {
 public:
  /// `program` is the absolute path of what is to be started, with the word "gui". The folders are
  /// those that the environment names.
  explicit AutostartEntry(std::filesystem::path program);

  /// Whether the desktop will start something: an entry is there and not switched off, and its
  /// program exists. The user's own entry stands before those of the system.
  [[nodiscard]] bool isEnabled() const;
  /// Writes the user's own entry. Absent on success, else which file and why.
  [[nodiscard]] std::optional<std::string> enable() const;
  /// Removes the user's own entry; where one of the system would take effect then, the user's
  /// switches it off. Absent on success, also where nothing was; else which file and why.
  [[nodiscard]] std::optional<std::string> disable() const;

 private:
  [[nodiscard]] bool isEnabledBySystem() const;
  [[nodiscard]] std::optional<std::string> write(bool isHidden) const;

  std::filesystem::path program_;
  std::filesystem::path ownFile_;
  std::vector<std::filesystem::path> systemFiles_;  ///< the first that is there counts
};

}  // namespace orvelle
