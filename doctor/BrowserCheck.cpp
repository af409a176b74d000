#include "doctor/BrowserCheck.h"

#include <hasht.h>
#include <pk11pub.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "CatalogueTexts.h"
#include "signing/Base64.h"
#include "signing/DigitalSignatureUtilPkcs11.h"

namespace fs = std::filesystem;

namespace {

std::string environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): one thread
  return value != nullptr ? value : "";
}

/// The text of a member; empty where there is none.
std::string member(const JSONNode& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() ? "" : found->as_string();
}

bool isInstalled(const JSONNode& browser) {
  const JSONNode& programs = browser.at("programs");
  return std::any_of(programs.begin(), programs.end(), [](const JSONNode& program) {
    std::istringstream folders(environment("PATH"));
    for (std::string folder; std::getline(folders, folder, ':');) {
      if (access((fs::path(folder) / program.as_string()).c_str(), X_OK) == 0) {
        return true;
      }
    }
    return false;
  });
}

bool isFirefox(const JSONNode& browser) { return member(browser, "kind") == "firefox"; }

fs::path userFolder(const JSONNode& browser) {
  const fs::path home = environment("HOME");
  const std::string folder = member(browser, "user_hosts");
  if (isFirefox(browser)) {
    return home / folder;
  }
  const std::string config = environment("XDG_CONFIG_HOME");
  return (config.empty() ? home / ".config" : fs::path(config)) / folder;
}

/// Where a browser looks for hosts of all users. Chrome's relatives that have no folder of their
/// own look in Chrome's; where libraries live in lib64, Firefox looks there.
std::vector<std::string> systemFolders(const JSONNode& browser) {
  const std::string own = member(browser, "hosts");
  constexpr std::string_view kLibrary = "/usr/lib/";
  if (own.starts_with(kLibrary)) {
    return {own, "/usr/lib64/" + own.substr(kLibrary.size())};
  }
  return {own.empty() ? "/etc/opt/chrome/native-messaging-hosts" : own};
}

/// The id that Chromium derives from an extension's public key: the first half of the SHA-256 of
/// its DER, each half byte a letter from a to p.
std::string chromiumId(const std::string& key) {
  std::array<unsigned char, SHA256_LENGTH> hash{};
  const ItemHandle der = decodeBase64(key);
  if (!der || PK11_HashBuf(SEC_OID_SHA256, hash.data(), der->data,
                           static_cast<PRInt32>(der->len)) != SECSuccess) {
    return "";
  }
  std::string id;
  for (const unsigned char byte : std::span(hash).first(hash.size() / 2)) {
    id += static_cast<char>('a' + byte / 16);
    id += static_cast<char>('a' + byte % 16);
  }
  return id;
}

/// How a manifest names the product's extensions.
std::vector<std::string> productExtensions(bool firefox) {
  const JSONNode product = JSONWorker::parse(kOperator);
  if (firefox) {
    return {member(product, "firefoxId")};
  }
  std::vector<std::string> origins;
  const auto add = [&](const std::string& id) {
    origins.push_back("chrome-extension://" + id + "/");
  };
  if (const std::string key = member(product, "chromiumKey"); !key.empty()) {
    add(chromiumId(key));
  }
  if (const auto ids = std::as_const(product).find("chromiumIds"); ids != product.end()) {
    for (const JSONNode& id : *ids) {
      add(id.as_string());
    }
  }
  return origins;
}

/// What is wrong with a manifest, if anything is. Sets `host` to its path.
std::optional<Problem> manifestProblem(const fs::path& file, const JSONNode& browser,
                                       std::string& host) {
  std::ifstream stream(file);
  if (!stream) {
    return Problem{"error.host-not-found", "doctor.manifest.unreadable"};
  }
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  JSONNode manifest;
  try {
    manifest = JSONWorker::parse(text);
  } catch (const std::invalid_argument&) {
    return Problem{"error.host-not-found", "doctor.manifest.malformed"};
  }
  const JSONNode& read = manifest;
  host = member(read, "path");
  const auto callers = read.find(isFirefox(browser) ? "allowed_extensions" : "allowed_origins");
  if (member(read, "name") != HOST_NAME || member(read, "type") != "stdio" ||
      callers == read.end() || callers->empty()) {
    return Problem{"error.host-not-found", "doctor.manifest.malformed"};
  }
  const std::vector<std::string> ours = productExtensions(isFirefox(browser));
  if (std::none_of(callers->begin(), callers->end(), [&](const JSONNode& caller) {
        return std::find(ours.begin(), ours.end(), caller.as_string()) != ours.end();
      })) {
    return Problem{"error.host-forbidden", "doctor.manifest.otherExtension"};
  }
  if (!fs::path(host).is_absolute() || access(host.c_str(), X_OK) != 0 || fs::is_directory(host)) {
    return Problem{"error.host-not-found", "doctor.manifest.hostMissing"};
  }
  return std::nullopt;
}

}  // namespace

std::set<std::string> checkBrowsers(Report& report) {
  const DigitalSignatureUtilPkcs11 startsNss("", "", "", "");
  std::set<std::string> hosts;
  bool anyBrowserServed = false;
  const JSONNode table = JSONWorker::parse(kBrowsers);
  for (const JSONNode& browser : table.at("browsers")) {
    const std::string name = member(browser, "name");
    bool served = false;
    // The user's own manifest wins in every browser.
    std::vector<std::string> folders = systemFolders(browser);
    folders.insert(folders.begin(), userFolder(browser));
    for (const fs::path folder : folders) {
      const fs::path file = folder / (HOST_NAME ".json");
      std::error_code ignored;
      if (!fs::exists(file, ignored)) {
        continue;
      }
      std::string host;
      if (const auto problem = manifestProblem(file, browser, host)) {
        report.add(*problem, "manifest",
                   {{"browser", name}, {"path", file.native()}, {"host", host}});
      } else {
        report.add(Verdict::kOk, "manifest", "doctor.manifest.ok",
                   {{"browser", name}, {"path", file.native()}});
        hosts.insert(host);
      }
      served = true;
      break;
    }
    anyBrowserServed = anyBrowserServed || served;
    if (!served && isInstalled(browser)) {
      report.add({"error.host-not-found", "doctor.manifest.missing"}, "manifest",
                 {{"browser", name}, {"path", systemFolders(browser).front()}});
      anyBrowserServed = true;  // said already
    }
  }
  if (!anyBrowserServed) {
    report.add({"error.host-not-found", "doctor.manifest.none"}, "manifest");
  }
  return hosts;
}
