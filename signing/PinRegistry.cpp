#include "signing/PinRegistry.h"

#include <algorithm>
#include <vector>

#include "signing/DigitalSignatureUtil.h"

std::map<std::string, PinInfoStruct> gPines;

namespace {

bool isMissing(const PinInfoStruct& record) { return record.pin.empty(); }

bool isInvalid(const PinInfoStruct& record) { return record.invalid; }

template <typename Condition>
bool anyModule(Condition condition) {
  return std::any_of(gPines.begin(), gPines.end(),
                     [condition](const auto& entry) { return condition(entry.second); });
}

template <typename Condition>
std::vector<std::string> modulesThat(Condition condition) {
  std::vector<std::string> names;
  for (const auto& [name, record] : gPines) {
    if (condition(record)) {
      names.push_back(name);
    }
  }
  return names;
}

}  // namespace

PinInfoStruct& PinInfoStruct::operator=(const PinInfoStruct& other) {
  if (this != &other) {
    wipe(pin);
    pin = other.pin;
    invalid = other.invalid;
    retries = other.retries;
  }
  return *this;
}

bool MissingPin() { return anyModule(isMissing); }

bool InvalidPin() { return anyModule(isInvalid); }

bool DigitalSignatureUtil::MissingPin() { return ::MissingPin(); }

bool DigitalSignatureUtil::InvalidPin() { return ::InvalidPin(); }

std::vector<std::string> DigitalSignatureUtil::MissingPines() { return modulesThat(isMissing); }

std::vector<std::string> DigitalSignatureUtil::InvalidPines() { return modulesThat(isInvalid); }

std::int32_t DigitalSignatureUtil::InvalidPinRetries(const std::string& moduleName) {
  const auto entry = gPines.find(moduleName);
  return entry != gPines.end() ? entry->second.retries : 0;
}

void DigitalSignatureUtil::SetPin(const std::string& moduleName, const std::string& pin) {
  PinInfoStruct& held = gPines[moduleName];  // an unknown module gets an empty record
  PinInfoStruct record = held;
  // The same PIN again does not clear its invalid flag: the token would only refuse it again.
  if (record.pin == pin) {
    return;
  }
  overwrite(record.pin, 'X');
  record.pin = pin;
  record.invalid = false;  // the retry count stays
  held = record;           // wipes the storage that the map held
}
