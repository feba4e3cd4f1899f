// A callback as the stand-in keeps it.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/coreaudio/StandIn.h"

namespace orvelle::coreaudio {

struct StandIn::IOProc {
  ::AudioDeviceIOProcID id = nullptr;
  ::AudioObjectID device = 0;
  ::AudioDeviceIOProc proc = nullptr;
  void* clientData = nullptr;
  AudioDeviceIOProcID worldID = 0;
  std::size_t tapCount = 0;
  /// One for each input stream; those of microphones by the uid of their device, else empty.
  std::vector<std::string> microphones;
  std::vector<std::uint32_t> isStreamOn;
  int starts = 0;
  bool isStarted = false;
  double startedAt = 0.0;  // seconds of the queue
  std::atomic<bool> callsNobody{false};
  std::atomic<bool> refusesRecording{false};

  /// One cycle, on the thread that stands for the HAL's.
  void call(AudioBufferList input, AudioBufferList output) const;
};

}  // namespace orvelle::coreaudio
