#include "tests/host/TokenHost.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/TestCertificate.h"

using nlohmann::json;

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

std::string initializeRequest() {
  static const std::string request = json{
      {"command", 0},
      {"signature", test_support::signSha1(DOMAINS_PRIVATE_KEY, "a.test|")},
      {"domains", "a.test|"},
      {"currentDomain", "https://a.test/"},
      {"caSubjectNames", ""}}.dump();
  return request;
}

std::string setPinRequest(const std::string& pin) {
  return json{{"command", 3}, {"pin", pin}}.dump();
}

long statusNumber(pid_t process, const std::string& field) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
  }
  throw std::runtime_error("no " + field);
}

TokenHost::TokenHost(const std::string& module, const std::vector<std::string>& launcher)
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

json TokenHost::ask(std::string_view request) {
  process.sendFrame(request);
  const std::string text = process.receiveFrame().value_or("");
  const json next = json::parse(process.ask(kVersionRequest), nullptr, false);
  json answer = json::parse(text, nullptr, false);
  const bool isOnly = next.is_object() && next.value("command", -1) == 8;
  return isOnly && answer.is_object() ? answer : json::object();
}

void TokenHost::givePin(const std::string& pin) {
  ask(kSignRequest);
  ask(setPinRequest(pin));
}
