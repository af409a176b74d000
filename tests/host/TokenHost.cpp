#include "tests/host/TokenHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/TestCertificate.h"

using nlohmann::json;

std::string initializeRequest(const std::string& domains) {
  return json{{"command", 0},
              {"signature", test_support::signDomains(domains)},
              {"domains", domains},
              {"currentDomain", "https://a.test/"},
              {"caSubjectNames", ""}}
      .dump();
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

std::string told(const json& answer) {
  std::string text;
  if (answer.value("lastError", -1) != 0) {
    text = std::to_string(answer.value("lastError", -1)) + " " +
           std::to_string(answer.value("lastLowLevelError", -1L)) + " " +
           answer.value("errorMessage", "none") + "|";
  }
  for (const char* member : {"certificates", "certificate", "pkcs1"}) {
    text += answer.value(member, "");
  }
  return text;
}

std::string nssBase64(std::string_view bytes) {
  std::string text = test_support::base64(bytes);
  for (std::size_t at = 64; at < text.size(); at += 66) text.insert(at, "\r\n");
  return text;
}

TemporaryFolder::TemporaryFolder() {
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp");
}

TemporaryFolder::~TemporaryFolder() { std::filesystem::remove_all(path); }

void TemporaryFolder::write(const std::string& name, std::string_view bytes) const {
  std::ofstream(file(name), std::ios::binary) << bytes;
}

TokenHost::TokenHost(const std::string& module, const std::string& launcher,
                     const std::string& mode)
    : process({mode}, {"env", "SIGNING_HOST_PKCS11_MODULE=" + module,
                       "FAKE_TOKEN_SCRIPT=" + folder.file("script"),
                       "FAKE_TOKEN_LOG=" + folder.file("log"), launcher}) {
  script("");
  process.ask(initializeRequest());
}

std::string TokenHost::takeCalls() const {
  std::string calls;
  std::ifstream log(folder.file("log"));
  for (std::string line; std::getline(log, line);) {
    calls += " " + line.substr(2, line.find(' ') - 2);
  }
  std::filesystem::remove(folder.file("log"));
  return calls;
}

json TokenHost::ask(const std::string& request) {
  json answer = json::parse(process.ask(request), nullptr, false);
  const bool isOnly = process.ask(kVersionRequest).find("\t\"command\" : 8,") != std::string::npos;
  return isOnly && answer.is_object() ? answer : json::object();
}
