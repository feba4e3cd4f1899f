// What stands behind the PipeWire back end's interface. For the sources of PipeWireHardware only.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/ListenerRegistry.h"
#include "orvelle/platform/pipewire/AggregateDevices.h"
#include "orvelle/platform/pipewire/DefaultOutput.h"
#include "orvelle/platform/pipewire/DeviceCatalogue.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/NominalRate.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#include "orvelle/platform/pipewire/ProcessCatalogue.h"
#include "orvelle/platform/pipewire/ProcessTaps.h"
#include "orvelle/platform/pipewire/Session.h"
#include "orvelle/platform/pipewire/TapLoudness.h"
#include "orvelle/platform/pipewire/VolumeControl.h"

namespace orvelle {

/// Everything behind the interface. Session lock held in every call.
struct PipeWireHardware::Parts {
  Parts(std::unique_ptr<pipewire::Session> opened, MainQueue& queue, VolumeStorage storage)
      : session(std::move(opened)),
        listeners(queue),
        loopback(*session),
        catalogue(*session, loopback, [this] { return ++lastID; }),
        defaultOutput(*session),
        volumes(*session, storage == VolumeStorage::kept),
        rates(*session),
        processes(*session, [this] { return ++lastID; }),
        taps(*session, processes, [this] { return ++lastID; }),
        loudness(*session, loopback, defaultOutput),
        aggregates(*session, taps, loudness, [this] { return ++lastID; }) {
    reportedDefault = defaultOutputID();
    reportedPlaying = processes.playing();
    session->onChange = [this](pipewire::Change change) { sessionChanged(change); };
    session->onLoss = [this] { sessionLost(); };
  }

  std::unique_ptr<pipewire::Session> session;
  AudioObjectID lastID = kAudioObjectSystemObject;
  ListenerRegistry listeners;
  pipewire::LoopbackNode loopback;
  pipewire::DeviceCatalogue catalogue;
  pipewire::DefaultOutput defaultOutput;
  pipewire::VolumeControl volumes;
  pipewire::NominalRate rates;
  pipewire::ProcessCatalogue processes;
  pipewire::ProcessTaps taps;
  pipewire::TapLoudness loudness;
  pipewire::AggregateDevices aggregates;
  AudioObjectID reportedDefault = kAudioObjectUnknown;
  std::set<AudioObjectID> reportedPlaying;
  /// As last told. Absent while nobody has asked: then changes are not looked for.
  std::optional<std::vector<std::string>> reportedEffects;
  /// Whether we have made the loopback the default output, and not taken that back.
  bool isLoopbackDefault = false;
  bool hadManager = false;      ///< when last looked at, the session had a manager
  bool takesOverSinks = false;  ///< that manager does, though they were there before it
  /// Of the latest loopback node, as it was last reported.
  std::optional<pipewire::ChannelLevel> loopbackLevel;
  /// The device that the loopback was before its node was lost, and the level that it had then.
  struct LostLoopback {
    AudioObjectID id;
    std::optional<pipewire::ChannelLevel> level;
  };
  std::optional<LostLoopback> lostLoopback;

  void sessionChanged(pipewire::Change change);
  void managerChanged();
  void sessionLost();
  void processesChanged();
  bool haveEffectsChanged();
  [[nodiscard]] AudioObjectID defaultOutputID() const;

  void learnLevel(AudioObjectID object, const PropertyAddress& address);
  OSStatus get(AudioObjectID object, const PropertyAddress& address, PropertyValue& value);
  OSStatus getOfSystem(const PropertyAddress& address, PropertyValue& value) const;
  OSStatus getOfAggregate(AudioObjectID object, const PropertyAddress& address,
                          PropertyValue& value) const;
  OSStatus getOfProcess(const pipewire::ClientProcess& process, const PropertyAddress& address,
                        PropertyValue& value) const;
  OSStatus getOfTap(AudioObjectID tap, const PropertyAddress& address, PropertyValue& value);
  OSStatus getOfDevice(const pipewire::Device& device, const PropertyAddress& address,
                       PropertyValue& value);
  OSStatus getLevel(const pipewire::Node* node, std::uint32_t selector, PropertyValue& value) const;
  OSStatus getOfLostLoopback(const PropertyAddress& address, PropertyValue& value) const;
  OSStatus getChannels(const pipewire::Device& device, std::uint32_t scope,
                       PropertyValue& value) const;

  OSStatus setDefaultOutput(AudioObjectID id);
  OSStatus setOfDevice(const pipewire::Device& device, const PropertyAddress& address,
                       const PropertyValue& value);
  OSStatus createAggregate(const AggregateDescription& description, AudioObjectID& aggregate);
  void releaseLoopback();
};

}  // namespace orvelle
