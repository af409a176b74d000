#include "signing/PinRegistry.h"

#include <gtest/gtest.h>

#include "tests/signing/ServiceFixture.h"

namespace {

using Names = std::vector<std::string>;

class PinRegistry : public ServiceTest {};

void reject(const std::string& module, std::int32_t retries) {
  gPines[module].invalid = true;
  gPines[module].retries = retries;
}

TEST_F(PinRegistry, AnEmptyRegistryLacksNothingAndIsNotFilledByQuestions) {
  EXPECT_FALSE(MissingPin());
  EXPECT_FALSE(InvalidPin());
  EXPECT_EQ(DigitalSignatureUtil::MissingPines(), Names());
  EXPECT_EQ(DigitalSignatureUtil::InvalidPines(), Names());
  EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 0);
  EXPECT_TRUE(gPines.empty());
}

TEST_F(PinRegistry, NamesComeInKeyOrder) {
  for (const char* module : {"b", "A", "a", "B"}) DigitalSignatureUtil::SetPin(module, "");
  DigitalSignatureUtil::SetPin("a", "1234");
  EXPECT_EQ(DigitalSignatureUtil::MissingPines(), (Names{"A", "B", "b"}));
  reject("b", 1);  // missing and invalid at once: both lists have it
  reject("a", 1);
  EXPECT_EQ(DigitalSignatureUtil::InvalidPines(), (Names{"a", "b"}));
  EXPECT_EQ(DigitalSignatureUtil::MissingPines(), (Names{"A", "B", "b"}));
  EXPECT_TRUE(DigitalSignatureUtil::MissingPin());
  EXPECT_TRUE(DigitalSignatureUtil::InvalidPin());
}

TEST_F(PinRegistry, OnlyADifferentPinClearsTheFlagAndNoneClearsTheCount) {
  DigitalSignatureUtil::SetPin(kModule, "1234");
  reject(kModule, 2);
  DigitalSignatureUtil::SetPin(kModule, "1234");
  EXPECT_TRUE(InvalidPin());
  EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 2);
  DigitalSignatureUtil::SetPin(kModule, std::string("1234\0", 5));  // bytes, not C strings
  EXPECT_FALSE(InvalidPin());
  EXPECT_EQ(gPines[kModule].pin, std::string("1234\0", 5));
  EXPECT_EQ(DigitalSignatureUtil::InvalidPinRetries(kModule), 2);
  DigitalSignatureUtil::SetPin(kModule, "");
  EXPECT_TRUE(MissingPin());
}

TEST_F(PinRegistry, AReplacedOrDestroyedPinLeavesNoTrace) {
  for (const std::string& pin : {std::string("87654321"), std::string(40, '7')}) {
    alignas(PinInfoStruct) unsigned char storage[sizeof(PinInfoStruct)] = {};
    auto* record = new (storage) PinInfoStruct();
    record->pin = pin;
    PinInfoStruct shorter;
    shorter.pin = "1";
    *record = shorter;
    // The rest of the storage that held the longer text, small-string buffer or heap alike.
    record->pin.resize(record->pin.capacity());
    EXPECT_EQ(record->pin.find(pin[1], 1), std::string::npos);
    record->pin = pin.substr(0, 8);
    record->~PinInfoStruct();
    const std::string_view bytes(reinterpret_cast<const char*>(storage), sizeof storage);
    EXPECT_EQ(bytes.find(pin.substr(0, 8)), std::string_view::npos);
  }
}

}  // namespace
