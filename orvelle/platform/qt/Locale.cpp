#include "orvelle/platform/qt/Locale.h"

#include <langinfo.h>

#include <clocale>
#include <cstdlib>
#include <string_view>

namespace orvelle {

void useUtf8() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) != "UTF-8") {
    setenv("LC_ALL", "C.UTF-8", 1);
  }
}

void keepNumbersPlain() {
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace orvelle
