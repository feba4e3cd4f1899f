#include "orvelle/platform/linux/FileUserDefaults.h"

#include <unistd.h>

#include <QStandardPaths>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

namespace orvelle {

namespace {

// orvelle-settings 1
// deviceSettings.v1={"alsa_output.usb": ...}
// idleStandby.v1=true
// end
constexpr std::string_view kFirstLine = "orvelle-settings 1\n";
constexpr std::string_view kLastLine = "end\n";  // tells that nothing is missing
constexpr int kMostCopies = 9;

using Entries = std::map<std::string, std::string>;

struct Content {
  Entries entries;
  bool isSound = true;
};

std::string escaped(std::string_view value) {
  std::string text;
  for (const char character : value) {
    if (character == '\n') {
      text += "\\n";
    } else {
      text += character == '\\' ? "\\\\" : std::string(1, character);
    }
  }
  return text;
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      value += text[i];
      continue;
    }
    const std::string_view escape = text.substr(i, 2);
    if (escape != "\\\\" && escape != "\\n") {
      return std::nullopt;
    }
    value += escape == "\\n" ? '\n' : '\\';
    ++i;
  }
  return value;
}

std::string encode(const Entries& entries) {
  std::string text(kFirstLine);
  for (const auto& [key, value] : entries) {
    text += key + "=" + escaped(value) + "\n";
  }
  return text.append(kLastLine);
}

/// All entries that are whole, also those of a damaged file.
Content decode(std::string_view text) {
  Content content;
  if (text.starts_with(kFirstLine) && text.ends_with(kLastLine)) {
    text.remove_prefix(kFirstLine.size());
    text.remove_suffix(kLastLine.size());
  } else {
    content.isSound = text.empty();
  }
  while (!text.empty()) {
    const std::size_t length = text.find('\n');
    if (length == std::string_view::npos) {
      content.isSound = false;
      break;
    }
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(length + 1);
    const std::size_t separator = line.find('=');
    const auto value =
        separator == std::string_view::npos ? std::nullopt : unescaped(line.substr(separator + 1));
    const bool isNew = value && content.entries.emplace(line.substr(0, separator), *value).second;
    content.isSound = content.isSound && isNew;
  }
  return content;
}

std::error_code lastError() {
  return {errno, std::generic_category()};
}

/// A file that is not there is empty.
std::error_code readFile(const std::filesystem::path& file, std::string& text) {
  std::FILE* const stream = std::fopen(file.c_str(), "rbe");
  if (stream == nullptr) {
    return errno == ENOENT ? std::error_code() : lastError();
  }
  std::array<char, 4096> buffer{};
  std::size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), stream)) > 0) {
    text.append(buffer.data(), count);
  }
  const std::error_code error = std::ferror(stream) != 0 ? lastError() : std::error_code();
  std::fclose(stream);
  return error;
}

std::error_code writeFile(const std::filesystem::path& file, std::string_view text) {
  std::FILE* const stream = std::fopen(file.c_str(), "wbe");
  if (stream == nullptr) {
    return lastError();
  }
  const bool isWritten =
      std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
  const std::error_code error = isWritten ? std::error_code() : lastError();
  const bool isClosed = std::fclose(stream) == 0;
  return isWritten && !isClosed ? lastError() : error;
}

/// The former file stays until the new one is whole. Does not wait for the disk: a slider writes at
/// each of its steps, and what the system holds outlives the process.
std::error_code replaceFile(const std::filesystem::path& file, std::string_view text) {
  std::filesystem::path fresh = file;
  fresh += ".new-" + std::to_string(getpid());
  std::error_code error;
  std::filesystem::create_directories(file.parent_path(), error);
  if (!error) {
    error = writeFile(fresh, text);
  }
  if (!error) {
    std::filesystem::rename(fresh, file, error);
  }
  if (error) {
    std::error_code nothingThere;
    std::filesystem::remove(fresh, nothingThere);
  }
  return error;
}

/// Damage that comes back again and again is kept once. When many kinds of it have been kept, the
/// first ones are those that tell something.
std::error_code putAside(const std::filesystem::path& file, std::string_view text) {
  for (int number = 1; number <= kMostCopies; ++number) {
    std::filesystem::path copy = file;
    copy += ".damaged-" + std::to_string(number);
    std::string older;
    std::error_code error;
    if (!std::filesystem::exists(copy, error)) {
      return error ? error : replaceFile(copy, text);
    }
    if (!readFile(copy, older) && older == text) {
      break;
    }
  }
  return {};
}

std::filesystem::path fileOfUser() {
  const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
  return std::filesystem::path(folder.toStdString()) / "orvelle" / "orvelle.conf";
}

/// What a link leads to, so that not the link is replaced.
std::filesystem::path withoutLinks(const std::filesystem::path& file) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::weakly_canonical(file, error);
  return error ? file : target;
}

}  // namespace

FileUserDefaults::FileUserDefaults(Console& console) : FileUserDefaults(fileOfUser(), console) {}

FileUserDefaults::FileUserDefaults(const std::filesystem::path& file, Console& console)
    : file_(withoutLinks(file)), console_(console) {
  std::string text;
  readFile(file_, text);
  entries_ = decode(text).entries;
}

std::optional<std::string> FileUserDefaults::data(const std::string& key) {
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? std::nullopt : std::optional(entry->second);
}

void FileUserDefaults::setData(const std::string& key, const std::string& bytes) {
  entries_[key] = bytes;
  unsaved_[key] = bytes;
  if (const std::error_code error = save(); error && !std::exchange(hasReported_, true)) {
    console_.printError("orvelle: the settings cannot be stored in " + file_.native() + ": " +
                        error.message() + ".\n");
  }
}

bool FileUserDefaults::boolean(const std::string& key) {
  const auto word = data(key);
  if (word && word != "true" && word != "false") {
    keepDamagedCopy(key);
  }
  return word == "true";
}

void FileUserDefaults::setBoolean(const std::string& key, bool value) {
  setData(key, value ? "true" : "false");
}

void FileUserDefaults::keepDamagedCopy(const std::string& key) {
  damagedKeys_.insert(key);
}

std::error_code FileUserDefaults::save() {
  std::string former;
  if (const std::error_code error = readFile(file_, former)) {
    return error;
  }
  const Content stored = decode(former);
  Entries entries = stored.entries;
  for (const std::string& key : damagedKeys_) {
    entries.erase(key);
  }
  for (const auto& [key, value] : unsaved_) {
    entries[key] = value;
  }
  if (entries != stored.entries) {
    const bool isDamaged = !stored.isSound || !damagedKeys_.empty();
    std::error_code error = isDamaged ? putAside(file_, former) : std::error_code();
    if (!error) {
      error = replaceFile(file_, encode(entries));
    }
    if (error) {
      return error;
    }
  }
  entries_ = std::move(entries);
  unsaved_.clear();
  damagedKeys_.clear();
  return {};
}

std::unique_ptr<UserDefaults> openUserDefaults(Console& console) {
  return std::make_unique<FileUserDefaults>(console);
}

}  // namespace orvelle
