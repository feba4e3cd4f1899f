// The HAL's functions, on the stand-in that lives.
#include <CoreAudio/CoreAudio.h>

#include "tests/coreaudio/StandIn.h"

using orvelle::coreaudio::checkThread;
using orvelle::coreaudio::StandIn;

extern "C" {

Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address) {
  checkThread("AudioObjectHasProperty");
  return StandIn::current().hasProperty(object, *address);
}

OSStatus AudioObjectIsPropertySettable(AudioObjectID object,
                                       const AudioObjectPropertyAddress* address,
                                       Boolean* isSettable) {
  checkThread("AudioObjectIsPropertySettable");
  return StandIn::current().isSettable(object, *address, *isSettable);
}

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                        UInt32* byteSize) {
  checkThread("AudioObjectGetPropertyDataSize");
  return StandIn::current().dataSize(object, *address, *byteSize);
}

OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32* byteSize,
                                    void* data) {
  checkThread("AudioObjectGetPropertyData");
  return StandIn::current().data(object, *address, qualifierSize, qualifier, *byteSize, data);
}

OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                    UInt32 byteSize, const void* data) {
  checkThread("AudioObjectSetPropertyData");
  return StandIn::current().setData(object, *address, byteSize, data);
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener,
                                        void* clientData) {
  checkThread("AudioObjectAddPropertyListener");
  return StandIn::current().addListener(object, *address, listener, clientData);
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID object,
                                           const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc listener,
                                           void* clientData) {
  checkThread("AudioObjectRemovePropertyListener");
  return StandIn::current().removeListener(object, *address, listener, clientData);
}

OSStatus AudioHardwareCreateAggregateDevice(CFDictionaryRef description, AudioObjectID* device) {
  checkThread("AudioHardwareCreateAggregateDevice");
  return StandIn::current().createAggregate(description, *device);
}

OSStatus AudioHardwareDestroyAggregateDevice(AudioObjectID device) {
  checkThread("AudioHardwareDestroyAggregateDevice");
  return StandIn::current().destroyAggregate(device);
}

OSStatus AudioDeviceCreateIOProcID(AudioObjectID device, AudioDeviceIOProc proc, void* clientData,
                                   AudioDeviceIOProcID* procID) {
  checkThread("AudioDeviceCreateIOProcID");
  return StandIn::current().createIOProc(device, proc, clientData, *procID);
}

OSStatus AudioDeviceDestroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) {
  checkThread("AudioDeviceDestroyIOProcID");
  return StandIn::current().destroyIOProc(device, procID);
}

OSStatus AudioDeviceStart(AudioObjectID device, AudioDeviceIOProcID procID) {
  checkThread("AudioDeviceStart");
  return StandIn::current().start(device, procID);
}

OSStatus AudioDeviceStop(AudioObjectID device, AudioDeviceIOProcID procID) {
  checkThread("AudioDeviceStop");
  return StandIn::current().stop(device, procID);
}

}  // extern "C"
