#include "orvelle/platform/pipewire/PipeWireHardware.h"

#include <utility>

#include "orvelle/platform/ListenerRegistry.h"
#include "orvelle/platform/PropertySize.h"
#include "orvelle/platform/pipewire/AggregateDevices.h"
#include "orvelle/platform/pipewire/DefaultOutput.h"
#include "orvelle/platform/pipewire/DeviceCatalogue.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/NominalRate.h"
#include "orvelle/platform/pipewire/Session.h"
#include "orvelle/platform/pipewire/Volume.h"
#include "orvelle/platform/pipewire/VolumeControl.h"

namespace orvelle {

using pipewire::AggregateDevices;
using pipewire::Change;
using pipewire::DefaultOutput;
using pipewire::Device;
using pipewire::DeviceCatalogue;
using pipewire::kLoopbackName;
using pipewire::LoopbackNode;
using pipewire::Node;
using pipewire::NominalRate;
using pipewire::Session;
using pipewire::VolumeControl;

namespace {

constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};
constexpr PropertyAddress kDefaultOutput{kAudioHardwarePropertyDefaultOutputDevice};
constexpr double kLoopbackRate = 48000.0;

bool isMainElement(const PropertyAddress& address, std::uint32_t scope) {
  return address.scope == scope && address.element == kAudioObjectPropertyElementMain;
}

}  // namespace

/// Everything behind the interface. Session lock held in every call.
struct PipeWireHardware::Parts {
  Parts(std::unique_ptr<Session> opened, MainQueue& queue)
      : session(std::move(opened)),
        listeners(queue),
        loopback(*session),
        catalogue(*session, loopback, [this] { return ++lastID; }),
        defaultOutput(*session),
        volumes(*session),
        rates(*session),
        aggregates(*session, [this] { return ++lastID; }) {
    reportedDefault = defaultOutputID();
    session->onChange = [this](Change change) { sessionChanged(change); };
  }

  std::unique_ptr<Session> session;
  AudioObjectID lastID = kAudioObjectSystemObject;
  ListenerRegistry listeners;
  LoopbackNode loopback;
  DeviceCatalogue catalogue;
  DefaultOutput defaultOutput;
  VolumeControl volumes;
  NominalRate rates;
  AggregateDevices aggregates;
  AudioObjectID reportedDefault = kAudioObjectUnknown;
  /// Whether we have made the loopback the default output, and not taken that back.
  bool isLoopbackDefault = false;

  void sessionChanged(Change change);
  [[nodiscard]] AudioObjectID defaultOutputID() const;

  void learnLevel(AudioObjectID object, const PropertyAddress& address);
  OSStatus get(AudioObjectID object, const PropertyAddress& address, PropertyValue& value);
  OSStatus getOfSystem(const PropertyAddress& address, PropertyValue& value) const;
  OSStatus getOfAggregate(AudioObjectID object, const PropertyAddress& address,
                          PropertyValue& value) const;
  OSStatus getOfDevice(const Device& device, const PropertyAddress& address, PropertyValue& value);
  OSStatus getLevel(const Node* node, std::uint32_t selector, PropertyValue& value) const;
  OSStatus getChannels(const Device& device, std::uint32_t scope, PropertyValue& value) const;

  OSStatus setDefaultOutput(AudioObjectID id);
  OSStatus setOfDevice(const Device& device, const PropertyAddress& address,
                       const PropertyValue& value);
  OSStatus createAggregate(const AggregateDescription& description, AudioObjectID& aggregate);
  void releaseLoopback();
};

// Changes

void PipeWireHardware::Parts::sessionChanged(Change change) {
  if (change == Change::level) {
    for (const Device& device : catalogue.devices()) {
      listeners.notify(device.id,
                       {kAudioDevicePropertyVolumeScalar, kAudioObjectPropertyScopeOutput});
      listeners.notify(device.id, {kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput});
    }
    return;
  }
  if (change == Change::objects) {
    volumes.forgetGone();
    if (loopback.takeLoss()) {
      catalogue.renewLoopback();
    }
    if (catalogue.update()) {
      listeners.notify(kAudioObjectSystemObject, kDevices);
    }
    aggregates.linkUp();
    rates.linkUp();
  }
  // A device that comes or goes may change whom the default output's name stands for.
  if (const AudioObjectID current = defaultOutputID();
      std::exchange(reportedDefault, current) != current) {
    listeners.notify(kAudioObjectSystemObject, kDefaultOutput);
  }
}

AudioObjectID PipeWireHardware::Parts::defaultOutputID() const {
  const std::string name = defaultOutput.effective();
  // The session manager may take a moment to notice that the default output has gone. The catalogue
  // would not tell: it lists the loopback always.
  const Device* device =
      session->nodeNamed(name) == nullptr ? nullptr : catalogue.deviceNamed(name);
  return device == nullptr ? kAudioObjectUnknown : device->id;
}

// Reading

/// Waits: what was looked up before is to be looked up again.
void PipeWireHardware::Parts::learnLevel(AudioObjectID object, const PropertyAddress& address) {
  const bool isLevel = isMainElement(address, kAudioObjectPropertyScopeOutput) &&
                       (address.selector == kAudioDevicePropertyVolumeScalar ||
                        address.selector == kAudioDevicePropertyMute);
  const Device* device = isLevel ? catalogue.device(object) : nullptr;
  const Node* node = device == nullptr ? nullptr : catalogue.nodeOf(*device);
  if (node != nullptr) {
    volumes.learn(*node);
  }
}

OSStatus PipeWireHardware::Parts::get(AudioObjectID object, const PropertyAddress& address,
                                      PropertyValue& value) {
  if (object == kAudioObjectSystemObject) {
    return getOfSystem(address, value);
  }
  learnLevel(object, address);
  if (const Device* device = catalogue.device(object)) {
    return getOfDevice(*device, address, value);
  }
  return getOfAggregate(object, address, value);
}

OSStatus PipeWireHardware::Parts::getOfSystem(const PropertyAddress& address,
                                              PropertyValue& value) const {
  if (address == kDevices) {
    std::vector<AudioObjectID> ids;
    for (const Device& device : catalogue.devices()) {
      ids.push_back(device.id);
    }
    value = std::move(ids);
    return kAudioHardwareNoError;
  }
  if (address == kDefaultOutput) {
    value = std::uint32_t{defaultOutputID()};
    return kAudioHardwareNoError;
  }
  return kAudioHardwareUnknownPropertyError;
}

OSStatus PipeWireHardware::Parts::getOfAggregate(AudioObjectID object,
                                                 const PropertyAddress& address,
                                                 PropertyValue& value) const {
  const AggregateDescription* description = aggregates.description(object);
  if (description == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (address == PropertyAddress{kAudioDevicePropertyDeviceUID}) {
    value = description->uid;
  } else if (address == PropertyAddress{kAudioObjectPropertyName}) {
    value = description->name;
  } else if (address == PropertyAddress{kAudioDevicePropertyTransportType}) {
    value = kAudioDeviceTransportTypeAggregate;
  } else if (address == PropertyAddress{kAudioDevicePropertyDeviceIsRunning}) {
    value = std::uint32_t{aggregates.isRunning(object) ? 1U : 0U};
  } else {
    return kAudioHardwareUnknownPropertyError;
  }
  return kAudioHardwareNoError;
}

OSStatus PipeWireHardware::Parts::getOfDevice(const Device& device, const PropertyAddress& address,
                                              PropertyValue& value) {
  const Node* node = catalogue.nodeOf(device);
  if (address.selector == kAudioDevicePropertyStreamConfiguration) {
    return getChannels(device, address.scope, value);
  }
  if (isMainElement(address, kAudioObjectPropertyScopeOutput)) {
    return getLevel(node, address.selector, value);
  }
  if (!isMainElement(address, kAudioObjectPropertyScopeGlobal)) {
    return kAudioHardwareUnknownPropertyError;
  }
  switch (address.selector) {
    case kAudioDevicePropertyDeviceUID:
      value = catalogue.uid(device);
      return kAudioHardwareNoError;
    case kAudioObjectPropertyName:
      value = catalogue.name(device);
      return kAudioHardwareNoError;
    case kAudioDevicePropertyTransportType:
      value = catalogue.transport(device);
      return kAudioHardwareNoError;
    case kAudioDevicePropertyDeviceIsRunning:
      value = std::uint32_t{node != nullptr && node->isRunning ? 1U : 0U};
      return kAudioHardwareNoError;
    case kAudioDevicePropertyNominalSampleRate:
      value = node == nullptr ? kLoopbackRate : rates.read(*node);
      return kAudioHardwareNoError;
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

OSStatus PipeWireHardware::Parts::getLevel(const Node* node, std::uint32_t selector,
                                           PropertyValue& value) const {
  if (selector != kAudioDevicePropertyVolumeScalar && selector != kAudioDevicePropertyMute) {
    return kAudioHardwareUnknownPropertyError;
  }
  // A loopback whose node is not there yet has the level that the node will come with.
  const auto level =
      node == nullptr ? pipewire::ChannelLevel{{1.0F, 1.0F}, {}, false} : volumes.level(*node);
  if (!level) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (selector == kAudioDevicePropertyMute) {
    value = std::uint32_t{level->mute ? 1U : 0U};
  } else {
    value = pipewire::scalarFromVolumes(level->volumes);
  }
  return kAudioHardwareNoError;
}

OSStatus PipeWireHardware::Parts::getChannels(const Device& device, std::uint32_t scope,
                                              PropertyValue& value) const {
  if (scope != kAudioObjectPropertyScopeInput && scope != kAudioObjectPropertyScopeOutput) {
    return kAudioHardwareUnknownPropertyError;
  }
  const pipewire::ChannelCounts counts = catalogue.channels(device);
  const std::uint32_t count =
      scope == kAudioObjectPropertyScopeInput ? counts.inputs : counts.outputs;
  StreamConfiguration configuration;
  if (count != 0) {
    configuration.channelsPerBuffer.push_back(count);
  }
  value = std::move(configuration);
  return kAudioHardwareNoError;
}

// Changing

OSStatus PipeWireHardware::Parts::setDefaultOutput(AudioObjectID id) {
  const Device* device = catalogue.device(id);
  if (device == nullptr) {
    return kAudioHardwareBadDeviceError;
  }
  if (catalogue.channels(*device).outputs == 0) {
    return kAudioHardwareIllegalOperationError;
  }
  if (device->isLoopback) {
    if (!loopback.ensure()) {
      return kAudioHardwareNotReadyError;
    }
    isLoopbackDefault = true;
    return defaultOutput.moveToLoopback(kLoopbackName) ? kAudioHardwareNoError
                                                       : kAudioHardwareNotReadyError;
  }
  // Another instance boosts: its real output stands at full volume, and the default output must
  // not be put on it over that instance's head.
  if (loopback.isForeign() && defaultOutput.effective() == kLoopbackName) {
    return kAudioHardwareIllegalOperationError;
  }
  const std::string uid = catalogue.uid(*device);
  if (!defaultOutput.moveTo(uid)) {
    return kAudioHardwareNotReadyError;
  }
  isLoopbackDefault = false;
  releaseLoopback();
  return kAudioHardwareNoError;
}

OSStatus PipeWireHardware::Parts::setOfDevice(const Device& device, const PropertyAddress& address,
                                              const PropertyValue& value) {
  const Node* node = catalogue.nodeOf(device);
  const bool isOutput = isMainElement(address, kAudioObjectPropertyScopeOutput);
  const bool isGlobal = isMainElement(address, kAudioObjectPropertyScopeGlobal);
  const auto* scalar = std::get_if<float>(&value);
  const auto* flag = std::get_if<std::uint32_t>(&value);
  const auto* rate = std::get_if<double>(&value);

  const bool isVolume = isOutput && address.selector == kAudioDevicePropertyVolumeScalar;
  const bool isMute = isOutput && address.selector == kAudioDevicePropertyMute;
  const bool isRate = isGlobal && address.selector == kAudioDevicePropertyNominalSampleRate;
  if (!isVolume && !isMute && !isRate) {
    return kAudioHardwareUnknownPropertyError;
  }
  if ((isVolume && scalar == nullptr) || (isMute && flag == nullptr) ||
      (isRate && rate == nullptr)) {
    return kAudioHardwareBadPropertySizeError;
  }
  if (node == nullptr) {
    return kAudioHardwareNotReadyError;
  }
  if (isVolume) {
    return volumes.setScalar(*node, *scalar);
  }
  return isMute ? volumes.setMute(*node, *flag != 0) : rates.set(*node, *rate);
}

OSStatus PipeWireHardware::Parts::createAggregate(const AggregateDescription& description,
                                                  AudioObjectID& aggregate) {
  for (const SubDevice& member : description.subdevices) {
    const Device* device = catalogue.deviceNamed(member.uid);
    if (device == nullptr) {
      return kAudioHardwareBadDeviceError;
    }
    if (device->isLoopback && !loopback.ensure()) {
      return kAudioHardwareNotReadyError;
    }
  }
  return aggregates.create(description, aggregate);
}

void PipeWireHardware::Parts::releaseLoopback() {
  if (!isLoopbackDefault && !aggregates.hasMember(kLoopbackName)) {
    loopback.destroy();
  }
}

// The interface: each call takes the lock and asks the parts.

PipeWireHardware::PipeWireHardware(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}

std::unique_ptr<PipeWireHardware> PipeWireHardware::connect(MainQueue& queue,
                                                            std::string& problem) {
  std::unique_ptr<Session> session = Session::open(problem);
  if (!session) {
    return nullptr;
  }
  const Session& opened = *session;
  const Session::Lock lock(opened);
  return std::unique_ptr<PipeWireHardware>(
      new PipeWireHardware(std::make_unique<Parts>(std::move(session), queue)));
}

PipeWireHardware::~PipeWireHardware() {
  std::unique_ptr<Session> session;
  {
    const Session::Lock lock(*parts_->session);
    parts_->session->onChange = nullptr;
    parts_->session->cancelJobs();
    session = std::move(parts_->session);
    parts_.reset();
    // Otherwise the connection could end before what was asked last has been sent.
    session->roundTrip();
  }
}

bool PipeWireHardware::hasProperty(AudioObjectID object, const PropertyAddress& address) {
  PropertyValue value;
  return getPropertyData(object, address, value) == kAudioHardwareNoError;
}

OSStatus PipeWireHardware::isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                                              bool& settable) {
  PropertyValue value;
  const OSStatus status = getPropertyData(object, address, value);
  if (status == kAudioHardwareNoError) {
    settable = address == kDefaultOutput || address.selector == kAudioDevicePropertyVolumeScalar ||
               address.selector == kAudioDevicePropertyMute ||
               address.selector == kAudioDevicePropertyNominalSampleRate;
  }
  return status;
}

OSStatus PipeWireHardware::getPropertyDataSize(AudioObjectID object, const PropertyAddress& address,
                                               std::uint32_t& byteSize) {
  PropertyValue value;
  const OSStatus status = getPropertyData(object, address, value);
  if (status == kAudioHardwareNoError) {
    byteSize = propertySize(value);
  }
  return status;
}

OSStatus PipeWireHardware::getPropertyData(AudioObjectID object, const PropertyAddress& address,
                                           PropertyValue& value) {
  const Session::Lock lock(*parts_->session);
  return parts_->get(object, address, value);
}

OSStatus PipeWireHardware::setPropertyData(AudioObjectID object, const PropertyAddress& address,
                                           const PropertyValue& value) {
  const Session::Lock lock(*parts_->session);
  if (object == kAudioObjectSystemObject) {
    if (address != kDefaultOutput) {
      return kAudioHardwareUnknownPropertyError;
    }
    const auto* id = std::get_if<std::uint32_t>(&value);
    return id == nullptr ? kAudioHardwareBadPropertySizeError : parts_->setDefaultOutput(*id);
  }
  parts_->learnLevel(object, address);
  const Device* device = parts_->catalogue.device(object);
  return device == nullptr ? kAudioHardwareBadObjectError
                           : parts_->setOfDevice(*device, address, value);
}

OSStatus PipeWireHardware::addPropertyListener(AudioObjectID object, const PropertyAddress& address,
                                               PropertyListener listener, ListenerToken& token) {
  const Session::Lock lock(*parts_->session);
  PropertyValue value;
  const OSStatus status = parts_->get(object, address, value);
  if (status == kAudioHardwareNoError) {
    token = parts_->listeners.add(object, address, std::move(listener));
  }
  return status;
}

OSStatus PipeWireHardware::removePropertyListener(ListenerToken token) {
  const Session::Lock lock(*parts_->session);
  return parts_->listeners.remove(token) ? kAudioHardwareNoError
                                         : kAudioHardwareIllegalOperationError;
}

OSStatus PipeWireHardware::createAggregateDevice(const AggregateDescription& description,
                                                 AudioObjectID& aggregate) {
  const Session::Lock lock(*parts_->session);
  const OSStatus status = parts_->createAggregate(description, aggregate);
  parts_->releaseLoopback();  // what was refused needs none
  return status;
}

OSStatus PipeWireHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  const Session::Lock lock(*parts_->session);
  const OSStatus status = parts_->aggregates.destroy(aggregate);
  parts_->releaseLoopback();
  return status;
}

OSStatus PipeWireHardware::createIOProcID(AudioObjectID device, IOBlock block,
                                          AudioDeviceIOProcID& procID) {
  const Session::Lock lock(*parts_->session);
  return parts_->aggregates.createIOProc(device, std::move(block), procID);
}

OSStatus PipeWireHardware::destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) {
  const Session::Lock lock(*parts_->session);
  return parts_->aggregates.destroyIOProc(device, procID);
}

OSStatus PipeWireHardware::startDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  const Session::Lock lock(*parts_->session);
  return parts_->aggregates.start(device, procID);
}

OSStatus PipeWireHardware::stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  const Session::Lock lock(*parts_->session);
  return parts_->aggregates.stop(device, procID);
}

OSStatus PipeWireHardware::createProcessTap(const TapDescription& /*description*/,
                                            AudioObjectID& /*tap*/) {
  return kAudioHardwareUnsupportedOperationError;
}

OSStatus PipeWireHardware::destroyProcessTap(AudioObjectID /*tap*/) {
  return kAudioHardwareBadObjectError;
}

}  // namespace orvelle
