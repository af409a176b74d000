// The full envelopes of a conversation that reaches the token, to the byte in both framings.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/host/Envelopes.h"
#include "tests/host/TokenHost.h"
#include "tests/support/TestCertificate.h"

namespace {

constexpr std::string_view kNoPinKnown =
    R"("error":true,"errorMessage":"No se ha definido el pin para Certificado ZORAL",)"
    R"("lastError":11,"lastLowLevelError":0,"pinModuleName":"Certificado ZORAL",)"
    R"("missingPin":true,"invalidPin":false)";
constexpr std::string_view kNoError =
    R"("error":false,"errorMessage":"","lastError":0,"lastLowLevelError":0,"pinModuleName":"",)"
    R"("missingPin":false,"invalidPin":false)";
// Intended: a success leaves the last failure's message behind.
constexpr std::string_view kNoErrorAnyMore =
    R"("error":false,"errorMessage":"No se ha definido el pin para Certificado ZORAL",)"
    R"("lastError":0,"lastLowLevelError":0,"pinModuleName":"","missingPin":false,)"
    R"("invalidPin":false)";

std::string answer(int command, std::string_view state, std::string_view rest) {
  return R"({"command":)" + std::to_string(command) + "," + std::string(state) + "," +
         std::string(rest) + "}";
}

/// Base64 as NSS writes it and an answer holds it: an escaped CR LF after every 64 characters.
std::string escapedBase64(std::string_view bytes) {
  const std::string text = test_support::base64(bytes);
  std::string wrapped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    wrapped += i > 0 && i % 64 == 0 ? "\\r\\n" : "";
    wrapped += text[i] == '/' ? std::string("\\/") : std::string(1, text[i]);
  }
  return wrapped;
}

TEST(TokenAnswers, ToTheByteInBothFramings) {
  test_support::CertificateFields fields;
  fields.subject = {{"C", "CR"}, {"CN", "Mar\xC3\xAD\x61"}};
  const std::string der = test_support::makeCertificate(fields);
  const TemporaryFolder folder;
  folder.write("script", "certificate a1 hex " + test_support::hex(der) +
                             "\nkey a1\npin 12\nsignature 3\nprint C_Initialize * noise\n");

  const std::vector<std::pair<std::string, std::string>> conversation = {
      {initializeRequest(), std::string(kInitialized)},
      // No module is named yet: what is typed stays pending through the token command.
      {R"({"command":6,"pinChar":"1"})", answer(6, kNoError, R"("pinLength":1,"ok":true)")},
      {std::string(kListRequest), answer(2, kNoError,
                                         R"("pinLength":1,"pinRetryCount":0,"certificates":)"
                                         R"("CN=Test Authority|CN=Mar\u00C3\u00ADa,C=CR|oQ==")")},
      {R"({"command":4,"certId":"oQ=="})",
       answer(4, kNoError,
              R"("pinLength":1,"pinRetryCount":0,"certificate":")" + escapedBase64(der) + "\"")},
      {std::string(kSignRequest),
       answer(5, kNoPinKnown, R"("pinLength":1,"pinRetryCount":0,"pkcs1":"")")},
      // Intended: commands that do not reach the token repeat the last token command's state,
      // and Initialize does not clear it.
      {R"({"command":7})", answer(7, kNoPinKnown, R"("pinLength":0,"ok":true)")},
      {R"({"command":3,"pin":"1"})", answer(3, kNoPinKnown, R"("pinLength":1,"ok":true)")},
      {initializeRequest(), std::string(kInitialized)},
      {R"({"command":6,"pinChar":"2"})", answer(6, kNoPinKnown, R"("pinLength":2,"ok":true)")},
      {R"({"command":8})", answer(8, kNoPinKnown, R"("pinLength":2,"version":"1.1")")},
      {std::string(kListRequest), answer(2, kNoError,
                                         R"("pinLength":0,"pinRetryCount":0,"certificates":)"
                                         R"("CN=Test Authority|CN=Mar\u00C3\u00ADa,C=CR|oQ==")")},
  };
  const HostProcess::Environment environment{{"SIGNING_HOST_PKCS11_MODULE", FAKE_TOKEN_MODULE},
                                             {"FAKE_TOKEN_SCRIPT", folder.file("script")}};
  HostProcess native({}, environment);
  HostProcess relay({"ws"}, environment);
  for (const auto& [request, expected] : conversation) {
    EXPECT_EQ(native.ask(request), indented(expected)) << request;
    relay.send(request + "\n");
    EXPECT_EQ(relay.receiveLine(), expected) << request;
  }
}

// Whatever the starter left closed, the host serves what it can and ends with its input.
TEST(Descriptors, LeftClosedByTheStarter) {
  const std::string request = HostProcess::frame(kVersionRequest) +
                              HostProcess::frame(initializeRequest()) +
                              HostProcess::frame(kListRequest);
  for (unsigned int closed = 0; closed < 8; ++closed) {
    std::string redirections;
    redirections += (closed & 1U) != 0 ? " <&-" : "";
    redirections += (closed & 2U) != 0 ? " >&-" : "";
    redirections += (closed & 4U) != 0 ? " 2>&-" : "";
    HostProcess host({}, {}, {"sh", "-c", R"(exec "$0")" + redirections});
    host.send(request);
    host.closeInput();
    const bool answers = (closed & 3U) == 0;
    EXPECT_EQ(host.receiveFrame(), answers ? std::optional(indented(kFreshVersion)) : std::nullopt);
    host.receiveRest();
    EXPECT_EQ(host.wait(), 0) << redirections;
  }
}

}  // namespace
