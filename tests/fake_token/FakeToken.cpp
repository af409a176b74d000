#include "tests/fake_token/FakeToken.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

/// Tests set the environment before the token's first call.
const char* environment(const char* name) {
  return std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
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

bool FakeToken::isNow(const ScriptedAction& action, const std::string& function) const {
  return action.function == function &&
         (action.occurrence == 0 || action.occurrence == occurrences.at(function));
}

std::optional<CK_RV> FakeToken::beginCall(const std::string& function,
                                          const std::string& arguments) {
  ++occurrences[function];
  for (const ScriptedAction& action : current.actions) {
    if (!isNow(action, function)) continue;
    if (action.verb == "fail") return action.value;
    if (action.verb == "print") {
      std::printf("%s\n", action.text.c_str());
      std::fflush(stdout);
    } else if (action.verb != "lie") {
      record(function + arguments + " -> " + action.verb);
      if (action.verb == "exit") _exit(static_cast<int>(action.value));
      std::signal(SIGSEGV, SIG_DFL);
      std::raise(SIGSEGV);
    }
  }
  return std::nullopt;
}

CK_ULONG FakeToken::countToTell(const std::string& function, CK_ULONG count) const {
  for (const ScriptedAction& action : current.actions) {
    if (action.verb == "lie" && isNow(action, function)) return action.value;
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
  for (std::size_t at = 0; !found.empty() && found.size() < current.searchLie; ++at) {
    found.push_back(found[at]);
  }
  return found;
}
