#include "bench/json/Cases.h"
#include "json/json.h"

namespace {

class Host {
 public:
  static constexpr const char* kName = "host";
  explicit Host(const std::string& request) : text(request) {}

  InitializeTexts readInitialize() {
    JSONNode root = JSONWorker::parse(text);
    return {root["command"].as_int(), root["signature"].as_string(), root["domains"].as_string(),
            root["currentDomain"].as_string(), root["caSubjectNames"].as_string()};
  }

  SigningTexts readSigning() {
    JSONNode root = JSONWorker::parse(text);
    return {root["command"].as_int(), root["certId"].as_string(), root["digest"].as_string()};
  }

  long readLast() { return JSONWorker::parse(text)["last"].as_int(); }

  static std::string write(const Envelope& e, bool indented) {
    JSONNode answer(JSON_NODE);
    answer.push_back(JSONNode("command", e.command));
    answer.push_back(JSONNode("error", false));
    answer.push_back(JSONNode("errorMessage", std::string()));
    answer.push_back(JSONNode("lastError", 0));
    answer.push_back(JSONNode("lastLowLevelError", 0L));
    answer.push_back(JSONNode("pinModuleName", e.pinModuleName));
    answer.push_back(JSONNode("missingPin", false));
    answer.push_back(JSONNode("invalidPin", false));
    answer.push_back(JSONNode("pinLength", 0UL));
    answer.push_back(JSONNode("pinRetryCount", e.pinRetryCount));
    answer.push_back(JSONNode(e.resultName, e.result));
    return indented ? answer.write_formatted(2048) : answer.write(1024);
  }

 private:
  const std::string& text;
};

const bool registered = registerSubject<Host>();

}  // namespace
