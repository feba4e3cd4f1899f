#include "orvelle/platform/qt/ConsoleApplication.h"

#include "orvelle/platform/qt/Locale.h"

namespace orvelle {

ConsoleApplication::ConsoleApplication(int& argc, char** argv)
    : application_((useUtf8(), argc), argv) {
  keepNumbersPlain();
}

}  // namespace orvelle
