// Core Foundation as far as the back end uses it, with an eye on who owns what.
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/coreaudio/StandIn.h"

namespace orvelle::coreaudio {

namespace {

/// Objects of all kinds. The dead are kept: using one is a fault to tell of, not a crash.
struct Object {
  enum class Kind : std::uint8_t { string, number, array, dictionary };
  Kind kind = Kind::string;
  int references = 1;
  std::string text;
  std::int32_t number = 0;
  std::vector<Object*> keys;
  std::vector<Object*> values;
};

std::mutex objectsMutex;
std::unordered_map<CFTypeRef, std::unique_ptr<Object>>& objects() {
  static std::unordered_map<CFTypeRef, std::unique_ptr<Object>> all;
  return all;
}

/// The object if it lives.
Object* living(CFTypeRef reference, const char* function) {
  const auto found = objects().find(reference);
  if (found == objects().end() || found->second->references < 1) {
    reportFault(std::string(function) + " of an object that does not live");
    return nullptr;
  }
  return found->second.get();
}

Object* add(Object object) {
  const std::lock_guard lock(objectsMutex);
  auto owned = std::make_unique<Object>(std::move(object));
  Object* const added = owned.get();
  objects()[added] = std::move(owned);
  return added;
}

std::vector<Object*> retained(const void** values, CFIndex count, const char* function) {
  std::vector<Object*> all;
  const std::lock_guard lock(objectsMutex);
  for (CFIndex index = 0; index < count; ++index) {
    if (Object* object = living(values[index], function)) {
      ++object->references;
      all.push_back(object);
    }
  }
  return all;
}

void release(Object& object) {
  if (--object.references > 0) {
    return;
  }
  for (Object* part : object.keys) {
    release(*part);
  }
  for (Object* part : object.values) {
    release(*part);
  }
}

/// The value of a key; null where the dictionary has none.
const Object* valueOf(const Object& dictionary, const std::string& key) {
  for (std::size_t index = 0; index < dictionary.keys.size(); ++index) {
    if (dictionary.keys[index]->text == key) {
      return dictionary.values[index];
    }
  }
  return nullptr;
}

std::string textAt(const Object& dictionary, const std::string& key) {
  const Object* value = valueOf(dictionary, key);
  const bool isText = value != nullptr && value->kind == Object::Kind::string;
  return isText ? value->text : std::string();
}

bool flagAt(const Object& dictionary, const std::string& key) {
  const Object* value = valueOf(dictionary, key);
  return value != nullptr && value->kind == Object::Kind::number && value->number != 0;
}

/// Of each part of a list: its uid, and whether its drift is compensated.
std::vector<std::pair<std::string, bool>> partsAt(const Object& dictionary,
                                                  const std::string& key) {
  std::vector<std::pair<std::string, bool>> parts;
  const Object* list = valueOf(dictionary, key);
  for (const Object* part : list == nullptr ? std::vector<Object*>{} : list->values) {
    parts.emplace_back(textAt(*part, "uid"), flagAt(*part, "drift"));
  }
  return parts;
}

}  // namespace

CFStringRef newString(const std::string& text) {
  Object object;
  object.text = text;
  return reinterpret_cast<CFStringRef>(add(std::move(object)));
}

std::string stringText(CFTypeRef string) {
  const std::lock_guard lock(objectsMutex);
  const Object* object = living(string, "text");
  return object == nullptr ? std::string() : object->text;
}

AggregateDescription parseAggregate(CFDictionaryRef dictionary) {
  AggregateDescription description;
  const std::lock_guard lock(objectsMutex);
  const Object* object = living(dictionary, "AudioHardwareCreateAggregateDevice");
  if (object == nullptr) {
    return description;
  }
  description.name = textAt(*object, "name");
  description.uid = textAt(*object, "uid");
  description.master = textAt(*object, "master");
  description.isPrivate = flagAt(*object, "private");
  description.tapAutoStart = flagAt(*object, "tapautostart");
  for (const auto& [uid, hasDrift] : partsAt(*object, "subdevices")) {
    description.subdevices.push_back({uid, hasDrift});
  }
  for (const auto& [uid, hasDrift] : partsAt(*object, "taps")) {
    description.taps.push_back({uid, hasDrift});
  }
  return description;
}

std::size_t livingObjects() {
  const std::lock_guard lock(objectsMutex);
  return static_cast<std::size_t>(std::ranges::count_if(
      objects(), [](const auto& keyed) { return keyed.second->references > 0; }));
}

}  // namespace orvelle::coreaudio

using orvelle::coreaudio::add;
using orvelle::coreaudio::checkThread;
using orvelle::coreaudio::living;
using orvelle::coreaudio::Object;
using orvelle::coreaudio::objectsMutex;
using orvelle::coreaudio::retained;

struct CFArrayCallBacks {};
struct CFDictionaryKeyCallBacks {};
struct CFDictionaryValueCallBacks {};

extern "C" {

const CFArrayCallBacks kCFTypeArrayCallBacks{};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{};
const CFAllocatorRef kCFAllocatorDefault = nullptr;

void CFRelease(CFTypeRef reference) {
  checkThread("CFRelease");
  const std::lock_guard lock(objectsMutex);
  if (Object* object = living(reference, "CFRelease")) {
    orvelle::coreaudio::release(*object);
  }
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*allocator*/, const UInt8* bytes,
                                    CFIndex byteCount, CFStringEncoding /*encoding*/,
                                    Boolean /*isExternalRepresentation*/) {
  checkThread("CFStringCreateWithBytes");
  return orvelle::coreaudio::newString(
      std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(byteCount)));
}

CFIndex CFStringGetLength(CFStringRef string) {
  // In UTF-16 units, of which no text has more than bytes.
  return static_cast<CFIndex>(orvelle::coreaudio::stringText(string).size());
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding /*encoding*/) {
  return 3 * length;
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                           CFStringEncoding /*encoding*/) {
  checkThread("CFStringGetCString");
  const std::string text = orvelle::coreaudio::stringText(string);
  if (text.size() >= static_cast<std::size_t>(bufferSize)) {
    return 0;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 1;
}

CFNumberRef CFNumberCreate(CFAllocatorRef /*allocator*/, CFNumberType /*type*/, const void* value) {
  checkThread("CFNumberCreate");
  Object object;
  object.kind = Object::Kind::number;
  std::memcpy(&object.number, value, sizeof(object.number));
  return reinterpret_cast<CFNumberRef>(add(std::move(object)));
}

CFArrayRef CFArrayCreate(CFAllocatorRef /*allocator*/, const void** values, CFIndex count,
                         const CFArrayCallBacks* /*callbacks*/) {
  checkThread("CFArrayCreate");
  Object object;
  object.kind = Object::Kind::array;
  object.values = retained(values, count, "CFArrayCreate");
  return reinterpret_cast<CFArrayRef>(add(std::move(object)));
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef /*allocator*/, const void** keys,
                                   const void** values, CFIndex count,
                                   const CFDictionaryKeyCallBacks* /*keyCallbacks*/,
                                   const CFDictionaryValueCallBacks* /*valueCallbacks*/) {
  checkThread("CFDictionaryCreate");
  Object object;
  object.kind = Object::Kind::dictionary;
  object.keys = retained(keys, count, "CFDictionaryCreate");
  object.values = retained(values, count, "CFDictionaryCreate");
  return reinterpret_cast<CFDictionaryRef>(add(std::move(object)));
}

}  // extern "C"
