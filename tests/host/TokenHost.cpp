#include "tests/host/TokenHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/TestCertificate.h"

using nlohmann::json;

std::string initializeRequest(const std::string& page, const std::string& domains,
                              const std::string& signedDomains) {
  return json{{"command", 0},
              {"signature", test_support::signSha1(DOMAINS_PRIVATE_KEY, signedDomains)},
              {"domains", domains},
              {"currentDomain", page},
              {"caSubjectNames", ""}}
      .dump();
}

std::string setPinRequest(const std::string& pin) {
  return json{{"command", 3}, {"pin", pin}}.dump();
}

std::string pinCharRequest(const std::string& character) {
  return json{{"command", 6}, {"pinChar", character}}.dump();
}

std::string fullAnswer(int command, int pinLength, const std::string& rest,
                       const std::string& state) {
  return R"({"command":)" + std::to_string(command) + "," + state + R"(,"pinLength":)" +
         std::to_string(pinLength) + "," + rest + "}";
}

std::string indented(std::string_view compact) {
  static const std::map<char, const char*> spaced{
      {'{', "{\n\t"}, {'}', "\n}"}, {',', ",\n\t"}, {':', " : "}};
  std::string text;
  bool inString = false;
  for (const char byte : compact) {
    inString = inString != (byte == '"');
    const auto found = inString ? spaced.end() : spaced.find(byte);
    text += found == spaced.end() ? std::string(1, byte) : found->second;
  }
  return text;
}

std::string nssBase64(std::string_view bytes) {
  std::string text = test_support::base64(bytes);
  for (std::size_t at = 64; at < text.size(); at += 66) text.insert(at, "\r\n");
  return text;
}

void expectConversation(const std::vector<std::pair<std::string, std::string>>& conversation,
                        const HostProcess::Environment& environment) {
  HostProcess native({}, environment);
  HostProcess relay({"ws"}, environment);
  for (const auto& [request, answer] : conversation) {
    EXPECT_EQ(native.ask(request), indented(answer)) << request;
    EXPECT_EQ(relay.ask(request), answer) << request;
  }
}

const json& softToken() {
  static std::ifstream file(SOFT_TOKEN_FOLDER "/token.json");
  static const json token = json::parse(file);
  return token;
}

HostProcess::Environment softTokenEnvironment() {
  return {{"SIGNING_HOST_PKCS11_MODULE", softToken()["module"]},
          {"SOFTHSM2_CONF", softToken()["softhsm2Conf"]}};
}

TemporaryFolder::TemporaryFolder() {
  std::string name = std::filesystem::temp_directory_path() / "host-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  path = name;
}

TemporaryFolder::~TemporaryFolder() { std::filesystem::remove_all(path); }

void TemporaryFolder::write(const std::string& name, std::string_view bytes) const {
  // Replaced as a whole: a reader sees the old text or the new.
  std::ofstream(file(name + ".new"), std::ios::binary) << bytes;
  std::filesystem::rename(file(name + ".new"), file(name));
}

TokenHost::TokenHost(const std::string& module, const HostProcess::Texts& launcher)
    : process({},
              {{"SIGNING_HOST_PKCS11_MODULE", module},
               {"FAKE_TOKEN_SCRIPT", folder.file("script")},
               {"FAKE_TOKEN_LOG", folder.file("log")}},
              launcher) {
  script("");
  process.ask(initializeRequest());
}

void TokenHost::script(const std::string& statements) const {
  folder.write("script", "pin *\naccept second C_Initialize\n" + statements);
}

std::string TokenHost::takeCalls() const {
  std::ifstream log(folder.file("log"));
  std::string calls;
  for (std::string line; std::getline(log, line);) {
    calls += (calls.empty() ? "" : " ") + line.substr(2, line.find(' ') - 2);
  }
  std::filesystem::remove(folder.file("log"));
  return calls;
}

json TokenHost::ask(const std::string& request) {
  json answer = json::parse(process.ask(request), nullptr, false);
  const json next = json::parse(process.ask(kVersionRequest), nullptr, false);
  const bool isOnly = next.is_object() && next.value("command", -1) == 8;
  return isOnly && answer.is_object() ? answer : json::object();
}

void TokenHost::givePin(const std::string& pin) {
  ask(kSignRequest);
  ask(setPinRequest(pin));
}
