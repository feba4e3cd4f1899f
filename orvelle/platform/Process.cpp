#include "orvelle/platform/Process.h"

#include <unistd.h>

namespace orvelle {

int currentProcessID() {
  return getpid();
}

}  // namespace orvelle
