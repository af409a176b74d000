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
    nlohmann::ordered_json answer{{"command", e.command},   {"error", false},
                                  {"errorMessage", ""},     {"lastError", 0},
                                  {"lastLowLevelError", 0}, {"pinModuleName", e.pinModuleName},
                                  {"missingPin", false},    {"invalidPin", false},
                                  {"pinLength", 0U},        {"pinRetryCount", e.pinRetryCount},
                                  {e.resultName, e.result}};
    return indented ? answer.dump(1, '\t') : answer.dump();
  }

 private:
  const std::string& text;
};

const bool registered = registerSubject<Nlohmann>();

}  // namespace
