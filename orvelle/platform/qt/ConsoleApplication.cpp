#include "orvelle/platform/qt/ConsoleApplication.h"

#include <langinfo.h>

#include <QByteArray>
#include <clocale>
#include <string_view>

namespace orvelle {

namespace {

/// In a locale that is not UTF-8, as services and containers have it, Qt switches to UTF-8 all the
/// same but puts four lines about it on standard error first. Text here is UTF-8 in any case.
int& withUtf8Locale(int& argc) {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) != "UTF-8") {
    qputenv("LC_ALL", "C.UTF-8");
  }
  return argc;
}

}  // namespace

ConsoleApplication::ConsoleApplication(int& argc, char** argv)
    : application_(withUtf8Locale(argc), argv) {
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace orvelle
