// Commands and answers, to the byte.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

const std::string kOk = R"("ok":true)";
const std::string kInitialize =
    R"({"command":0,"signature":"s","domains":"d","currentDomain":"c","caSubjectNames":""})";

TEST(Outcomes, EveryAnswerOfAConversationInBothFramings) {
  const std::string noPinKnown =
      R"("error":true,"errorMessage":"No se ha definido el pin para Certificado ZORAL",)"
      R"("lastError":11,"lastLowLevelError":0,"pinModuleName":"Certificado ZORAL",)"
      R"("missingPin":true,"invalidPin":false)";
  const auto afterABadId = [](bool error) {
    return std::string(R"("error":)") + (error ? "true" : "false") +
           R"(,"errorMessage":"Invalid cert id base64","lastError":)" + (error ? "12" : "0") +
           R"(,"lastLowLevelError":0,"pinModuleName":"","missingPin":false,"invalidPin":false)";
  };
  // Longer than a pipe holds: the relay's host has to wait for its reader.
  const std::string der =
      test_support::makeCertificate({.subject = {{"C", "CR"}, {"CN", "Mar\xC3\xAD\x61"}},
                                     .extensions = {{"nsComment", std::string(60'000, 'x')}}});
  std::string escapedBase64 = std::regex_replace(nssBase64(der), std::regex("/"), "\\/");
  escapedBase64 = std::regex_replace(escapedBase64, std::regex("\r\n"), "\\r\\n");
  const std::string listing =
      R"("pinRetryCount":0,"certificates":"CN=Test Authority|CN=Mar\u00C3\u00ADa,C=CR|oQ==")";
  const std::pair<std::string, std::string> conversation[]{
      {kVersionRequest, kFreshVersion},
      {kListRequest, kNotInitialized},
      // Intended: the refusal names command 2 whichever was asked; the members are not even read.
      {R"({"command":4})", kNotInitialized},
      {R"({"command":5})", kNotInitialized},
      {setPinRequest("123456"), fullAnswer(3, 6, kOk)},
      {R"({"command":3,"pin":12.50})", fullAnswer(3, 5, kOk)},
      {setPinRequest(""), fullAnswer(3, 0, kOk)},
      {R"({"command":7})", fullAnswer(7, 0, kOk)},
      {pinCharRequest("1"), fullAnswer(6, 1, kOk)},
      {pinCharRequest("56"), fullAnswer(6, 2, kOk)},
      // Intended: an empty text lengthens the PIN by its terminating zero byte.
      {pinCharRequest(""), fullAnswer(6, 3, kOk)},
      {R"({"command":7})", fullAnswer(7, 2, kOk)},
      {kInitialize, kInitialized},
      {initializeRequest(), kInitialized},
      {R"({"command":7})", fullAnswer(7, 1, kOk)},  // Initialize keeps the pending PIN.
      // No module is named yet: what is typed stays pending through the token command.
      {kListRequest, fullAnswer(2, 1, listing)},
      {kRetrieveRequest,
       fullAnswer(4, 1, R"("pinRetryCount":0,"certificate":")" + escapedBase64 + "\"")},
      {kSignRequest, fullAnswer(5, 1, R"("pinRetryCount":0,"pkcs1":"")", noPinKnown)},
      // Intended: commands that do not reach the token repeat the last token command's state, and
      // Initialize does not clear it.
      {R"({"command":7})", fullAnswer(7, 0, kOk, noPinKnown)},
      {setPinRequest("1"), fullAnswer(3, 1, kOk, noPinKnown)},
      {initializeRequest(), kInitialized},
      {pinCharRequest("2"), fullAnswer(6, 2, kOk, noPinKnown)},
      {kVersionRequest, fullAnswer(8, 2, R"("version":"1.1")", noPinKnown)},
      {kListRequest, fullAnswer(2, 0, listing)},
      {kSignRequest, fullAnswer(5, 0, R"("pinRetryCount":0,"pkcs1":"MCAy")")},
      {R"({"command":4,"certId":"!"})",
       fullAnswer(4, 0, R"("pinRetryCount":0,"certificate":"")", afterABadId(true))},
      // Intended: a success keeps the last failure's message.
      {kListRequest, fullAnswer(2, 0, listing, afterABadId(false))},
  };
  const TemporaryFolder folder;
  folder.write("script",
               "pin 12\nkey a1\nsignature 3\nprint C_Initialize * noise\ncertificate a1 hex " +
                   test_support::hex(der));
  const HostProcess::Texts launcher{"env", "SIGNING_HOST_PKCS11_MODULE=" FAKE_TOKEN,
                                    "FAKE_TOKEN_SCRIPT=" + folder.file("script")};
  HostProcess native({}, launcher);
  HostProcess relay({"ws"}, launcher);
  for (const auto& [request, answer] : conversation) {
    relay.say(request);
    EXPECT_EQ(native.ask(request), indented(answer)) << request;
    EXPECT_EQ(relay.hear(), answer) << request;  // Late: a long answer has filled its pipe by now.
  }
}

TEST(CommandCode, IsTheFirstPlainCommandMemberTruncatedToItsLow32Bits) {
  const auto framed = [](const std::string& answer) { return frame(indented(answer)); };
  const std::string version = framed(kFreshVersion);
  struct Case {
    std::string output;  ///< of the request and a version request after it
    std::vector<const char*> members;
  };
  const Case cases[] = {
      {version + version,
       {R"("command":8)", R"("command":8.9)", R"("command":"8")", R"("command":"8 and more")",
        R"("command":8e0)", R"("command":-4294967288)", R"("command":{},"command":8)",
        R"("command":{x},"command":8)", R"("command":8,"x":)", R"("\u0063ommand":8)",
        "/* c */ \"command\" : 8, \"b\" : [1,,] "}},
      {framed(kNotInitialized) + version, {R"("command":4294967298)"}},
      {framed(fullAnswer(7, 0, kOk)) + version, {R"("command":7,"command":8)"}},
      {"", {R"("command":true)", R"("command":1.99)"}},
      // A dropped request never takes the next one with it.
      {version,
       {R"("command":010)",  // Octal-looking, read as ten.
        R"("command":9)", R"("command":-1)", R"("command":1e300)", R"("command":-1e300)",
        R"("command":9223372036854775808)", R"("command":1e999)", R"("command":"nan")",
        R"("command":[8])", R"("command":{"command":8})", R"("command":8,"x")", R"("Command":8)",
        R"("x":{"command":8})", "", R"("command" 8)", R"("a":1,)"}},
  };
  for (const auto& [output, members] : cases) {
    for (const std::string request : members) {
      EXPECT_EQ(outputFor(frame("{" + request + "}") + frame(kVersionRequest)), output) << request;
    }
  }
  for (const char* request : {"[8]", R"([{"command":8}])", R"({"command":8)", R"({"command":8} x)",
                              "8", " ", R"({"command":8} // a comment after the root)"}) {
    EXPECT_EQ(outputFor(frame(request) + frame(kVersionRequest)), version) << request;
  }
}

// "command" null, false or with no low bits is command 0, and what it lacks ends the process like
// anywhere else.
TEST(MissingMember, EndsTheProcessWithOneLineAndNoAnswer) {
  for (const char* mode : {"native", "ws"}) {
    for (const char* request :
         {R"({"command":0,"signature":"s","domains":"d","currentDomain":"c"})", R"({"command":0})",
          R"({"command":null})", R"({"command":false,"signature":"s"})", R"({"command":"abc"})",
          R"({"command":-9223372036854775808})", R"({"command":3})", R"({"command":3,"Pin":"1"})",
          R"({"command":6,"pin":"1"})", R"({"command":4})", R"({"command":5,"certId":"YQ=="})",
          R"({"command":5,"digest":""})"}) {
      HostProcess host({mode});
      EXPECT_NE(host.ask(kInitialize), "");
      host.say(request);
      host.say(kVersionRequest);
      EXPECT_EQ(host.hearAll(), "") << request;
      EXPECT_NE(host.wait(), 0) << request;
      const std::string error = host.standardError();
      EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
    }
  }
}

}  // namespace
