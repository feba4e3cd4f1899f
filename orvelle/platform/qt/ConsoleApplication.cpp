#include "orvelle/platform/qt/ConsoleApplication.h"

#include <cstdlib>

#include "orvelle/platform/qt/Locale.h"

namespace orvelle {

namespace {

/// Without it, Qt's loop for programs without windows serves neither run loop nor dispatch queue on
/// macOS, where the system delivers its news by these. Elsewhere nobody reads it.
void serveSystemQueues() {
  setenv("QT_EVENT_DISPATCHER_CORE_FOUNDATION", "1", 0);
}

}  // namespace

ConsoleApplication::ConsoleApplication(int& argc, char** argv)
    : application_((useUtf8(), serveSystemQueues(), argc), argv) {
  keepNumbersPlain();
}

}  // namespace orvelle
