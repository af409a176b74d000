// Every fault of a token, through the real process. After each: exactly one well-formed answer, the
// documented codes, the clean-up calls in order, and a host that goes on serving.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;
using test_support::base64;
using test_support::hex;

/// One PKCS#11 call of an operation and what follows when it fails.
struct Step {
  std::string function;
  std::string label;    ///< the error message; "" where the call's result is not tested
  std::string cleanUp;  ///< calls after the failure
  std::string result;   ///< what is answered all the same
};

struct Operation {
  std::string request;
  const char* member;
  std::string result;
  std::vector<Step> steps;

  std::string allCalls() const {
    std::string calls;
    for (const Step& step : steps) calls += (calls.empty() ? "" : " ") + step.function;
    return calls;
  }
};

constexpr unsigned long kPinIncorrect = 0xA0;
constexpr unsigned long kPinLocked = 0xA4;
// Host memory, general error, function failed, device error, device removed, PIN incorrect, PIN
// expired (a failure of the token, not of the PIN), PIN locked, session handle invalid, token not
// present, buffer too small, cryptoki not initialized, a vendor's own, all ones.
constexpr unsigned long kCodes[] = {0x02,       0x05, 0x06, 0x30,  0x32,  kPinIncorrect, 0xA3,
                                    kPinLocked, 0xB3, 0xE0, 0x150, 0x190, 0x80000005,    ~0UL};

class FaultSweep : public testing::Test {
 protected:
  /// The listing reduced to one letter a certificate; any other result as it is.
  static std::string reduced(const Operation& operation, const json& answer) {
    const std::string text = answer.value(operation.member, "(no result)");
    if (operation.member != std::string("certificates")) return text;
    std::string letters;
    for (const auto& [id, letter] : {std::pair("|oQ==", 'A'), std::pair("|sg==", 'B')}) {
      if (text.find(id) != std::string::npos) letters += letter;
    }
    return letters;
  }

  const std::string derA = test_support::makeCertificate({});
  const std::string derB = test_support::makeCertificate({});
  const std::string objects = "certificate a1 hex " + hex(derA) + "\ncertificate b2 hex " +
                              hex(derB) + "\nkey a1\nsignature 3\n";
  // Every operation begins with these four; the clean-up of what they began ends it.
  static std::vector<Step> withOpening(std::initializer_list<Step> further) {
    std::vector<Step> steps{{"Initialize", "C_Initialize failed", "", ""},
                            {"GetSlotList", "get slot list", "Finalize", ""},
                            {"GetSlotList", "get slot list", "Finalize", ""},
                            {"OpenSession", "open session", "Finalize", ""}};
    steps.insert(steps.end(), further);
    steps.insert(steps.end(), {{"CloseSession", "", "", ""}, {"Finalize", "", "", ""}});
    return steps;
  }
  const std::string close = "CloseSession Finalize";
  const std::string findClose = "FindObjectsFinal " + close;
  const std::string logout = "Logout " + close;
  const std::string findLogout = "FindObjectsFinal " + logout;
  const std::string another = "FindObjects " + findClose;
  const std::string twoMore = "FindObjects GetAttributeValue GetAttributeValue " + another;

  const Operation list{kListRequest, "certificates", "AB",
                       withOpening({{"FindObjectsInit", "Find objects init", findClose, ""},
                                    {"FindObjects", "Find first object", findClose, ""},
                                    {"GetAttributeValue", "get attribute value", twoMore, "B"},
                                    {"GetAttributeValue", "get attribute value", twoMore, "B"},
                                    {"FindObjects", "Find other objects", findClose, "A"},
                                    {"GetAttributeValue", "get attribute value", another, "A"},
                                    {"GetAttributeValue", "get attribute value", another, "A"},
                                    {"FindObjects", "Find other objects", findClose, "AB"},
                                    {"FindObjectsFinal", "", "", ""}})};
  const Operation retrieve{kRetrieveRequest, "certificate", nssBase64(derA),
                           withOpening({{"FindObjectsInit", "Find objects init", close, ""},
                                        {"FindObjects", "Find first object", findClose, ""},
                                        {"GetAttributeValue", "get attribute value", findClose, ""},
                                        {"GetAttributeValue", "get attribute value", findClose, ""},
                                        {"FindObjectsFinal", "", "", ""}})};
  // The result is the fake token's pattern over a DigestInfo.
  const Operation sign{kSignRequest, "pkcs1", base64("\x30\x20\x32"),
                       withOpening({{"Login", "C_Login", close, ""},
                                    {"FindObjectsInit", "Find objects init", logout, ""},
                                    {"FindObjects", "Find first object", findLogout, ""},
                                    {"FindObjectsFinal", "", "", ""},
                                    {"SignInit", "sign init new", logout, ""},
                                    {"Sign", "sign final", logout, ""},
                                    {"Logout", "", "", ""}})};
};

TEST_F(FaultSweep, EveryCallAtEveryOccurrenceWithEveryCode) {
  TokenHost host;
  host.givePin("0");
  int rejections = 0;
  int cases = 0;
  for (const Operation* operation : {&list, &retrieve, &sign}) {
    std::string before;
    std::map<std::string, int> occurrences;
    for (std::size_t at = 0; at < operation->steps.size(); ++at) {
      const Step& step = operation->steps[at];
      before += (at == 0 ? "" : " ") + step.function;
      const std::string nth = step.function + " " + std::to_string(++occurrences[step.function]);
      std::string calls = before + (step.cleanUp.empty() ? "" : " ") + step.cleanUp;
      if (step.label.empty()) calls = operation->allCalls();
      for (const unsigned long code : kCodes) {
        const std::string fault = "fail C_" + nth + " " + std::to_string(code);
        SCOPED_TRACE(operation->request + " " + fault);
        host.script(objects + fault + "\n# " + std::to_string(++cases));
        host.takeCalls();
        const json answer = host.ask(operation->request);
        EXPECT_EQ(host.takeCalls(), calls);
        if (step.label.empty()) {
          EXPECT_EQ(answer.value("lastError", -1), 0);
          EXPECT_EQ(reduced(*operation, answer), operation->result);
          continue;
        }
        const bool pinCode = code == kPinIncorrect || code == kPinLocked;
        const bool rejected = pinCode && step.function == "Login";
        EXPECT_EQ(answer.value("lastError", -1), pinCode ? 5 : 12);
        EXPECT_EQ(answer.value("lastLowLevelError", 0L), static_cast<long>(code));
        EXPECT_EQ(answer.value("errorMessage", ""),
                  rejected ? std::string("Pin invalido para Certificado ZORAL") : step.label);
        EXPECT_EQ(reduced(*operation, answer), step.result);
        EXPECT_EQ(answer.value("invalidPin", !rejected), rejected);
        EXPECT_EQ(answer.value("pinRetryCount", -1), rejected ? ++rejections : 0);
        if (rejected) {  // The token is left alone until another PIN is typed.
          EXPECT_EQ(host.ask(operation->request).value("lastError", -1), 5);
          EXPECT_EQ(host.takeCalls(), "");
          host.ask(setPinRequest(std::to_string(rejections)));
        }
      }
    }
  }
  // And nothing of it has stuck.
  host.script(objects);
  for (const Operation* operation : {&list, &retrieve, &sign}) {
    EXPECT_EQ(reduced(*operation, host.ask(operation->request)), operation->result);
  }
  EXPECT_EQ(static_cast<std::size_t>(cases), 39 * std::size(kCodes));
}

TEST_F(FaultSweep, AModuleThatLies) {
  std::string random = "\x30\x82\xff\xff";
  std::minstd_rand noise(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes every time
  while (random.size() < 65536) random += static_cast<char>(noise());
  const std::string large =
      test_support::makeCertificate({.extensions = {{"nsComment", std::string(60'000, 'x')}}});
  const auto certificates = [&](const std::string& bytes) {
    return "certificate a1 hex " + (bytes.empty() ? "-" : hex(bytes)) + "\ncertificate b2 hex " +
           hex(derB) + "\n";
  };
  struct Lie {
    const Operation* operation;
    std::string text;
    int error;
    std::string result;
  };
  const Lie lies[] = {
      {&list, "lie slots 1 1000", 0, "AB"},
      {&list, "lie slots 1 ones", 12, ""},
      {&list, "lie slots 1 0", 12, ""},
      {&list, "lie slots 2 ones", 0, "AB"},
      {&list, "slots 7 9\nlie slots 1 1", 12, ""},
      {&list, "lie found 1 5", 0, "AB"},
      {&list, "lie found 1 0", 0, ""},
      {&list, "lie length CKA_VALUE asked 0 object 1", 12, "B"},
      {&list, "lie length CKA_VALUE both 0 object 1", 0, "B"},
      {&list, "lie length CKA_ID both 0 object 1", 0, "B"},
      {&list, "lie length CKA_VALUE asked ones object 1", 12, "B"},
      {&list, "lie length CKA_ID both ones object 1", 12, "B"},
      {&list, "lie length CKA_VALUE asked 5 object 1", 12, "B"},
      {&list, "lie length CKA_VALUE asked 0x7fffffffffffffff object 1", 12, "B"},
      {&list, "lie length CKA_VALUE read 100000 object 1", 12, "B"},
      {&list, "lie length CKA_VALUE read ones object 1", 12, "B"},
      {&list, "lie length CKA_VALUE read 3 object 1", 0, "B"},
      {&list, certificates(""), 0, "B"},
      {&list, certificates("0"), 0, "B"},
      {&list, certificates(derA.substr(0, derA.size() - 1)), 0, "B"},
      {&list, certificates(derA.substr(0, derA.size() / 2)), 0, "B"},
      {&list, certificates(random.substr(4, 300)), 0, "B"},
      {&list, certificates(random), 0, "B"},
      {&list, certificates(large), 0, "AB"},
      {&retrieve, certificates(large), 0, nssBase64(large)},
      {&retrieve, certificates(random), 0, nssBase64(random)},
      {&retrieve, "lie length CKA_VALUE both 0", 0, ""},
      {&retrieve, "lie length CKA_VALUE both ones", 12, ""},
      {&retrieve, "lie length CKA_VALUE read ones", 12, ""},
      {&retrieve, "lie found 1 ones", 0, retrieve.result},
      {&sign, "lie found 1 7", 0, sign.result},
      {&sign, "lie found 1 0", 0, ""},
      {&sign, "lie signature 1 0", 0, ""},
      {&sign, "lie signature 1 ones", 12, ""},
      {&sign, "signature 2049", 12, ""},
  };
  TokenHost host;
  host.givePin("0");
  for (const Lie& lie : lies) {
    SCOPED_TRACE(lie.text.substr(0, 100));
    host.script(lie.text.starts_with("certificate") ? lie.text : objects + lie.text);
    host.takeCalls();
    const json answer = host.ask(lie.operation->request);
    EXPECT_EQ(answer.value("lastError", -1), lie.error);
    EXPECT_EQ(reduced(*lie.operation, answer), lie.result);
    const std::string calls = host.takeCalls();
    EXPECT_TRUE(calls.ends_with(" Finalize"));
    EXPECT_EQ(calls.find("OpenSession") == std::string::npos,
              calls.find("CloseSession") == std::string::npos);
  }
  // A search without end is the token's affair, but what an object took is given back at once.
  host.script(certificates(random) + "lie search 2000");
  const long before = host.process.statusNumber("VmRSS");
  host.ask(kListRequest);
  EXPECT_GT(host.takeCalls().size(), 2000 * sizeof "FindObjects");
  if (!kSanitized) {
    EXPECT_LT(host.process.statusNumber("VmHWM"), before + 2000);
  }
}

TEST(BadModule, NeverDisturbsAByteOfTheConversation) {
  enum Outcome { kServes, kCannotStart, kDies };
  struct Case {
    const char* module;
    std::string script;
    Outcome outcome;
  };
  const Case cases[] = {
      {"/nonexistent/module.so", "", kCannotStart},
      {NOT_A_LIBRARY, "", kCannotStart},
      {WITHOUT_SIGN_MODULE, "", kCannotStart},
      {LIST_ONLY_MODULE, "", kServes},
      {PRINTS_ON_LOAD_MODULE, "", kServes},
      {FAKE_TOKEN_MODULE, "print C_Initialize * {\nprint C_Login * \"\nprint C_Sign * }", kServes},
      {CRASHES_ON_LOAD_MODULE, "", kDies},
      {FAKE_TOKEN_MODULE, "crash C_Login 1", kDies},
      {FAKE_TOKEN_MODULE, "exit C_Sign 1 3", kDies},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.module) + " " + test.script);
    TokenHost host(test.module);
    host.script("key a1\nsignature 1\n" + test.script);
    if (test.outcome != kDies) {
      const bool serves = test.outcome == kServes;
      EXPECT_EQ(host.ask(kListRequest).value("lastError", -1), serves ? 0 : 12);
      host.givePin("1");
      const json answer = host.ask(kSignRequest);
      EXPECT_EQ(answer.value("lastLowLevelError", -1), serves ? 0 : 5);
      EXPECT_EQ(answer.value("pkcs1", "?"), serves ? "MA==" : "");
      continue;
    }
    for (const std::string& request :
         {kSignRequest, setPinRequest("1"), kSignRequest, kVersionRequest}) {
      host.process.say(request);
    }
    for (std::string text; !(text = host.process.hear()).empty();) {
      EXPECT_TRUE(json::parse(text, nullptr, false).is_object()) << text;
    }
    EXPECT_EQ(host.process.hearAll(), "");
    EXPECT_NE(host.process.wait().value_or(0), 0);
  }
}

}  // namespace
