#include <nlohmann/json.hpp>

#include "bench/json/Cases.h"

namespace {

class Nlohmann {
 public:
  static constexpr const char* kName = "nlohmann_json";
  explicit Nlohmann(const std::string& request) : text(request) {}

  InitializeTexts readInitialize() {
    const auto root = nlohmann::json::parse(text);
    return {root["command"].get<long>(), root["signature"].get<std::string>(),
            root["domains"].get<std::string>(), root["currentDomain"].get<std::string>(),
            root["caSubjectNames"].get<std::string>()};
  }

  SigningTexts readSigning() {
    const auto root = nlohmann::json::parse(text);
    return {root["command"].get<long>(), root["certId"].get<std::string>(),
            root["digest"].get<std::string>()};
  }

  long readLast() { return nlohmann::json::parse(text)["last"].get<long>(); }

  static std::string write(const Envelope& e, bool indented) {
    // Member by member: an initializer list would copy every value.
    nlohmann::ordered_json answer = nlohmann::ordered_json::object();
    answer["command"] = e.command;
    answer["error"] = false;
    answer["errorMessage"] = "";
    answer["lastError"] = 0;
    answer["lastLowLevelError"] = 0;
    answer["pinModuleName"] = e.pinModuleName;
    answer["missingPin"] = false;
    answer["invalidPin"] = false;
    answer["pinLength"] = 0U;
    answer["pinRetryCount"] = e.pinRetryCount;
    answer[e.resultName] = e.result;
    return indented ? answer.dump(1, '\t') : answer.dump();
  }

 private:
  const std::string& text;
};

const bool registered = registerSubject<Nlohmann>();

}  // namespace
