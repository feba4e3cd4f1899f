#include "orvelle/platform/linux/AlertSound.h"

#include <unistd.h>

#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <array>

namespace orvelle {

namespace {

/// Every sound theme falls back to this one.
constexpr const char* kFolder = "sounds/freedesktop/stereo/";

/// Empty when none is installed.
QString soundFile() {
  constexpr std::array names = {"dialog-warning.oga", "bell.oga"};
  for (const char* name : names) {
    QString file = QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                                          QString::fromLatin1(kFolder) + name);
    if (!file.isEmpty()) {
      return file;
    }
  }
  return {};
}

/// No child of this process: nobody has to wait for its end.
bool playDetached(const QString& file) {
  const QString player = QStandardPaths::findExecutable(QStringLiteral("pw-play"));
  if (player.isEmpty() || file.isEmpty()) {
    return false;
  }
  QProcess process;
  process.setProgram(player);
  process.setArguments({QStringLiteral("--media-role=Notification"), file});
  process.setStandardInputFile(QProcess::nullDevice());
  process.setStandardOutputFile(QProcess::nullDevice());
  process.setStandardErrorFile(QProcess::nullDevice());
  return process.startDetached();
}

void ringTerminal() {
  if (isatty(STDERR_FILENO) == 0) {
    return;
  }
  constexpr char bell = '\a';
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, &bell, 1);
}

}  // namespace

void playAlert() {
  if (!playDetached(soundFile())) {
    ringTerminal();
  }
}

}  // namespace orvelle
