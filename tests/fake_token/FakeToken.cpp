#include "tests/fake_token/FakeToken.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>

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

std::optional<std::string> FakeToken::wanted(const char* verb, const std::string& what) const {
  for (const TokenScript::Words& words : current.after({verb, what})) {
    if (words.at(0) == "*" || number(words[0]) == occurrences.at(what)) {
      return words.size() > 1 ? words[1] : "";
    }
  }
  return std::nullopt;
}

std::optional<CK_RV> FakeToken::beginCall(const std::string& function,
                                          const std::string& arguments) {
  ++occurrences[function];
  if (const auto text = wanted("print", function)) {
    std::printf("%s\n", text->c_str());
    std::fflush(stdout);
  }
  if (const auto status = wanted("exit", function)) {
    record(function + arguments + " -> exit");
    _exit(static_cast<int>(number(*status)));
  }
  if (wanted("crash", function)) {
    record(function + arguments + " -> crash");
    std::signal(SIGSEGV, SIG_DFL);
    std::raise(SIGSEGV);
  }
  while (wanted("hang", function)) pause();
  if (wanted("fork", function)) fork();
  if (wanted("throw", function)) {
    record(function + arguments + " -> throw");
    throw std::runtime_error("thrown by the fake token");
  }
  if (wanted("exhaust", function)) {
    try {
      std::string().resize(std::size_t{1} << 61U);
    } catch (const std::bad_alloc&) {
      return CKR_HOST_MEMORY;
    }
  }
  if (const auto value = wanted("fail", function)) return number(*value);
  return std::nullopt;
}

CK_ULONG FakeToken::countToTell(const std::string& what, CK_ULONG count) {
  ++occurrences[what];
  const auto lie = wanted("lie", what);
  return lie ? number(*lie) : count;
}

void FakeToken::record(const std::string& line) {
  if (!followsEnvironment) lines.push_back(line);
  if (const char* path = std::getenv("FAKE_TOKEN_LOG")) {
    std::ofstream(path, std::ios::app) << line << '\n';
  }
}

void FakeToken::readEnvironment() noexcept {
  const char* path = std::getenv("FAKE_TOKEN_SCRIPT");
  followsEnvironment = path != nullptr;
  if (!followsEnvironment) return;
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (text != currentText) script(text);
}

const Attributes* FakeToken::object(CK_OBJECT_HANDLE handle) const {
  return handle == 0 || handle > current.objects.size() ? nullptr : &current.objects[handle - 1];
}

std::vector<CK_OBJECT_HANDLE> FakeToken::search(const Attributes& wanted) const {
  std::vector<CK_OBJECT_HANDLE> found;
  for (CK_OBJECT_HANDLE handle = 1; handle <= current.objects.size(); ++handle) {
    const Attributes& attributes = *object(handle);
    const bool isPrivate = !attributes.contains(CKA_VALUE);
    const bool matches =
        std::includes(attributes.begin(), attributes.end(), wanted.begin(), wanted.end());
    if (matches && (loggedIn || !isPrivate)) found.push_back(handle);
  }
  const CK_ULONG pretended = number(current.value({"lie", "search"}, "0"));
  for (std::size_t at = 0; !found.empty() && found.size() < pretended; ++at) {
    found.push_back(found[at]);
  }
  return found;
}
