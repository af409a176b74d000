// By its full path: this project has a json/json.h too.
#include <jsoncpp/json/json.h>

#include <memory>
#include <sstream>

#include "bench/json/Cases.h"

namespace {

class Jsoncpp {
 public:
  static constexpr const char* kName = "jsoncpp";
  explicit Jsoncpp(const std::string& request)
      : text(request), reader(Json::CharReaderBuilder().newCharReader()) {}

  InitializeTexts readInitialize() {
    const Json::Value root = parsed();
    return {root["command"].asInt(), root["signature"].asString(), root["domains"].asString(),
            root["currentDomain"].asString(), root["caSubjectNames"].asString()};
  }

  SigningTexts readSigning() {
    const Json::Value root = parsed();
    return {root["command"].asInt(), root["certId"].asString(), root["digest"].asString()};
  }

  long readLast() { return parsed()["last"].asInt(); }

  static std::string write(const Envelope& e, bool indented) {
    Json::Value answer(Json::objectValue);
    answer["command"] = e.command;
    answer["error"] = false;
    answer["errorMessage"] = Json::StaticString("");
    answer["lastError"] = 0;
    answer["lastLowLevelError"] = 0;
    answer["pinModuleName"] = e.pinModuleName;
    answer["missingPin"] = false;
    answer["invalidPin"] = false;
    answer["pinLength"] = 0U;
    answer["pinRetryCount"] = e.pinRetryCount;
    answer[e.resultName] = e.result;
    static const auto indentedWriter = writerWith("\t");
    static const auto compactWriter = writerWith("");
    std::ostringstream out;
    (indented ? indentedWriter : compactWriter)->write(answer, &out);
    return std::move(out).str();
  }

 private:
  static std::unique_ptr<Json::StreamWriter> writerWith(const char* indentation) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["emitUTF8"] = true;
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
  }

  Json::Value parsed() {
    Json::Value root;
    reader->parse(text.data(), text.data() + text.size(), &root, nullptr);
    return root;
  }

  const std::string& text;
  std::unique_ptr<Json::CharReader> reader;
};

const bool registered = registerSubject<Jsoncpp>();

}  // namespace
