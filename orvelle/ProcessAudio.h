// Questions about the programs that use the audio system. Nothing here keeps state, and nothing
// fails loudly: what cannot be read is 0, empty or absent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/platform/ApplicationNames.h"
#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// One audio process object as it stood when it was asked.
struct AudioProcessInfo {
  AudioObjectID objectID = kAudioObjectUnknown;
  std::int32_t pid = 0;
  std::string bundleID;
  bool isOutputting = false;

  friend bool operator==(const AudioProcessInfo&, const AudioProcessInfo&) = default;
};

/// A process with the name that people know it by.
struct NamedProcess {
  std::string name;
  AudioProcessInfo process;
};

/// Queries over the hardware interface. Any thread but the real-time one; names on the main thread.
class ProcessAudio {
 public:
  explicit ProcessAudio(AudioHardware& hardware) : hardware_(hardware) {}

  [[nodiscard]] std::vector<AudioObjectID> processObjectIDs() const;
  /// In the order of the list. A process that cannot be read is listed with its id alone.
  [[nodiscard]] std::vector<AudioProcessInfo> all() const;
  /// Those that produce output right now, in the order of the list.
  [[nodiscard]] std::vector<AudioProcessInfo> outputting() const;
  /// The first process object of that process.
  [[nodiscard]] std::optional<AudioObjectID> object(std::int32_t forPID) const;

  /// What the platform calls the application; else what the program calls itself to the audio
  /// system, where that tells; else the bundle identifier; else "pid " and the number. A process
  /// without a pid is not looked up. Main thread.
  [[nodiscard]] std::string name(const AudioProcessInfo& process,
                                 const ApplicationNames& applications) const;
  /// As lists show them: by name, upper case before lower case; equal names keep their order. Main
  /// thread.
  [[nodiscard]] std::vector<NamedProcess> sortedByName(
      const std::vector<AudioProcessInfo>& processes, const ApplicationNames& applications) const;

 private:
  [[nodiscard]] std::int32_t pid(AudioObjectID process) const;

  AudioHardware& hardware_;
};

}  // namespace orvelle
