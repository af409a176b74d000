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
    answer[Json::StaticString("command")] = e.command;
    answer[Json::StaticString("error")] = false;
    answer[Json::StaticString("errorMessage")] = Json::StaticString("");
    answer[Json::StaticString("lastError")] = 0;
    answer[Json::StaticString("lastLowLevelError")] = 0;
    answer[Json::StaticString("pinModuleName")] = e.pinModuleName;
    answer[Json::StaticString("missingPin")] = false;
    answer[Json::StaticString("invalidPin")] = false;
    answer[Json::StaticString("pinLength")] = 0U;
    answer[Json::StaticString("pinRetryCount")] = e.pinRetryCount;
    answer[e.resultName] = e.result;
    static const auto indentedWriter = writerWith("\t");
    static const auto compactWriter = writerWith("");
    static std::ostringstream out;
    out.str({});
    (indented ? indentedWriter : compactWriter)->write(answer, &out);
    return out.str();
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
