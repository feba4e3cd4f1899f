// The CoreAudio back end between a test and a simulated world.
#pragma once

#include <memory>

#include "orvelle/platform/coreaudio/CoreAudioHardware.h"
#include "tests/ForwardingHardware.h"
#include "tests/coreaudio/StandIn.h"

namespace orvelle {

/// The back end, on a stand-in of its own that ends after it and says then what was left.
class StandInDoor final : public ForwardingHardware {
 public:
  StandInDoor(std::unique_ptr<coreaudio::StandIn> standIn,
              std::unique_ptr<CoreAudioHardware> hardware)
      : ForwardingHardware(*hardware),
        standIn_(std::move(standIn)),
        hardware_(std::move(hardware)) {}

  [[nodiscard]] coreaudio::StandIn& standIn() { return *standIn_; }

 private:
  std::unique_ptr<coreaudio::StandIn> standIn_;
  std::unique_ptr<CoreAudioHardware> hardware_;
};

std::unique_ptr<StandInDoor> openStandInDoor(SimulatedHardware& world, ManualQueue& queue,
                                             const coreaudio::Adversity& adversity);

}  // namespace orvelle
