# The sources that compile wherever the platform's functions are declared.
set(ORVELLE_COREAUDIO_SOURCES
  AggregateDevices.cpp
  AggregateDictionary.cpp
  AggregateLayout.cpp
  CallbackSlot.cpp
  CoreAudioHardware.cpp
  CoreAudioParts.cpp
  CoreFoundationValues.cpp
  HALCodes.cpp
  HALListeners.cpp
  IOProcs.cpp
  ObjectIDs.cpp
  ProcessTaps.cpp
  PropertyCodec.cpp
  StreamUsage.cpp
  TapLoudness.cpp)
list(TRANSFORM ORVELLE_COREAUDIO_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
