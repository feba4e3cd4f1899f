// One instance of a program for each user and display.
#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QString>
#include <functional>

namespace orvelle {

/// The first one holds a lock and listens; the others call it. Both live in the user's runtime
/// folder and survive a crash without harm. Where nothing can be written to that folder, everyone
/// is the first, and one line on standard error says so. Needs a QGuiApplication. Main thread.
class SingleInstance {
 public:
  SingleInstance();

  /// Whether this is the first one, which it then stays until it ends.
  [[nodiscard]] bool isFirst() const { return lock_.error() != QLockFile::LockFailedError; }

  /// Calls the first one; false when it does not answer for some seconds.
  [[nodiscard]] bool callFirst() const;

  /// Called when another one has called. May be empty.
  std::function<void()> onCall;

 private:
  QString address_;
  QLockFile lock_;
  QLocalServer server_;
};

}  // namespace orvelle
