#include "orvelle/UndoKeeper.h"

namespace orvelle {

UndoKeeper& UndoKeeper::none() {
  static ForgetfulUndoKeeper keeper;
  return keeper;
}

}  // namespace orvelle
