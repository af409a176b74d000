#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tests/host/HostProcess.h"

/// The sanitizers keep released memory and copies of their own.
inline constexpr bool kSanitized = SANITIZED != 0;

inline const std::string kVersionRequest = R"({"command":8})";
inline const std::string kListRequest = R"({"command":2})";
inline const std::string kRetrieveRequest = R"({"command":4,"certId":"oQ=="})";
inline const std::string kSignRequest =
    R"({"command":5,"certId":"oQ==","digest":"AAECAwQFBgcICQoLDA0ODxAREhM="})";
inline const std::string kEndRequest = R"({"command":1})";
/// Initialize of the page https://a.test/ with a list that the development key has signed.
std::string initializeRequest(const std::string& domains = "a.test|");
inline std::string setPinRequest(const std::string& pin) {
  return R"({"command":3,"pin":")" + pin + "\"}";
}
inline std::string pinCharRequest(const std::string& character) {
  return R"({"command":6,"pinChar":")" + character + "\"}";
}

/// The answers in their compact form.
inline const std::string kTooLong = R"({"command":-1,"error":true,"message":"Message too long"})";
inline const std::string kInitialized =
    R"({"command":0,"error":false,"message":"InitializeComponent OK"})";
inline const std::string kNotInitialized =
    R"({"command":2,"error":true,"message":"Not initialized"})";
inline const std::string kNoError =
    R"("error":false,"errorMessage":"","lastError":0,"lastLowLevelError":0,"pinModuleName":"",)"
    R"("missingPin":false,"invalidPin":false)";
/// The full envelope: command, error state, length of the pending PIN, what follows.
std::string fullAnswer(int command, int pinLength, const std::string& rest,
                       const std::string& state = kNoError);
inline const std::string kFreshVersion = fullAnswer(8, 0, R"("version":"1.1")");
/// Their native form; strings may hold no double quote.
std::string indented(std::string_view compact);

/// "code low-level message|" of a failure, and the result.
std::string told(const nlohmann::json& answer);

/// Base64 as the host writes it, a line break after each 64 characters.
std::string nssBase64(std::string_view bytes);

/// A folder of its own that goes away with its owner.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string file(const std::string& name) const { return path + "/" + name; }
  void write(const std::string& name, std::string_view bytes) const;

 private:
  std::string path = std::filesystem::temp_directory_path() / "host-test-XXXXXX";
};

/// An initialised host on a fake token that does what `script` was last given.
class TokenHost {
 public:
  explicit TokenHost(const std::string& module = FAKE_TOKEN, const std::string& launcher = "env",
                     const std::string& mode = "native");

  /// In force from the token's next C_Initialize on.
  void script(const std::string& statements) const { folder.write("script", statements); }
  /// The token's calls since they were last asked for, without the "C_", a space before each.
  std::string takeCalls() const;
  /// The answer, proven to be the only one by a version request after it; else an empty object.
  nlohmann::json ask(const std::string& request);

  TemporaryFolder folder;
  HostProcess process;
};
