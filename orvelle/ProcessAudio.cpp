#include "orvelle/ProcessAudio.h"

#include <algorithm>
#include <utility>

#include "orvelle/PropertyReading.h"

namespace orvelle {

std::vector<AudioObjectID> ProcessAudio::processObjectIDs() const {
  return readList<std::vector<AudioObjectID>>(hardware_, kAudioObjectSystemObject,
                                              {kAudioHardwarePropertyProcessObjectList})
      .value_or(std::vector<AudioObjectID>{});
}

std::vector<AudioProcessInfo> ProcessAudio::all() const {
  std::vector<AudioProcessInfo> processes;
  for (const AudioObjectID id : processObjectIDs()) {
    AudioProcessInfo info;
    info.objectID = id;
    info.pid = pid(id);
    info.bundleID =
        readProperty<std::string>(hardware_, id, {kAudioProcessPropertyBundleID}).value_or("");
    info.isOutputting =
        readProperty<std::uint32_t>(hardware_, id, {kAudioProcessPropertyIsRunningOutput})
            .value_or(0U) != 0U;
    processes.push_back(std::move(info));
  }
  return processes;
}

std::vector<AudioProcessInfo> ProcessAudio::outputting() const {
  std::vector<AudioProcessInfo> processes = all();
  std::erase_if(processes, [](const AudioProcessInfo& process) { return !process.isOutputting; });
  return processes;
}

std::optional<AudioObjectID> ProcessAudio::object(std::int32_t forPID) const {
  const std::vector<AudioObjectID> ids = processObjectIDs();
  const auto found = std::ranges::find_if(ids, [&](AudioObjectID id) { return pid(id) == forPID; });
  return found == ids.end() ? std::nullopt : std::optional(*found);
}

std::string ProcessAudio::name(const AudioProcessInfo& process,
                               const ApplicationNames& applications) const {
  if (process.pid >= 1) {
    if (const auto known = applications.localizedName(process.pid, process.bundleID)) {
      return *known;
    }
    const auto ownName =
        readProperty<std::string>(hardware_, process.objectID, {kAudioObjectPropertyName});
    if (ownName && !ownName->empty()) {
      return *ownName;
    }
  }
  return process.bundleID.empty() ? "pid " + std::to_string(process.pid) : process.bundleID;
}

std::vector<NamedProcess> ProcessAudio::sortedByName(const std::vector<AudioProcessInfo>& processes,
                                                     const ApplicationNames& applications) const {
  std::vector<NamedProcess> named;
  named.reserve(processes.size());
  for (const AudioProcessInfo& process : processes) {
    named.push_back({name(process, applications), process});
  }
  std::ranges::stable_sort(named, {}, &NamedProcess::name);
  return named;
}

std::int32_t ProcessAudio::pid(AudioObjectID process) const {
  return readProperty<std::int32_t>(hardware_, process, {kAudioProcessPropertyPID}).value_or(0);
}

}  // namespace orvelle
