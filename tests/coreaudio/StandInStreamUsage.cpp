// Which streams a callback of the stand-in wants.
#include <cstring>

#include "tests/coreaudio/StandIn.h"
#include "tests/coreaudio/StandInIOProc.h"

namespace orvelle::coreaudio {

OSStatus StandIn::streamUsageSize(::AudioObjectID device, UInt32& byteSize) {
  std::size_t streams = 0;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, proc] : procs_) {
    if (proc->device == device) {
      streams = proc->isStreamOn.size();
    }
  }
  byteSize = static_cast<UInt32>(offsetof(::AudioHardwareIOProcStreamUsage, mStreamIsOn) +
                                 streams * sizeof(UInt32));
  return kAudioHardwareNoError;
}

OSStatus StandIn::streamUsage(::AudioObjectID device, UInt32& byteSize, void* data) {
  ::AudioDeviceIOProcID procID = nullptr;
  std::memcpy(&procID, data, sizeof(procID));
  const auto proc = find(device, procID);
  if (!proc) {
    reportFault("the streams of no callback are asked for");
    return kAudioHardwareIllegalOperationError;
  }
  auto* bytes = static_cast<std::byte*>(data);
  const auto count = static_cast<UInt32>(proc->isStreamOn.size());
  std::memcpy(bytes + offsetof(::AudioHardwareIOProcStreamUsage, mNumberStreams), &count,
              sizeof(count));
  std::memcpy(bytes + offsetof(::AudioHardwareIOProcStreamUsage, mStreamIsOn),
              proc->isStreamOn.data(), count * sizeof(UInt32));
  byteSize = static_cast<UInt32>(offsetof(::AudioHardwareIOProcStreamUsage, mStreamIsOn) +
                                 count * sizeof(UInt32));
  return kAudioHardwareNoError;
}

OSStatus StandIn::setStreamUsage(::AudioObjectID device, UInt32 /*byteSize*/, const void* data) {
  ::AudioDeviceIOProcID procID = nullptr;
  std::memcpy(&procID, data, sizeof(procID));
  const auto proc = find(device, procID);
  if (!proc) {
    reportFault("the streams of no callback are set");
    return kAudioHardwareIllegalOperationError;
  }
  std::memcpy(
      proc->isStreamOn.data(),
      static_cast<const std::byte*>(data) + offsetof(::AudioHardwareIOProcStreamUsage, mStreamIsOn),
      proc->isStreamOn.size() * sizeof(UInt32));
  return kAudioHardwareNoError;
}

}  // namespace orvelle::coreaudio
