#include "orvelle/platform/linux/AutostartEntry.h"

#include <QByteArray>
#include <QSaveFile>
#include <QStandardPaths>
#include <QString>
#include <algorithm>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "orvelle/platform/linux/DesktopEntry.h"

namespace orvelle {

namespace {

constexpr const char* kFile = "autostart/app.orvelle.desktop";

bool isThere(const std::filesystem::path& file) {
  std::error_code untestable;
  return std::filesystem::exists(file, untestable);
}

bool startsSomething(const std::filesystem::path& file) {
  std::ifstream entry(file);
  std::string program;
  bool isSwitchedOff = false;
  visitDesktopEntry(entry, [&](std::string_view key, std::string_view value) {
    isSwitchedOff |= key == "Hidden" && value == "true";
    isSwitchedOff |= key == "X-GNOME-Autostart-enabled" && value == "false";
    if (key == "Exec") {
      program = execProgram(value);
    }
  });
  return !isSwitchedOff && !program.empty() &&
         !QStandardPaths::findExecutable(QString::fromStdString(program)).isEmpty();
}

std::string failure(const char* verb, const std::filesystem::path& file,
                    const std::string& reason) {
  return std::string("cannot ") + verb + " " + file.string() + ": " + reason;
}

}  // namespace

AutostartEntry::AutostartEntry(std::filesystem::path program) : program_(std::move(program)) {
  // The user's own folder comes first.
  for (const QString& folder :
       QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation)) {
    systemFiles_.push_back(std::filesystem::path(folder.toStdString()) / kFile);
  }
  ownFile_ = std::move(systemFiles_.front());
  systemFiles_.erase(systemFiles_.begin());
}

bool AutostartEntry::isEnabled() const {
  return isThere(ownFile_) ? startsSomething(ownFile_) : isEnabledBySystem();
}

bool AutostartEntry::isEnabledBySystem() const {
  const auto first = std::ranges::find_if(systemFiles_, isThere);
  return first != systemFiles_.end() && startsSomething(*first);
}

std::optional<std::string> AutostartEntry::enable() const {
  return write(false);
}

std::optional<std::string> AutostartEntry::disable() const {
  if (isEnabledBySystem()) {
    return write(true);
  }
  std::error_code error;
  std::filesystem::remove(ownFile_, error);
  return error ? std::optional(failure("remove", ownFile_, error.message())) : std::nullopt;
}

/// Into a new file that takes the place of the old one: a login must never find half an entry.
std::optional<std::string> AutostartEntry::write(bool isHidden) const {
  std::error_code error;
  std::filesystem::create_directories(ownFile_.parent_path(), error);
  if (error) {
    return failure("create", ownFile_.parent_path(), error.message());
  }
  const std::string entry =
      "[Desktop Entry]\n"
      "Type=Application\n"
      "Name=Orvelle\n"
      "Comment=Volume booster and equaliser for everything a computer plays\n"
      "Icon=app.orvelle\n"
      "Exec=" +
      execArgument(program_.native()) +
      " gui\n"
      "Terminal=false\n" +
      (isHidden ? "Hidden=true\n" : "");
  QSaveFile stream(QString::fromStdString(ownFile_.native()));
  const bool isWritten = stream.open(QIODevice::WriteOnly) &&
                         stream.write(QByteArray::fromStdString(entry)) != -1 && stream.commit();
  return isWritten ? std::nullopt
                   : std::optional(failure("write", ownFile_, stream.errorString().toStdString()));
}

}  // namespace orvelle
