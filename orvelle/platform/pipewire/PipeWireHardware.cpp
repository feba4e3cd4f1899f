#include "orvelle/platform/pipewire/PipeWireHardware.h"

#include <utility>

#include "orvelle/platform/PropertySize.h"
#include "orvelle/platform/pipewire/EffectPrograms.h"
#include "orvelle/platform/pipewire/PipeWireParts.h"

namespace orvelle {

using pipewire::Change;
using pipewire::ClientProcess;
using pipewire::Device;
using pipewire::kLoopbackName;
using pipewire::Node;
using pipewire::Session;

namespace {

constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};
constexpr PropertyAddress kDefaultOutput{kAudioHardwarePropertyDefaultOutputDevice};

}  // namespace

// Changes

void PipeWireHardware::Parts::sessionChanged(Change change) {
  aggregates.followLoudness();
  if (change == Change::level) {
    if (const Node* node = loopback.node()) {
      loopbackLevel = node->level;
    }
    for (const Device& device : catalogue.devices()) {
      listeners.notify(device.id,
                       {kAudioDevicePropertyVolumeScalar, kAudioObjectPropertyScopeOutput});
      listeners.notify(device.id, {kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput});
    }
    return;
  }
  if (change == Change::metadata) {
    taps.update();
    managerChanged();
  }
  if (change == Change::objects) {
    // First of all: a new stream of a tapped process is caught before it is linked.
    processesChanged();
    aggregates.linkUp();
    volumes.forgetGone();
    if (loopback.takeLoss()) {
      lostLoopback = LostLoopback{catalogue.renewLoopback(), loopbackLevel};
    }
    const bool haveDevicesChanged = catalogue.update();
    if (haveEffectsChanged() || haveDevicesChanged) {
      listeners.notify(kAudioObjectSystemObject, kDevices);
    }
    rates.linkUp();
  }
  // A device that comes or goes may change whom the default output's name stands for.
  if (const AudioObjectID current = defaultOutputID();
      std::exchange(reportedDefault, current) != current) {
    listeners.notify(kAudioObjectSystemObject, kDefaultOutput);
  }
}

/// Session managers up to 0.4 wait for ever for a sink that was there before them, and link nobody
/// to it meanwhile: ours are made anew. Later ones publish their settings.
void PipeWireHardware::Parts::managerChanged() {
  const bool hasManager = session->hasMetadata("default");
  if (hasManager) {
    if (!hadManager) {
      defaultOutput.noteAgain();
    }
    // What a manager that ends has published goes in any order.
    takesOverSinks = takesOverSinks || session->hasMetadata("sm-settings");
  } else {
    if (hadManager && !takesOverSinks) {
      loopback.drop();
      taps.drop();
    }
    takesOverSinks = false;
  }
  hadManager = hasManager;
}

/// Devices and processes go with the session, and are found again by uid and process id when it is
/// back. The loopback is listed on, as another one.
void PipeWireHardware::Parts::sessionLost() {
  aggregates.drop();
  taps.drop();
  rates.drop();
  volumes.forgetServer();
  loopback.drop();
  hadManager = false;
  takesOverSinks = false;
}

/// A sink is listed before it is linked, and an effect only then.
bool PipeWireHardware::Parts::haveEffectsChanged() {
  if (!reportedEffects) {
    return false;
  }
  std::vector<std::string> current = pipewire::effectPrograms(*session);
  const bool haveChanged = *reportedEffects != current;
  reportedEffects = std::move(current);
  return haveChanged;
}

void PipeWireHardware::Parts::processesChanged() {
  if (processes.update()) {
    listeners.notify(kAudioObjectSystemObject, {kAudioHardwarePropertyProcessObjectList});
  }
  const std::set<AudioObjectID> current = processes.playing();
  for (const ClientProcess& process : processes.processes()) {
    if (current.contains(process.id) != reportedPlaying.contains(process.id)) {
      listeners.notify(process.id, {kAudioProcessPropertyIsRunningOutput});
    }
  }
  reportedPlaying = current;
}

AudioObjectID PipeWireHardware::Parts::defaultOutputID() const {
  const std::string name = defaultOutput.effective();
  // The session manager may take a moment to notice that the default output has gone. The catalogue
  // would not tell: it lists the loopback always.
  const Device* device =
      session->nodeNamed(name) == nullptr ? nullptr : catalogue.deviceNamed(name);
  return device == nullptr ? kAudioObjectUnknown : device->id;
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
    // Without a manager there is no default output, and one that comes later may not take it over.
    if (!session->hasMetadata("default") || !loopback.ensure()) {
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

std::unique_ptr<PipeWireHardware> PipeWireHardware::connect(MainQueue& queue, std::string& problem,
                                                            VolumeStorage storage) {
  std::unique_ptr<Session> session = Session::open(problem);
  if (!session) {
    return nullptr;
  }
  const Session& opened = *session;
  const Session::Lock lock(opened);
  return std::unique_ptr<PipeWireHardware>(
      new PipeWireHardware(std::make_unique<Parts>(std::move(session), queue, storage)));
}

PipeWireHardware::~PipeWireHardware() {
  std::unique_ptr<Session> session;
  {
    const Session::Lock lock(*parts_->session);
    parts_->session->onChange = nullptr;
    parts_->session->onLoss = nullptr;
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

OSStatus PipeWireHardware::createProcessTap(const TapDescription& description, AudioObjectID& tap) {
  const Session::Lock lock(*parts_->session);
  if (parts_->session->hasMetadata("default")) {
    // What the session manager remembers for a stream has to be known before it is sent elsewhere.
    parts_->session->roundTrip();
    parts_->session->readMetadataAgain("default");
    parts_->defaultOutput.awaitPending();
  }
  return parts_->taps.create(description, tap);
}

OSStatus PipeWireHardware::destroyProcessTap(AudioObjectID tap) {
  const Session::Lock lock(*parts_->session);
  return parts_->taps.destroy(tap);
}

std::vector<std::string> PipeWireHardware::effectPrograms() {
  const Session::Lock lock(*parts_->session);
  parts_->reportedEffects = pipewire::effectPrograms(*parts_->session);
  return *parts_->reportedEffects;
}

void PipeWireHardware::awaitPending() {
  const Session::Lock lock(*parts_->session);
  parts_->session->roundTrip();
  parts_->defaultOutput.awaitPending();
}

void PipeWireHardware::releaseAbandoned() {
  const Session::Lock lock(*parts_->session);
  parts_->taps.releaseAbandoned();
  parts_->defaultOutput.releaseAbandoned(kLoopbackName);
  parts_->session->roundTrip();
}

}  // namespace orvelle
