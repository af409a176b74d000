#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/json/Cases.h"

namespace {

using Pool = rapidjson::MemoryPoolAllocator<>;
using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, Pool, Pool>;

rapidjson::Value::StringRefType reference(const std::string& text) {
  return {text.data(), static_cast<rapidjson::SizeType>(text.size())};
}

const rapidjson::Value& member(const Document& root, const char* name) {
  return root.FindMember(name)->value;
}

std::string copied(const rapidjson::Value& value) {
  return {value.GetString(), value.GetStringLength()};
}

/// The documented way to avoid the allocator for small texts: buffers of the caller. The object is
/// made once and cleared for every document.
struct Buffers {
  static constexpr std::size_t kSize = 4096;
  std::vector<char> values = std::vector<char>(kSize);
  std::vector<char> parsing = std::vector<char>(kSize);
};

template <bool InSitu>
class RapidJson {
 public:
  static constexpr const char* kName = InSitu ? "rapidjson_in_situ" : "rapidjson_dom";
  explicit RapidJson(const std::string& request) : text(request), copy(request.size() + 1) {}

  InitializeTexts readInitialize() {
    return withRoot([](const Document& root) -> InitializeTexts {
      return {member(root, "command").GetInt(), copied(member(root, "signature")),
              copied(member(root, "domains")), copied(member(root, "currentDomain")),
              copied(member(root, "caSubjectNames"))};
    });
  }

  SigningTexts readSigning() {
    return withRoot([](const Document& root) -> SigningTexts {
      return {member(root, "command").GetInt(), copied(member(root, "certId")),
              copied(member(root, "digest"))};
    });
  }

  long readLast() {
    return withRoot([](const Document& root) -> long { return member(root, "last").GetInt(); });
  }

 private:
  template <typename Read>
  auto withRoot(Read read) {
    Pool values(buffers.values.data(), Buffers::kSize);
    Pool parsing(buffers.parsing.data(), Buffers::kSize);
    Document root(&values, Buffers::kSize / 2, &parsing);
    if constexpr (InSitu) {
      std::memcpy(copy.data(), text.c_str(), copy.size());  // parsing in place eats its input
      root.ParseInsitu(copy.data());
    } else {
      root.Parse(text.c_str());  // with a length it would read through a slower stream
    }
    return read(root);
  }

  const std::string& text;
  std::vector<char> copy;
  Buffers buffers;
};

/// The buffer and the writers are kept from answer to answer, as the buffers of documents are.
template <typename Emit>
std::string written(bool indented, Emit emit) {
  static rapidjson::StringBuffer buffer(nullptr, 2048);
  static rapidjson::Writer<rapidjson::StringBuffer> compactWriter(buffer);
  static rapidjson::PrettyWriter<rapidjson::StringBuffer> indentedWriter(buffer);
  buffer.Clear();
  if (indented) {
    indentedWriter.SetIndent('\t', 1);
    indentedWriter.Reset(buffer);
    emit(indentedWriter);
  } else {
    compactWriter.Reset(buffer);
    emit(compactWriter);
  }
  return {buffer.GetString(), buffer.GetSize()};
}

/// Builds a document and writes it.
class RapidJsonDomWriter {
 public:
  static constexpr const char* kName = "rapidjson_dom";

  static std::string write(const Envelope& e, bool indented) {
    static Buffers buffers;
    Pool pool(buffers.values.data(), Buffers::kSize);
    rapidjson::Value answer(rapidjson::kObjectType);
    answer.AddMember("command", e.command, pool);
    answer.AddMember("error", false, pool);
    answer.AddMember("errorMessage", "", pool);
    answer.AddMember("lastError", 0, pool);
    answer.AddMember("lastLowLevelError", 0, pool);
    answer.AddMember("pinModuleName", reference(e.pinModuleName), pool);
    answer.AddMember("missingPin", false, pool);
    answer.AddMember("invalidPin", false, pool);
    answer.AddMember("pinLength", 0U, pool);
    answer.AddMember("pinRetryCount", e.pinRetryCount, pool);
    answer.AddMember(reference(e.resultName), reference(e.result), pool);
    return written(indented, [&answer](auto& writer) { answer.Accept(writer); });
  }
};

/// Writes the values as they come, without a document.
class RapidJsonStreamWriter {
 public:
  static constexpr const char* kName = "rapidjson_writer";

  static std::string write(const Envelope& e, bool indented) {
    return written(indented, [&e](auto& writer) { emit(e, writer); });
  }

 private:
  template <typename Writer>
  static void emit(const Envelope& e, Writer& writer) {
    const auto text = [&writer](const std::string& value) {
      writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    };
    // A name given as a literal alone would be measured each time.
    const auto key = [&writer]<std::size_t Size>(const char(&name)[Size]) {
      writer.Key(name, Size - 1);
    };
    writer.StartObject();
    key("command");
    writer.Int(e.command);
    key("error");
    writer.Bool(false);
    key("errorMessage");
    writer.String("", 0);
    key("lastError");
    writer.Int(0);
    key("lastLowLevelError");
    writer.Int64(0);
    key("pinModuleName");
    text(e.pinModuleName);
    key("missingPin");
    writer.Bool(false);
    key("invalidPin");
    writer.Bool(false);
    key("pinLength");
    writer.Uint64(0);
    key("pinRetryCount");
    writer.Int(e.pinRetryCount);
    text(e.resultName);
    text(e.result);
    writer.EndObject();
  }
};

const bool registered = registerSubject<RapidJson<true>>() && registerSubject<RapidJson<false>>() &&
                        registerSubject<RapidJsonDomWriter>() &&
                        registerSubject<RapidJsonStreamWriter>();

}  // namespace
