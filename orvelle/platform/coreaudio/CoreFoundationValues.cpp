#include "orvelle/platform/coreaudio/CoreFoundationValues.h"

namespace orvelle::coreaudio {

namespace {

template <class Objects>
std::vector<const void*> references(const Objects& objects) {
  std::vector<const void*> pointers;
  pointers.reserve(objects.size());
  for (const auto& object : objects) {
    pointers.push_back(object.get());
  }
  return pointers;
}

}  // namespace

Owned<CFStringRef> makeString(const std::string& text) {
  const auto* bytes = reinterpret_cast<const UInt8*>(text.data());
  return Owned(CFStringCreateWithBytes(
      kCFAllocatorDefault, bytes, static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0));
}

std::string textOf(CFStringRef string) {
  if (string == nullptr) {
    return {};
  }
  const CFIndex mostBytes =
      CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
  std::vector<char> bytes(static_cast<std::size_t>(mostBytes));
  return CFStringGetCString(string, bytes.data(), mostBytes, kCFStringEncodingUTF8) != 0
             ? std::string(bytes.data())
             : std::string();
}

Owned<CFNumberRef> makeNumber(std::int32_t number) {
  return Owned(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &number));
}

void DictionaryBuilder::add(const std::string& key, const std::string& text) {
  values_.emplace_back(makeString(text).release());
  keys_.push_back(makeString(key));
}

void DictionaryBuilder::add(const std::string& key, bool flag) {
  values_.emplace_back(makeNumber(flag ? 1 : 0).release());
  keys_.push_back(makeString(key));
}

void DictionaryBuilder::add(const std::string& key,
                            const std::vector<Owned<CFDictionaryRef>>& dictionaries) {
  auto members = references(dictionaries);
  values_.emplace_back(CFArrayCreate(kCFAllocatorDefault, members.data(),
                                     static_cast<CFIndex>(members.size()), &kCFTypeArrayCallBacks));
  keys_.push_back(makeString(key));
}

Owned<CFDictionaryRef> DictionaryBuilder::build() const {
  auto keys = references(keys_);
  auto values = references(values_);
  return Owned(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(),
                                  static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks,
                                  &kCFTypeDictionaryValueCallBacks));
}

}  // namespace orvelle::coreaudio
