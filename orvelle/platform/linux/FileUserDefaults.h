// The user's settings as one file in the configuration folder.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include "orvelle/platform/Console.h"
#include "orvelle/platform/UserDefaults.h"

namespace orvelle {

/// A text file of one line an entry. It is replaced as a whole, so that it is one state or the
/// next, never a mixture; what other processes write into it meanwhile is kept, except for the
/// entries that are set here. A value that does not change touches no disk. A boolean is the word
/// "true" or "false".
///
/// A damaged file is copied to a name beside it (".damaged-1" to ".damaged-9") before it is
/// overwritten; what cannot be copied is not overwritten. That the file cannot be written is told
/// on standard error once; what is set is then kept in memory, and written when that works again.
class FileUserDefaults final : public UserDefaults {
 public:
  /// orvelle/orvelle.conf in XDG_CONFIG_HOME, else in ~/.config.
  explicit FileUserDefaults(Console& console);
  /// The folder of `file` is made when it is needed.
  FileUserDefaults(const std::filesystem::path& file, Console& console);

  std::optional<std::string> data(const std::string& key) override;
  void setData(const std::string& key, const std::string& bytes) override;
  bool boolean(const std::string& key) override;
  void setBoolean(const std::string& key, bool value) override;
  void keepDamagedCopy(const std::string& key) override;

 private:
  std::error_code save();

  std::filesystem::path file_;
  Console& console_;
  std::map<std::string, std::string> entries_;
  std::map<std::string, std::string> unsaved_;
  std::set<std::string> damagedKeys_;  ///< to be forgotten once the copy is made
  bool hasReported_ = false;
};

}  // namespace orvelle
