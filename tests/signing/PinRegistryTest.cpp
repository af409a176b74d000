#include "signing/PinRegistry.h"

#include "tests/signing/ServiceFixture.h"

namespace {

using Util = DigitalSignatureUtil;
using Names = std::vector<std::string>;

class PinRegistry : public ServiceTest {};

TEST_F(PinRegistry, QuestionsAreAnsweredInKeyOrderAndFillNothing) {
  EXPECT_FALSE(MissingPin() || InvalidPin() || Util::MissingPin() || Util::InvalidPin());
  EXPECT_TRUE(Util::MissingPines().empty() && Util::InvalidPines().empty());
  EXPECT_EQ(Util::InvalidPinRetries(kModule), 0);
  EXPECT_TRUE(gPines.empty());

  for (const char* module : {"b", "A", "a", "B"}) Util::SetPin(module, "");
  Util::SetPin("a", "1234");
  EXPECT_TRUE(Util::MissingPin());
  EXPECT_FALSE(Util::InvalidPin());
  gPines["b"].invalid = gPines["a"].invalid = true;  // "b" is missing and invalid at once
  EXPECT_TRUE(Util::InvalidPin());
  EXPECT_EQ(Util::InvalidPines(), (Names{"a", "b"}));
  EXPECT_EQ(Util::MissingPines(), (Names{"A", "B", "b"}));
  Service("", "", "").ClearPin();
  EXPECT_TRUE(gPines.empty());
}

TEST_F(PinRegistry, OnlyADifferentPinClearsTheFlagAndNoneClearsTheCount) {
  gPines[kModule].pin = "1234";
  gPines[kModule].invalid = true;
  gPines[kModule].retries = 2;
  for (const std::string& pin : {std::string("1234"), std::string("1234\0", 5)}) {  // not C strings
    Util::SetPin(kModule, pin);
    EXPECT_EQ(InvalidPin(), pin.size() == 4);
    EXPECT_EQ(gPines[kModule].pin, pin);
    EXPECT_EQ(Util::InvalidPinRetries(kModule), 2);
  }
}

TEST_F(PinRegistry, AReplacedOrDestroyedPinLeavesNoTrace) {
  for (const std::string& pin : {std::string("87654321"), std::string(40, '7')}) {
    alignas(PinInfoStruct) unsigned char storage[sizeof(PinInfoStruct)] = {};
    auto* record = new (storage) PinInfoStruct();
    record->pin = pin;
    PinInfoStruct shorter;
    shorter.pin = "1";
    *record = shorter;
    // The whole buffer that held the longer text, within the record or on the heap.
    const std::string_view buffer(record->pin.data(), record->pin.capacity());
    EXPECT_EQ(buffer.find(pin[1]), std::string_view::npos);
    record->pin = pin.substr(0, 8);
    record->~PinInfoStruct();
    const std::string_view bytes(reinterpret_cast<const char*>(storage), sizeof storage);
    EXPECT_EQ(bytes.find(pin.substr(0, 8)), std::string_view::npos);
  }
}

}  // namespace
