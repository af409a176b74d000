#include <simdjson.h>

#include "bench/json/Cases.h"

namespace {

/// The parser and the padded text are kept, as its documentation recommends.
class SimdjsonDom {
 public:
  static constexpr const char* kName = "simdjson_dom";
  explicit SimdjsonDom(const std::string& request) : text(request) {}

  InitializeTexts readInitialize() {
    const simdjson::dom::element root = parser.parse(text);
    return {root["command"].get_int64(), copied(root["signature"]), copied(root["domains"]),
            copied(root["currentDomain"]), copied(root["caSubjectNames"])};
  }

  SigningTexts readSigning() {
    const simdjson::dom::element root = parser.parse(text);
    return {root["command"].get_int64(), copied(root["certId"]), copied(root["digest"])};
  }

  long readLast() { return parser.parse(text)["last"].get_int64(); }

 private:
  static std::string copied(simdjson::simdjson_result<simdjson::dom::element> value) {
    return std::string(value.get_string().value());
  }

  simdjson::padded_string text;
  simdjson::dom::parser parser;
};

/// Fields are read in the order of the text, the fastest way for this reader.
class SimdjsonOnDemand {
 public:
  static constexpr const char* kName = "simdjson_on_demand";
  explicit SimdjsonOnDemand(const std::string& request) : text(request) {}

  InitializeTexts readInitialize() {
    simdjson::ondemand::document document = parser.iterate(text);
    simdjson::ondemand::object root = document.get_object();
    InitializeTexts texts;
    texts.command = root.find_field("command").get_int64();
    texts.signature = copied(root.find_field("signature"));
    texts.domains = copied(root.find_field("domains"));
    texts.currentDomain = copied(root.find_field("currentDomain"));
    texts.caSubjectNames = copied(root.find_field("caSubjectNames"));
    return texts;
  }

  SigningTexts readSigning() {
    simdjson::ondemand::document document = parser.iterate(text);
    simdjson::ondemand::object root = document.get_object();
    SigningTexts texts;
    texts.command = root.find_field("command").get_int64();
    texts.certId = copied(root.find_field("certId"));
    texts.digest = copied(root.find_field("digest"));
    return texts;
  }

  long readLast() {
    simdjson::ondemand::document document = parser.iterate(text);
    return document.find_field("last").get_int64();
  }

 private:
  static std::string copied(simdjson::simdjson_result<simdjson::ondemand::value> value) {
    return std::string(value.get_string().value());
  }

  simdjson::padded_string text;
  simdjson::ondemand::parser parser;
};

/// Which of its instruction sets was measured: DOM and stage one of on-demand choose at run time.
bool nameKernel() {
  benchmark::AddCustomContext("simdjson_kernel", simdjson::get_active_implementation()->name());
  return true;
}

const bool registered =
    nameKernel() && registerSubject<SimdjsonDom>() && registerSubject<SimdjsonOnDemand>();

}  // namespace
