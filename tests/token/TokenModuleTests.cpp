// The module is loaded once in a process, so every case runs in a child of its own (EXPECT_EXIT);
// the fake token's log tells afterwards what arrived.
#include "token/TokenModule.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

constexpr const char* kVariable = "SIGNING_HOST_PKCS11_MODULE";

class TokenModuleTest : public testing::Test {
 protected:
  TokenModuleTest() {
    std::filesystem::create_directories(folder);
    setenv("FAKE_TOKEN_LOG", (folder + "/log").c_str(), 1);
    unsetenv("FAKE_TOKEN_SCRIPT");
    unsetenv(kVariable);
  }
  ~TokenModuleTest() override { std::filesystem::remove_all(folder); }

  void script(const std::string& text) const {
    std::ofstream(folder + "/script") << text;
    setenv("FAKE_TOKEN_SCRIPT", (folder + "/script").c_str(), 1);
  }
  std::string log() const {
    std::ifstream file(folder + "/log");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string folder = testing::TempDir() + "token-module-" + std::to_string(getpid());
};

using TokenModuleDeathTest = TokenModuleTest;

[[noreturn]] void exitWithInitialize() { _exit(static_cast<int>(C_Initialize(nullptr))); }

TEST_F(TokenModuleDeathTest, ChoosesTheModule) {
  const std::string byName = "C_Initialize arguments=null -> 0x0\n";
  const std::string byList = "C_GetFunctionList -> 0x0\n" + byName;
  struct Case {
    const char* variable;  // null: not set
    std::string log;       // tells compiled-in (bound by name) from list-only
  };
  for (const Case& test : {Case{nullptr, byName}, Case{"", byName}, Case{LIST_ONLY_MODULE, byList},
                           Case{PRINTS_ON_LOAD_MODULE, byName}}) {
    SCOPED_TRACE(test.variable == nullptr ? "not set" : test.variable);
    std::filesystem::remove(folder + "/log");
    if (test.variable != nullptr) setenv(kVariable, test.variable, 1);
    EXPECT_EXIT(exitWithInitialize(), testing::ExitedWithCode(CKR_OK), "^$");
    EXPECT_EQ(log(), test.log);
  }
}

TEST_F(TokenModuleDeathTest, SaysWhyAModuleCannotBeUsed) {
  struct Case {
    const char* module;
    const char* reason;
  };
  for (const auto& [module, reason] :
       {Case{"/nonexistent/module.so", "cannot be loaded: .*No such file"},
        Case{NOT_A_LIBRARY, "cannot be loaded: .*invalid ELF header"},
        Case{WITHOUT_SIGN_MODULE, "lacks PKCS#11 functions that signing needs"}}) {
    setenv(kVariable, module, 1);
    EXPECT_EXIT(exitWithInitialize(), testing::ExitedWithCode(CKR_GENERAL_ERROR), reason) << module;
  }
  EXPECT_EQ(log(), "");  // nothing is called in a module that lacks something
  script("fail C_GetFunctionList 1 CKR_DEVICE_ERROR\n");
  setenv(kVariable, LIST_ONLY_MODULE, 1);
  EXPECT_EXIT(exitWithInitialize(), testing::ExitedWithCode(CKR_GENERAL_ERROR), "lacks PKCS#11");
}

TEST_F(TokenModuleDeathTest, LoadsAtTheFirstCallOnly) {
  setenv(kVariable, CRASHES_ON_LOAD_MODULE, 1);
  EXPECT_EXIT(exitWithInitialize(), testing::KilledBySignal(SIGABRT), "");
  setenv(kVariable, "/nonexistent/module.so", 1);
  EXPECT_EXIT(
      {
        C_Initialize(nullptr);
        setenv(kVariable, DEFAULT_PKCS11_MODULE, 1);
        exitWithInitialize();
      },
      testing::ExitedWithCode(CKR_GENERAL_ERROR), "");
}

[[noreturn]] void callEveryFunction() {
  CK_ULONG count = 3;
  std::array<CK_SLOT_ID, 3> slots{};
  CK_SESSION_HANDLE session = 0;
  std::array<CK_UTF8CHAR, 4> pin{'4', '3', '2', '1'};
  CK_BYTE id = 0xAB;
  CK_ATTRIBUTE attribute{CKA_ID, &id, 1};
  std::array<CK_OBJECT_HANDLE, 2> objects{};
  CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
  std::array<CK_BYTE, 20> signature{};
  CK_ULONG signatureLength = signature.size();

  C_Initialize(nullptr);
  C_GetSlotList(CK_TRUE, slots.data(), &count);
  C_OpenSession(slots[1], CKF_SERIAL_SESSION, nullptr, nullptr, &session);
  C_Login(session, CKU_USER, pin.data(), pin.size());
  C_FindObjectsInit(session, &attribute, 1);
  C_FindObjects(session, objects.data(), objects.size(), &count);
  C_FindObjectsFinal(session);
  C_GetAttributeValue(session, objects[0], &attribute, 1);
  C_SignInit(session, &mechanism, objects[0]);
  const CK_RV value = C_Sign(session, &id, 1, signature.data(), &signatureLength);
  const bool signedIntoBuffer = value == CKR_OK && signatureLength == 16 && signature[1] == 0xAA;
  C_Logout(session);
  C_CloseSession(session);
  C_Finalize(nullptr);
  _exit(signedIntoBuffer ? 0 : 1);
}

TEST_F(TokenModuleDeathTest, HandsEveryArgumentOnUnchanged) {
  script("slots 7 9\npin 4321\nlog pin\nkey ab\nsignature 16\n");
  EXPECT_EXIT(callEveryFunction(), testing::ExitedWithCode(0), "^$");
  EXPECT_EQ(log(),
            "C_Initialize arguments=null -> 0x0\n"
            "C_GetSlotList tokenPresent=1 list=set count=3 -> 0x0 count=2\n"
            "C_OpenSession slot=9 flags=0x4 application=null notify=null -> 0x0 session=1\n"
            "C_Login session=1 user=1 pinLength=4 pin=4321 -> 0x0\n"
            "C_FindObjectsInit session=1 0x102=ab -> 0x0\n"
            "C_FindObjects session=1 maximum=2 -> 0x0 count=1 object=1\n"
            "C_FindObjectsFinal session=1 -> 0x0\n"
            "C_GetAttributeValue session=1 object=1 0x102=buffer:1 -> 0x0 0x102:1\n"
            "C_SignInit session=1 mechanism=0x1 parameter=null:0 key=1 -> 0x0\n"
            "C_Sign session=1 data=ab signature=buffer:20 -> 0x0 length=16\n"
            "C_Logout session=1 -> 0x0\n"
            "C_CloseSession session=1 -> 0x0\n"
            "C_Finalize reserved=null -> 0x0\n");
}

}  // namespace
