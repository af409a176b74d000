// Every fault of a token, through the real process. After each: exactly one well-formed answer, the
// documented codes, the clean-up calls in order, and a host that goes on serving.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;
using test_support::base64;
using test_support::hex;
using namespace std::chrono_literals;

/// One PKCS#11 call of an operation and what follows when it fails.
struct Step {
  std::string function;
  std::string label{};    ///< the error message; "" where the call's result is not tested
  std::string cleanUp{};  ///< calls after the failure
  std::string result{};   ///< what is answered all the same
};

struct Operation {
  std::string request;
  std::string result;
  std::vector<Step> steps;
};

constexpr long kHostMemory = 0x02;    // Made by a module that catches its own std::bad_alloc.
constexpr long kGeneralError = 0x05;  // Made by a module that throws.
constexpr long kPinExpired = 0xA3;    // A failure of the token, not of the PIN.
// Function failed, device error, device removed, PIN incorrect, invalid, of a wrong length, expired
// and locked, session handle invalid, token not present, buffer too small, cryptoki not
// initialized, a vendor's own, all ones.
constexpr long kCodes[] = {kHostMemory, kGeneralError, 0x06, 0x30, 0x32,  0xA0,  0xA1,       0xA2,
                           kPinExpired, 0xA4,          0xB3, 0xE0, 0x150, 0x190, 0x80000005, -1};

const std::string kA = "CN=Test Authority|CN=Signer,C=CR|oQ==";
const std::string kB = "CN=Test Authority|CN=Signer,C=CR|sg==";
const std::string kBoth = kA + "|" + kB;

class FaultSweep : public testing::Test {
 protected:
  FaultSweep() {
    host.ask(kSignRequest);
    expectThePinIsNeededFirst(11);
  }
  /// The token is left alone while a PIN is missing or known to be wrong, until another is typed.
  void expectThePinIsNeededFirst(int code) {
    host.takeCalls();
    for (const Operation* operation : {&list, &retrieve, &sign}) {
      EXPECT_EQ(told(host.ask(operation->request)), std::to_string(code) + " 0 |");
    }
    EXPECT_EQ(host.takeCalls(), "");
    host.ask(setPinRequest(std::to_string(++pins)));
  }
  // Every operation begins with these four; the clean-up of what they began ends it.
  static std::vector<Step> withOpening(std::initializer_list<Step> further) {
    std::vector<Step> steps{{"Initialize", "C_Initialize failed"},
                            {"GetSlotList", "get slot list", " Finalize"},
                            {"GetSlotList", "get slot list", " Finalize"},
                            {"OpenSession", "open session", " Finalize"}};
    steps.insert(steps.end(), further);
    steps.insert(steps.end(), {{"CloseSession"}, {"Finalize"}});
    return steps;
  }

  const std::string derA = test_support::makeCertificate({});
  const std::string certificateB =
      "\ncertificate b2 hex " + hex(test_support::makeCertificate({})) + "\n";
  const std::string objects =
      "certificate a1 hex " + hex(derA) + certificateB + "key a1\nsignature 3\n";
  const std::string close = " CloseSession Finalize";
  const std::string findClose = " FindObjectsFinal" + close;
  const std::string logout = " Logout" + close;
  const std::string findLogout = " FindObjectsFinal" + logout;
  const std::string another = " FindObjects" + findClose;
  const std::string twoMore = " FindObjects GetAttributeValue GetAttributeValue" + another;

  const Operation list{kListRequest, kBoth,
                       withOpening({{"FindObjectsInit", "Find objects init", findClose},
                                    {"FindObjects", "Find first object", findClose},
                                    {"GetAttributeValue", "get attribute value", twoMore, kB},
                                    {"GetAttributeValue", "get attribute value", twoMore, kB},
                                    {"FindObjects", "Find other objects", findClose, kA},
                                    {"GetAttributeValue", "get attribute value", another, kA},
                                    {"GetAttributeValue", "get attribute value", another, kA},
                                    {"FindObjects", "Find other objects", findClose, kBoth},
                                    {"FindObjectsFinal"}})};
  const Operation retrieve{kRetrieveRequest, nssBase64(derA),
                           withOpening({{"FindObjectsInit", "Find objects init", close},
                                        {"FindObjects", "Find first object", findClose},
                                        {"GetAttributeValue", "get attribute value", findClose},
                                        {"GetAttributeValue", "get attribute value", findClose},
                                        {"FindObjectsFinal"}})};
  // The result is the fake token's pattern over a DigestInfo.
  const Operation sign{kSignRequest, base64("\x30\x20\x32"),
                       withOpening({{"Login", "C_Login", close},
                                    {"FindObjectsInit", "Find objects init", logout},
                                    {"FindObjects", "Find first object", findLogout},
                                    {"FindObjectsFinal"},
                                    {"SignInit", "sign init new", logout},
                                    {"Sign", "sign final", logout},
                                    {"Logout"}})};
  TokenHost host;
  int pins = 0;
};

TEST_F(FaultSweep, EveryCallAtEveryOccurrenceWithEveryCode) {
  for (const Operation* operation : {&list, &retrieve, &sign}) {
    std::string before;
    std::string allCalls;
    for (const Step& step : operation->steps) allCalls += " " + step.function;
    std::map<std::string, int> occurrences;
    for (const auto& [function, label, cleanUp, result] : operation->steps) {
      before += " " + function;
      const std::string nth = function + " " + std::to_string(++occurrences[function]);
      for (const long code : kCodes) {
        const std::string fault = code == kGeneralError ? "throw C_" + nth
                                  : code == kHostMemory && !kSanitized
                                      ? "exhaust C_" + nth
                                      : "fail C_" + nth + " " + std::to_string(code);
        SCOPED_TRACE(operation->request + " " + fault);
        host.script(objects + fault);
        host.takeCalls();
        const json answer = host.ask(operation->request);
        if (label.empty()) {
          EXPECT_EQ(host.takeCalls(), allCalls);
          EXPECT_EQ(told(answer), operation->result);
          continue;
        }
        const bool isOfPin = code >= 0xA0 && code <= 0xA4 && code != kPinExpired;
        const bool rejected = isOfPin && function == "Login";
        EXPECT_EQ(host.takeCalls(), before + cleanUp);
        EXPECT_EQ(told(answer), (isOfPin ? "5 " : "12 ") + std::to_string(code) + " " +
                                    (rejected ? "Pin invalido para Certificado ZORAL" : label) +
                                    "|" + result);
        EXPECT_EQ(answer.value("invalidPin", !rejected), rejected);
        EXPECT_EQ(answer.value("pinRetryCount", -1), rejected ? pins : 0);
        if (rejected) expectThePinIsNeededFirst(5);
      }
    }
    host.script(objects);  // And nothing of it has stuck.
    EXPECT_EQ(told(host.ask(operation->request)), operation->result);
  }
}

TEST_F(FaultSweep, AModuleThatLies) {
  std::string random = "\x30\x82\xff\xff";
  std::minstd_rand noise(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes every time
  while (random.size() < 65536) random += static_cast<char>(noise());
  const auto certificates = [&](const std::string& bytes) {
    return "certificate a1 hex " + hex(bytes) + certificateB;
  };
  const std::string kNoSlot = "12 0 No se encontro ningun slot|";
  const std::string kNoValue = "12 19 get attribute value|";
  const std::string kTooLarge = "12 336 get attribute value|";
  const std::tuple<const Operation&, std::string, std::string> lies[] = {
      {list, "slots", kNoSlot},
      {list, "slots -1", ""},
      {list, "lie slots 1 4096", kBoth},
      {list, "lie slots 1 4097", "12 2 get slot list|"},
      {list, "lie slots 2 0", kNoSlot},
      {list, "lie slots 2 -1", kBoth},
      {list, "slots 7 9\nlie slots 1 1", "12 336 get slot list|"},
      {list, "lie found 1 -1", kBoth},
      {list, "lie found 1 0", ""},
      {list, "lie length 258 both 0", kB},
      {list, "lie length 17 asked 1048576", kBoth},
      {list, "lie length 258 both -1", kNoValue + kB},
      {list, "lie length 17 asked 1048577", kNoValue + kB},
      {list, "lie length 258 read 3", kTooLarge + kB},
      {list, "lie length 17 read -1", kTooLarge + kB},
      {list, "lie length 17 read 3", kB},
      {list, certificates(random), kB},
      {retrieve, certificates(random), nssBase64(random)},
      {retrieve, certificateB + "key a1", ""},
      {retrieve, "lie length 17 both 0", ""},
      {sign, certificates(derA) + "key b2", ""},
      {sign, "lie signature 1 0", ""},
      {sign, "lie signature 1 2049", "12 336 sign final|"},
  };
  for (const auto& [operation, lie, expected] : lies) {
    SCOPED_TRACE(lie.substr(0, 100));
    host.script(lie.find("certificate") == std::string::npos ? objects + lie : lie);
    host.ask(initializeRequest());  // No earlier failure is remembered.
    host.takeCalls();
    EXPECT_EQ(told(host.ask(operation.request)), expected);
    const std::string calls = host.takeCalls();
    EXPECT_TRUE(calls.ends_with(" Finalize"));
    EXPECT_TRUE(lie != "slots" || calls == " Initialize GetSlotList Finalize");
    for (const auto& [begun, ended] : {std::pair("OpenSession", "CloseSession"),
                                       {"FindObjectsInit", "FindObjectsFinal"},
                                       {"Login", "Logout"}}) {
      EXPECT_EQ(calls.find(begun) == std::string::npos, calls.find(ended) == std::string::npos);
    }
  }
  // A search without end is the token's affair, but what an object took is given back at once.
  host.script(certificates(random) + "lie search 2000");
  const long before = std::stol(statusOf(host.process.pid(), "VmRSS"));
  host.ask(kListRequest);
  EXPECT_GT(host.takeCalls().size(), 2000 * sizeof "FindObjects");
  const long room = kSanitized ? 1'000'000 : 100L * 64;  // An object has 64 kB.
  EXPECT_LT(std::stol(statusOf(host.process.pid(), "VmHWM")), before + room);
  // Browsers would end the conversation for a longer answer. A unit takes a hundred bytes of it.
  test_support::NameFields name(10'444, {"OU", "\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"});
  name.emplace_back("street", "");
  const auto listing = [&](const char* mode, std::size_t letters) {
    name.back().second.assign(letters, 'x');
    TokenHost listed(FAKE_TOKEN, "env", mode);
    listed.script("certificate a1 hex " + hex(test_support::makeCertificate({.subject = name})));
    return listed.process.ask(kListRequest);
  };
  const std::string shorter = listing("ws", 1);
  const std::size_t most = (1U << 20U) - 4096 - shorter.size() + shorter.find("\"certificates");
  for (const auto& [mode, more, tooLong] :
       {std::tuple("native", 0U, false), {"native", 1U, true}, {"ws", 1U, false}}) {
    const json answer = json::parse(listing(mode, most + more));
    EXPECT_EQ(answer.value("certificates", "?").empty(), tooLong);
    EXPECT_EQ(answer.value("errorMessage", "") == "listing too long", tooLong);
    EXPECT_EQ(answer.value("lastError", -1), tooLong ? 12 : 0);
  }
}

/// What a module forks has no conversation of its own, and ends; tells how many have. Sanitized, a
/// child may wait for ever: for a lock of theirs that a starting thread had when it was forked.
int endedChildren(const TokenHost& host) {
  const std::string process = std::to_string(host.process.pid());
  std::istringstream forked(procText(host.process.pid(), "task/" + process + "/children"));
  int ended = 0;
  for (pid_t child = 0; forked >> child; ++ended) {
    if (kSanitized) continue;
    while (statusOf(child, "State") != "Z (zombie)") std::this_thread::sleep_for(2ms);
  }
  return ended;
}

TEST(BadModule, NeverDisturbsAByteOfTheConversation) {
  struct Case {
    const char* module;
    std::string script;
    bool serves;
    std::string calls;  ///< how the first listing's begin, which tells where the functions are from
    std::string says;   ///< all of standard error, a pattern
    const char* host = SIGNING_HOST;
  };
  const std::string lacking = "signing-host: .* lacks PKCS#11 functions that signing needs\n";
  const Case runners[] = {
      {"/nonexistent/module.so", "", false, "", ".* cannot be loaded: .*No such file.*\n"},
      {NOT_A_LIBRARY, "", false, "", ".* cannot be loaded: .*invalid ELF header.*\n"},
      {TOKEN_WITHOUT_SIGN, "", false, "", lacking},
      {TOKEN_LIST_ONLY, "fail C_GetFunctionList 1 5", false, " GetFunctionList", lacking},
      {TOKEN_LIST_ONLY, "throw C_GetFunctionList 1", false, " GetFunctionList", lacking},
      {TOKEN_LIST_ONLY, "", true, " GetFunctionList Initialize", ""},
      {TOKEN_WRAPPER, "", true, " GetFunctionList Initialize Initialize", ""},
      {TOKEN_OWN_RUNTIME, "throw C_CloseSession *", true, " Initialize", ""},
      {FAKE_TOKEN, "print load 1 [\nprint C_Initialize * {\nprint C_Login * \"\nprint C_Sign * }",
       true, " Initialize", "\\[\n\\{\n\\{\n\\{\n\"\n\\}\n"},
      // The leak check of a forked child misses the threads that fork() left behind.
      {FAKE_TOKEN, "fork C_Initialize 1\nfork C_Sign 1", true, " Initialize",
       kSanitized ? "(.*was not suspended.*\n)*" : ""},
      {"", "", true, " Initialize", "", DEFAULT_TOKEN_HOST},
      {FAKE_TOKEN, "", false, "", ".* no PKCS#11 module is configured\n", FIXED_HOST},
  };
  for (const auto& [module, script, serves, calls, says, binary] : runners) {
    SCOPED_TRACE(binary + (" " + std::string(module)) + script);
    TokenHost host(module, binary);
    host.script("key a1\nsignature 1\n" + script);
    EXPECT_EQ(host.ask(kListRequest).value("lastError", -1), serves ? 0 : 12);
    const std::string made = host.takeCalls();
    EXPECT_TRUE(made.starts_with(calls) && (serves || made == calls)) << made;
    for (const std::string& request : {kSignRequest, setPinRequest("1")}) host.ask(request);
    EXPECT_EQ(told(host.ask(kSignRequest)), serves ? "MA==" : "12 5 C_Initialize failed|");
    EXPECT_EQ(endedChildren(host), script.starts_with("fork") ? 2 : 0);
    EXPECT_EQ(statusOf(host.process.pid(), "SigBlk"), statusOf(getpid(), "SigBlk"));
    host.process.say(kEndRequest);
    EXPECT_EQ(host.process.wait(), 0);
    const std::string said = host.process.standardError();
    EXPECT_TRUE(std::regex_match(said, std::regex(says))) << said;
  }
  for (const auto& [mode, request] :
       {std::pair("native", frame(kVersionRequest)), {"ws", kVersionRequest + "\n"}}) {
    TokenHost host(FAKE_TOKEN, "env", mode);
    host.script("interrupt C_Initialize 1\nfork C_Initialize 1");
    host.process.ask(kListRequest);
    EXPECT_EQ(endedChildren(host), 1);
    host.process.send(request + request.substr(0, 1));
    std::this_thread::sleep_for(1500ms);
    host.process.send(request.substr(1));
    const std::string answer = host.process.hear();
    EXPECT_TRUE(!answer.empty() && host.process.hear() == answer) << mode;
  }
  for (const std::string script : {"crash load 1", "crash C_Login 1", "exit C_Sign 1 3"}) {
    SCOPED_TRACE(script);
    TokenHost host;
    host.script("key a1\n" + script);
    EXPECT_NE(host.process.ask(kVersionRequest), "");  // Not loaded before it is needed.
    for (const std::string& request :
         {kSignRequest, setPinRequest("1"), kSignRequest, kVersionRequest}) {
      host.process.say(request);
    }
    for (std::string text; !(text = host.process.hear()).empty();) {
      EXPECT_TRUE(json::parse(text, nullptr, false).is_object()) << text;
    }
    EXPECT_EQ(host.process.hearAll(), "");
    EXPECT_NE(host.process.wait(), 0);
  }
}

}  // namespace
