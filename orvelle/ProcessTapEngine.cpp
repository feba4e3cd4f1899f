#include "orvelle/ProcessTapEngine.h"

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <random>
#include <utility>

#include "orvelle/NumberText.h"
#include "orvelle/PropertyReading.h"
#include "orvelle/platform/Process.h"

namespace orvelle {

namespace {

/// A random UUID (version 4) as text, in upper case as the HAL writes it.
std::string randomUUID() {
  std::random_device random;
  std::array<std::uint32_t, 4> words{};
  for (std::uint32_t& word : words) {
    word = random();
  }
  words[1] = (words[1] & 0xFFFF0FFFU) | 0x00004000U;  // version: random
  words[2] = (words[2] & 0x3FFFFFFFU) | 0x80000000U;  // variant of RFC 4122
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(),
                "%08" PRIX32 "-%04" PRIX32 "-%04" PRIX32 "-%04" PRIX32 "-%04" PRIX32 "%08" PRIX32,
                words[0], words[1] >> 16U, words[1] & 0xFFFFU, words[2] >> 16U, words[2] & 0xFFFFU,
                words[3]);
  return text.data();
}

std::string undoOwner(const std::string& tapUUID) {
  return "tap " + tapUUID;
}

std::string hexadecimalText(std::uint32_t value) {
  std::array<char, 9> text{};
  std::snprintf(text.data(), text.size(), "%" PRIx32, value);
  return text.data();
}

}  // namespace

ProcessTapEngine::ProcessTapEngine(const EngineHost& host)
    : host_(host), hal_(host.hardware), meter_(host.queue, host.console, *this) {}

ProcessTapEngine::~ProcessTapEngine() {
  gate_->closeAndWait();
}

void ProcessTapEngine::start(AudioObjectID processObjectID, const std::string& outputUID) {
  if (isRunning_) {
    return;
  }
  // Taps that earlier attempts left would pile up.
  teardown();
  // A device whose uid cannot be read has an empty one, too.
  if (outputUID.empty() || !hal_.device(outputUID)) {
    throw EngineError::deviceNotFound(outputUID);
  }
  makeTap(processObjectID);
  makeAggregate(outputUID);
  makeIOProc();
  printTapFormat();
  const OSStatus status = host_.hardware.startDevice(aggregateID_, procID_);
  if (status != kAudioHardwareNoError) {
    throw EngineError::osStatus("AudioDeviceStart", status);
  }
  isRunning_ = true;
  if (showMeter) {
    meter_.start();
  }
}

void ProcessTapEngine::stop() {
  if (!isRunning_) {
    return;
  }
  isRunning_ = false;
  meter_.stop();
  teardown();
}

void ProcessTapEngine::teardown() {
  if (procID_ != 0) {
    host_.hardware.stopDevice(aggregateID_, procID_);
    host_.hardware.destroyIOProcID(aggregateID_, std::exchange(procID_, 0));
  }
  if (aggregateID_ != kAudioObjectUnknown) {
    host_.hardware.destroyAggregateDevice(std::exchange(aggregateID_, kAudioObjectUnknown));
  }
  if (tapID_ != kAudioObjectUnknown) {
    host_.hardware.destroyProcessTap(std::exchange(tapID_, kAudioObjectUnknown));
  }
  if (!tapUUID_.empty()) {
    host_.undoKeeper.keep(undoOwner(std::exchange(tapUUID_, {})), {});
  }
}

void ProcessTapEngine::makeTap(AudioObjectID processObjectID) {
  TapDescription description;
  description.processes = {processObjectID};
  description.uuid = randomUUID();
  description.isPrivate = true;
  description.muteBehavior = TapMuteBehavior::mutedWhenTapped;
  tapUUID_ = description.uuid;
  UndoRecord debts;
  debts.hasTaps = true;
  host_.undoKeeper.keep(undoOwner(tapUUID_), debts);
  const OSStatus status = host_.hardware.createProcessTap(description, tapID_);
  if (status != kAudioHardwareNoError) {
    throw EngineError::osStatus("CreateProcessTap (recording permission?)", status);
  }
}

void ProcessTapEngine::makeAggregate(const std::string& outputUID) {
  AggregateDescription description;
  description.name = "Orvelle AppVol";
  description.uid = "app.orvelle.appvol." + std::to_string(currentProcessID());
  description.master = outputUID;
  description.isPrivate = true;
  description.subdevices = {{outputUID, false}};
  description.taps = {{tapUUID_, true}};
  description.tapAutoStart = true;
  const OSStatus status = host_.hardware.createAggregateDevice(description, aggregateID_);
  if (status != kAudioHardwareNoError || aggregateID_ == kAudioObjectUnknown) {
    throw EngineError::osStatus("CreateAggregateDevice(tap)", status);
  }
}

void ProcessTapEngine::makeIOProc() {
  const OSStatus status =
      host_.hardware.createIOProcID(aggregateID_, renderWhileOpen(gate_, *this), procID_);
  if (status != kAudioHardwareNoError || procID_ == 0) {
    throw EngineError::osStatus("CreateIOProcID", status);
  }
}

void ProcessTapEngine::printTapFormat() {
  const auto format = readProperty<StreamFormat>(host_.hardware, tapID_, {kAudioTapPropertyFormat});
  host_.console.print("  tap format: " +
                      (format ? wholeNumberText(format->sampleRate) + " Hz, " +
                                    std::to_string(format->channelsPerFrame) + " ch, flags 0x" +
                                    hexadecimalText(format->formatFlags)
                              : "<could not read>"));
}

}  // namespace orvelle
