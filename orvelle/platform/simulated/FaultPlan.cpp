#include "orvelle/platform/simulated/FaultPlan.h"

namespace orvelle {

namespace {

bool matches(const Fault& fault, const CallTarget& call) {
  return (!fault.kind || *fault.kind == call.kind) &&
         (!fault.selector || *fault.selector == call.selector) &&
         (!fault.object || *fault.object == call.object);
}

}  // namespace

void FaultPlan::clear() {
  faults_.clear();
  listenerFaults_.clear();
}

std::optional<Fault> FaultPlan::judge(const CallTarget& call) {
  std::optional<Fault> hit;
  for (Fault& fault : faults_) {
    if (!matches(fault, call)) {
      continue;
    }
    if (fault.skip > 0) {
      --fault.skip;
    } else if (fault.count > 0) {
      fault.count -= fault.count == Fault::always ? 0 : 1;
      if (!hit) {
        hit = fault;
      }
    }
  }
  return hit;
}

std::optional<ListenerFault> FaultPlan::judgeNotification() {
  while (!listenerFaults_.empty() && listenerFaults_.front().count == 0) {
    listenerFaults_.erase(listenerFaults_.begin());
  }
  if (listenerFaults_.empty()) {
    return std::nullopt;
  }
  --listenerFaults_.front().count;
  return listenerFaults_.front();
}

}  // namespace orvelle
