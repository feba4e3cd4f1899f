#include "orvelle/BoostStarter.h"

#include <limits>
#include <utility>

#include "orvelle/DeviceRouter.h"

namespace orvelle {

BoostStarter::BoostStarter(const EngineHost& host, BackgroundQueue& background, BoostEngine& engine)
    : host_(host), background_(background), engine_(engine) {}

BoostStarter::~BoostStarter() {
  while (!settle(1.0)) {
  }
}

void BoostStarter::start(const std::string& loopbackUID, Report report) {
  if (isBusy()) {
    waiting_ = {loopbackUID, std::move(report)};
    return;
  }
  waiting_.reset();
  launch(loopbackUID, std::move(report));
}

void BoostStarter::stop(bool restoreDefault) {
  waiting_.reset();
  if (!isBusy()) {
    engine_.stop(restoreDefault);
    return;
  }
  *givingUp_ = true;
  wantsStop_ = restoreDefault || wantsStop_.value_or(false);
}

bool BoostStarter::settle(double timeoutSeconds) {
  waiting_.reset();
  if (!isBusy()) {
    return true;
  }
  *givingUp_ = true;
  if (!background_.wait(timeoutSeconds)) {
    wantsStop_ = true;
    return false;
  }
  givingUp_.reset();
  life_.reset();  // nobody waits for the report any more
  return true;
}

void BoostStarter::launch(const std::string& loopbackUID, Report report) {
  givingUp_ = std::make_shared<std::atomic<bool>>(false);
  background_.run([this, loopbackUID, report = std::move(report), givingUp = givingUp_,
                   life = std::weak_ptr<const bool>(life_)] {
    host_.queue.post([this, report, outcome = attempt(loopbackUID, *givingUp), life] {
      if (!life.expired()) {
        ended(report, outcome);
      }
    });
  });
}

/// In the background.
StartOutcome BoostStarter::attempt(const std::string& loopbackUID,
                                   const std::atomic<bool>& givingUp) {
  if (const auto process = host_.undoKeeper.boostingProcess()) {
    return {std::nullopt, EngineError::boostingAlready(*process).what()};
  }
  const auto output = DeviceRouter::preferredOutput(HAL(host_.hardware));
  if (!output) {
    return {};
  }
  try {
    engine_.start(loopbackUID, output->uid, &givingUp);
    return {output, ""};
  } catch (const EngineError& error) {
    // All sound would end in a loopback that nobody reads.
    engine_.removeDefaultGuard();
    engine_.teardownAggregate();
    engine_.stop(true);
    return {std::nullopt, error.what()};
  }
}

void BoostStarter::ended(const Report& report, const StartOutcome& outcome) {
  givingUp_.reset();
  if (const auto wantsStop = std::exchange(wantsStop_, std::nullopt)) {
    engine_.stop(*wantsStop);
    if (onLateStop) {
      onLateStop();
    }
  }
  report(outcome);  // who is told may start or stop the boost himself
  if (waiting_ && !isBusy()) {
    const WaitingStart next = *std::exchange(waiting_, std::nullopt);
    launch(next.loopbackUID, next.report);
  }
}

}  // namespace orvelle
