// A settings store that exists in memory only.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "orvelle/platform/UserDefaults.h"

namespace orvelle {

class MemoryUserDefaults final : public UserDefaults {
 public:
  std::optional<std::string> data(const std::string& key) override {
    const auto found = entries.find(key);
    const auto* bytes = found == entries.end() ? nullptr : std::get_if<std::string>(&found->second);
    return bytes == nullptr ? std::nullopt : std::optional(*bytes);
  }

  void setData(const std::string& key, const std::string& bytes) override {
    entries[key] = bytes;
    ++writes;
  }

  bool boolean(const std::string& key) override {
    const auto found = entries.find(key);
    const auto* value = found == entries.end() ? nullptr : std::get_if<bool>(&found->second);
    return value != nullptr && *value;
  }

  void setBoolean(const std::string& key, bool value) override {
    entries[key] = value;
    ++writes;
  }

  void keepDamagedCopy(const std::string& key) override { damagedKeys.push_back(key); }

  std::map<std::string, std::variant<std::string, bool>> entries;  ///< may be filled beforehand
  int writes = 0;                                                  ///< counts unchanged values too
  std::vector<std::string> damagedKeys;                            ///< as reported, in that order
};

}  // namespace orvelle
