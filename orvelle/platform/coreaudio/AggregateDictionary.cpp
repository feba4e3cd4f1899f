#include "orvelle/platform/coreaudio/AggregateDictionary.h"

#include <CoreAudio/CoreAudio.h>

namespace orvelle::coreaudio {

namespace {

Owned<CFDictionaryRef> partDictionary(const std::string& uidKey, const std::string& uid,
                                      const std::string& driftKey, bool hasDriftCompensation) {
  DictionaryBuilder part;
  part.add(uidKey, uid);
  if (hasDriftCompensation) {
    part.add(driftKey, true);
  }
  return part.build();
}

}  // namespace

Owned<CFDictionaryRef> aggregateDictionary(const AggregateDescription& description,
                                           const std::vector<std::string>& tapUIDs) {
  std::vector<Owned<CFDictionaryRef>> members;
  for (const SubDevice& member : description.subdevices) {
    members.push_back(partDictionary(kAudioSubDeviceUIDKey, member.uid,
                                     kAudioSubDeviceDriftCompensationKey,
                                     member.driftCompensation));
  }
  std::vector<Owned<CFDictionaryRef>> taps;
  for (std::size_t index = 0; index < tapUIDs.size(); ++index) {
    taps.push_back(partDictionary(kAudioSubTapUIDKey, tapUIDs[index],
                                  kAudioSubTapDriftCompensationKey,
                                  description.taps[index].driftCompensation));
  }
  DictionaryBuilder aggregate;
  aggregate.add(kAudioAggregateDeviceNameKey, description.name);
  aggregate.add(kAudioAggregateDeviceUIDKey, description.uid);
  aggregate.add(kAudioAggregateDeviceSubDeviceListKey, members);
  aggregate.add(kAudioAggregateDeviceMainSubDeviceKey, description.master);
  aggregate.add(kAudioAggregateDeviceIsPrivateKey, description.isPrivate);
  // Taps that are added to an existing aggregate were reported never to deliver anything.
  if (!taps.empty()) {
    aggregate.add(kAudioAggregateDeviceTapListKey, taps);
    aggregate.add(kAudioAggregateDeviceTapAutoStartKey, description.tapAutoStart);
  }
  return aggregate.build();
}

}  // namespace orvelle::coreaudio
