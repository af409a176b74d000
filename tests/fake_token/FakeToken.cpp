#include "tests/fake_token/FakeToken.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace {

/// Tests set the environment before the token's first call.
const char* environment(const char* name) {
  return std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
}

template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T* resource) const {
    release(resource);
  }
};

Bytes rsaSignature(const std::string& pemPath, const Bytes& data) {
  const std::unique_ptr<std::FILE, Releaser<std::fclose>> file(std::fopen(pemPath.c_str(), "re"));
  if (!file) return {};
  const std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>> key(
      PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  const std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>> context(
      EVP_PKEY_CTX_new(key.get(), nullptr));
  if (!context || EVP_PKEY_sign_init(context.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) <= 0) {
    return {};
  }
  std::size_t length = 0;
  EVP_PKEY_sign(context.get(), nullptr, &length, data.data(), data.size());
  Bytes signature(length);
  if (EVP_PKEY_sign(context.get(), signature.data(), &length, data.data(), data.size()) <= 0) {
    return {};
  }
  signature.resize(length);
  return signature;
}

}  // namespace

FakeToken& FakeToken::instance() {
  static FakeToken token;
  return token;
}

void FakeToken::script(std::string_view text) {
  current = TokenScript::parse(text);
  currentText = text;
  occurrences.clear();
}

std::vector<std::string> FakeToken::calls() const {
  std::vector<std::string> names;
  for (const std::string& line : lines) names.push_back(line.substr(0, line.find(' ')));
  return names;
}

std::vector<std::string> FakeToken::callsOf(std::string_view function) const {
  const std::string start = std::string(function) + ' ';
  std::vector<std::string> chosen;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(chosen),
               [&](const std::string& line) { return line.starts_with(start); });
  return chosen;
}

std::optional<CK_RV> FakeToken::beginCall(const std::string& function,
                                          const std::string& arguments) {
  using Kind = ScriptedAction::Kind;
  const unsigned long occurrence = ++occurrences[function];
  for (const ScriptedAction& action : current.actions) {
    if (action.function != function ||
        (action.occurrence != 0 && action.occurrence != occurrence)) {
      continue;
    }
    switch (action.kind) {
      case Kind::kPrint:
        std::printf("%s\n", action.text.c_str());
        std::fflush(stdout);
        break;
      case Kind::kExit:
        record(function + arguments + " -> exit");
        _exit(static_cast<int>(action.value));
      case Kind::kCrash:
        record(function + arguments + " -> crash");
        std::signal(SIGSEGV, SIG_DFL);
        std::raise(SIGSEGV);
        break;
      case Kind::kFail:
        return action.value;
    }
  }
  return std::nullopt;
}

CK_ULONG FakeToken::countToTell(const std::string& function, CK_ULONG count) const {
  for (const CountLie& lie : current.countLies) {
    if (lie.function == function &&
        (lie.occurrence == 0 || lie.occurrence == occurrences.at(function))) {
      return lie.count;
    }
  }
  return count;
}

void FakeToken::record(const std::string& line) {
  if (!followsEnvironment) lines.push_back(line);
  if (const char* path = environment("FAKE_TOKEN_LOG")) {
    std::ofstream(path, std::ios::app) << line << '\n';
  }
}

void FakeToken::readEnvironment() {
  const char* path = environment("FAKE_TOKEN_SCRIPT");
  followsEnvironment = path != nullptr;
  if (!followsEnvironment) return;
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (file && text == currentText) return;
  try {
    if (!file) throw std::invalid_argument(std::string("cannot read ") + path);
    script(text);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    std::abort();
  }
}

FakeToken::Session* FakeToken::session(CK_SESSION_HANDLE handle) {
  const auto found = sessions.find(handle);
  return found == sessions.end() ? nullptr : &found->second;
}

const Attributes* FakeToken::object(CK_OBJECT_HANDLE handle) const {
  return handle == 0 || handle > current.objects.size() ? nullptr : &current.objects[handle - 1];
}

std::vector<CK_OBJECT_HANDLE> FakeToken::search(const Attributes& wanted) const {
  std::vector<CK_OBJECT_HANDLE> found;
  for (std::size_t index = 0; index < current.objects.size(); ++index) {
    const Attributes& attributes = current.objects[index];
    const bool isCertificate = attributes.contains(CKA_CERTIFICATE_TYPE);
    const bool matches = std::all_of(wanted.begin(), wanted.end(), [&](const auto& attribute) {
      const auto own = attributes.find(attribute.first);
      return own != attributes.end() && own->second == attribute.second;
    });
    if (matches && (isCertificate || loggedIn)) found.push_back(index + 1);
  }
  return found;
}

Bytes FakeToken::signature(CK_OBJECT_HANDLE key, const Bytes& data) const {
  const Bytes& id = object(key)->at(CKA_ID);
  const std::string& pemPath = current.keyFiles.at({id.begin(), id.end()});
  if (!pemPath.empty()) return rsaSignature(pemPath, data);
  Bytes pattern(current.patternSignatureLength);
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    pattern[at] = static_cast<unsigned char>(at ^ (data.empty() ? 0 : data[at % data.size()]));
  }
  return pattern;
}
