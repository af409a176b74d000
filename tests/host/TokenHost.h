#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "tests/host/HostProcess.h"

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
  std::string path;
};

inline constexpr std::string_view kVersionRequest = R"({"command":8})";
inline constexpr std::string_view kListRequest = R"({"command":2})";
inline constexpr std::string_view kSignRequest =
    R"({"command":5,"certId":"oQ==","digest":"AAECAwQFBgcICQoLDA0ODxAREhM="})";

/// Initialize of a page that the build's development key authorises.
std::string initializeRequest();
std::string setPinRequest(const std::string& pin);

/// A number of /proc/<process>/status, "VmRSS" (in kB) for one.
long statusNumber(pid_t process, const std::string& field);

/// The sanitizers keep released memory and copies of their own.
inline constexpr bool kSanitized = SANITIZED != 0;

/// An initialised host on a fake token that does what `script` was last given.
class TokenHost {
 public:
  explicit TokenHost(const std::string& module = FAKE_TOKEN_MODULE,
                     const std::vector<std::string>& launcher = {});

  /// In force from the token's next C_Initialize on. It accepts any PIN and a second C_Initialize.
  void script(const std::string& statements) const;
  /// The token's calls since they were last asked for, without the "C_", separated by spaces.
  std::string takeCalls() const;
  /// The answer, proven to be the only one by a version request behind it; else an empty object.
  nlohmann::json ask(std::string_view request);
  /// Lets the registry know a PIN: by a signing that misses it, then the PIN itself.
  void givePin(const std::string& pin);

  TemporaryFolder folder;
  HostProcess process;
};
