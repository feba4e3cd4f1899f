#include "orvelle/platform/coreaudio/StreamUsage.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle::coreaudio {

void turnOffInputs(AudioObjectID halDevice, ::AudioDeviceIOProcID procID, std::uint32_t dropped) {
  using Usage = ::AudioHardwareIOProcStreamUsage;
  const ::AudioObjectPropertyAddress address =
      halAddress({::kAudioDevicePropertyIOProcStreamUsage, kAudioObjectPropertyScopeInput});
  UInt32 byteSize = 0;
  if (AudioObjectGetPropertyDataSize(halDevice, &address, 0, nullptr, &byteSize) !=
          kAudioHardwareNoError ||
      byteSize < offsetof(Usage, mStreamIsOn)) {
    return;
  }
  // The value is asked for with the callback in it.
  std::vector<std::byte> bytes(byteSize);
  std::memcpy(&bytes[offsetof(Usage, mIOProc)], &procID, sizeof(procID));
  if (AudioObjectGetPropertyData(halDevice, &address, 0, nullptr, &byteSize, bytes.data()) !=
      kAudioHardwareNoError) {
    return;
  }
  const std::size_t streams = (byteSize - offsetof(Usage, mStreamIsOn)) / sizeof(UInt32);
  constexpr UInt32 off = 0;
  for (std::size_t index = 0; index < streams && index < 32; ++index) {
    if ((dropped & (1U << index)) != 0) {
      std::memcpy(&bytes[offsetof(Usage, mStreamIsOn) + index * sizeof(off)], &off, sizeof(off));
    }
  }
  AudioObjectSetPropertyData(halDevice, &address, 0, nullptr, byteSize, bytes.data());
}

}  // namespace orvelle::coreaudio
