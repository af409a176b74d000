// What the token is asked, argument by argument, and what is refused or left out. Tokens that fail
// or lie are swept in FaultSweepTest.cpp.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

using nlohmann::json;
using test_support::CertificateFields;
using test_support::hex;
using test_support::makeCertificate;

std::string signRequest(const std::string& certId, const std::string& digest) {
  return json{{"command", 5}, {"certId", certId}, {"digest", digest}}.dump();
}

std::string digestOf(std::size_t length) {
  return test_support::base64(std::string(length, '\x5A'));
}

const std::string kOpening = " Initialize GetSlotList GetSlotList OpenSession";
class Operations : public testing::Test {
 protected:
  Operations() { host.ask(kSignRequest); }  // asks for the PIN by the module's name

  /// The answer of a service that knows a PIN and has no failure to remember.
  json ask(const std::string& objects, const std::string& request) {
    host.script(objects);
    host.ask(setPinRequest("1234"));
    host.ask(initializeRequest());
    host.takeCalls();
    return host.ask(request);
  }

  TokenHost host;
  const std::string der = makeCertificate({});
  const std::string certificate = "certificate a1 hex " + hex(der) + "\n";
};

TEST_F(Operations, AskTheTokenExactly) {
  const std::string size = std::to_string(der.size());
  const std::string find = "C_FindObjectsInit 5 0=0100000000000000 128=0000000000000000";
  const auto sign = [](std::size_t length, const std::string& prefix) {
    return std::pair(signRequest("oQ==", digestOf(length)),
                     "C_Login 5 1 4 -> 0\nC_FindObjectsInit 5 0=0300000000000000 258=a1 -> 0\n"
                     "C_FindObjects 5 1 -> 0 1 3\nC_FindObjectsFinal 5 -> 0\n"
                     "C_SignInit 5 1 null 0 3 -> 0\nC_Sign 5 " +
                         prefix + hex(std::string(length, '\x5A')) +
                         " set 2048 -> 0 2048\nC_Logout 5 -> 0\n");
  };
  const std::pair<std::string, std::string> kCases[]{
      {kListRequest, find +
                         " -> 0\nC_FindObjects 5 1 -> 0 1 1\n"
                         "C_GetAttributeValue 5 1 258=null:0 17=null:0 -> 0 258:0 17:1\n"
                         "C_GetAttributeValue 5 1 258=set:0 17=set:1 -> 0 258:0 17:1\n"
                         "C_FindObjects 5 1 -> 0 1 2\n"
                         "C_GetAttributeValue 5 2 258=null:0 17=null:0 -> 0 258:1 17:" +
                         size + "\nC_GetAttributeValue 5 2 258=set:1 17=set:" + size +
                         " -> 0 258:1 17:" + size +
                         "\nC_FindObjects 5 1 -> 0 0\nC_FindObjectsFinal 5 -> 0\n"},
      {kRetrieveRequest,
       find +
           " 258=a1 -> 0\nC_FindObjects 5 1 -> 0 1 2\nC_GetAttributeValue 5 2 17=null:0 -> 0 17:" +
           size + "\nC_GetAttributeValue 5 2 17=set:" + size + " -> 0 17:" + size +
           "\nC_FindObjectsFinal 5 -> 0\n"},
      sign(16, "3020300c06082a864886f70d020505000410"),
      sign(20, "3021300906052b0e03021a05000414"),
      sign(32, "3031300d060960864801650304020105000420")};
  for (const auto& [request, log] : kCases) {
    const json answer =
        ask("slots 3 9\nsignature 2048\ncertificate - hex 00\n" + certificate + "key a1", request);
    std::ifstream file(host.folder.file("log"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
              "C_Initialize null -> 0\nC_GetSlotList 1 null 10 -> 0 2\n"
              "C_GetSlotList 1 set 2 -> 0 2\nC_OpenSession 3 4 null null -> 0 5\n" +
                  log + "C_CloseSession 5 -> 0\nC_Finalize null -> 0\n");
    EXPECT_EQ(answer["lastError"], 0) << answer;
    EXPECT_GT(told(answer).size(), 30U);
  }
}

TEST_F(Operations, BadInputIsRefusedAfterTheTokenWasOpened) {
  // Intended: the session stays open and the library initialised, only here.
  for (const char* retrieve : {R"({"command":4,"certId":"!"})", R"({"command":4,"certId":""})"}) {
    EXPECT_EQ(told(ask("", retrieve)), "12 0 Invalid cert id base64|");
    EXPECT_EQ(host.takeCalls(), kOpening);
  }
  std::vector<std::string> requests{signRequest("", digestOf(20)), signRequest("oQ==", ""),
                                    signRequest("!", digestOf(20)), signRequest("oQ==", "!")};
  for (const std::size_t length : {1U, 15U, 17U, 19U, 21U, 31U, 33U, 64U}) {
    requests.push_back(signRequest("oQ==", digestOf(length)));
  }
  ask("key a1\nfail C_FindObjectsInit * 48", kListRequest);
  for (const std::string& request : requests) {
    SCOPED_TRACE(request);
    EXPECT_EQ(told(host.ask(kListRequest)), "12 48 Find objects init|");
    host.takeCalls();
    // NSS itself faults only what is empty; its error then stays.
    EXPECT_EQ(told(host.ask(request)), "3 -8187 |");
    EXPECT_EQ(host.takeCalls(), kOpening + " Login Logout CloseSession Finalize");
  }
}

TEST_F(Operations, TheListingKeepsWhatCanSignNowInTheTokensOrder) {
  const std::string longId(50, '\xAA');  // NSS breaks its base64 after 64 characters
  const std::pair<std::string, CertificateFields> kCertificates[]{
      {"01", {.subject = {{"CN", "a"}}}},
      {"02", {.extensions = {{"keyUsage", "digitalSignature"}}}},
      {"03", {.extensions = {{"keyUsage", "nonRepudiation"}}}},
      {"04", {.notAfter = -60}},
      {"05", {.subject = {}, .extensions = {}}},
      {"06", {.notBefore = 60}},
      {"-", {}},
      {hex(longId), {.subject = {{"CN", "\xC3\xA9|c"}}}}};  // the separator is not escaped
  std::string objects = "certificate 07 hex 3003020101\ncertificate 08 hex -\nkey 01\n";
  for (const auto& [id, fields] : kCertificates) {
    objects += "certificate " + id + " hex " + hex(makeCertificate(fields)) + "\n";
  }
  EXPECT_EQ(told(ask(objects, kListRequest)),
            "CN=Test Authority|CN=a|AQ==|CN=Test Authority||BQ==|CN=Test Authority|"
            "CN=\u00C3\u00A9|c|" +
                nssBase64(longId));
}

TEST_F(Operations, AKeyGetsALoginForEachSignatureOnceItHasAskedForIt) {
  const std::string head = " Initialize GetSlotList GetSlotList";
  const std::string find =
      " OpenSession Login FindObjectsInit FindObjects FindObjectsFinal SignInit";
  const std::string tail = " Logout CloseSession";
  const std::string learn = head + find + " Sign GetAttributeValue" + tail + find + " Login";
  const std::string straight = head + find + " Login Sign" + tail + " Finalize";
  struct Row {
    std::string id;
    std::string rest;
    std::string calls;
    std::string error;  ///< none: a signature
  };
  const Row kRows[]{
      {"a1", "own-login", learn + " Sign" + tail + " Finalize", ""},
      {"a1", "own-login\nslots 2", straight, ""},
      // Another card's key under the same id, which is like most.
      {"a1", "", head + find + " Login" + tail + find + " Sign" + tail + " Finalize", ""},
      {"a1", "\nslots 2", head + find + " Sign" + tail + " Finalize", ""},
      {"a2", "own-login\nfail C_Sign 1 0x30", head + find + " Sign" + tail + " Finalize",
       "12 48 sign final|"},
      {"a2", "plain\nfail C_Sign 1 0x101",
       head + find + " Sign GetAttributeValue" + tail + " Finalize", "12 257 sign final|"},
      {"a3", "own-login\nfail C_Login 3 0xa3", learn + tail + " Finalize", "12 163 C_Login|"},
      {"a3", "own-login", straight, ""},
      {"a4", "own-login\nfail C_Login 3 0xa0", learn + tail + " Finalize",
       "5 160 Pin invalido para Certificado ZORAL|"}};
  for (const auto& [id, rest, calls, error] : kRows) {
    SCOPED_TRACE(id + " " + rest);
    const std::string certId =
        test_support::base64(std::string(1, static_cast<char>(std::stoi(id, nullptr, 16))));
    const json answer = ask("key " + id + " " + rest, signRequest(certId, digestOf(20)));
    EXPECT_EQ(host.takeCalls(), calls);
    const std::string signature = answer["pkcs1"];
    EXPECT_EQ(signature.empty(), !error.empty());
    EXPECT_EQ(told(answer), error + signature);
    // The refusal that taught it is no failure, and leaves nothing.
    if (error.empty()) {
      EXPECT_EQ(answer["lastLowLevelError"], 0);
      EXPECT_EQ(answer["errorMessage"], "");
    }
  }
  EXPECT_EQ(host.ask(kSignRequest)["pinRetryCount"], 1);
}

}  // namespace
