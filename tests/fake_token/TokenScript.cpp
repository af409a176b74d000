#include "tests/fake_token/TokenScript.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

Bytes hexBytes(const std::string& word) {
  Bytes bytes;
  for (std::size_t at = 0; word != "-" && at < word.size(); at += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(word.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

Bytes numberBytes(CK_ULONG value) {
  const auto* first = reinterpret_cast<const unsigned char*>(&value);
  return {first, first + sizeof value};
}

}  // namespace

TokenScript TokenScript::parse(std::string_view text) {
  static const std::set<std::string> verbs{"slots", "pin",     "signature", "accept", "log",
                                           "fail",  "lie",     "print",     "exit",   "crash",
                                           "throw", "exhaust", "hang",      "fork"};
  TokenScript script;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream stream(line);
    const Words words{std::istream_iterator<std::string>(stream), {}};
    if (words.empty()) continue;
    if (words.size() == 4 && words[0] == "certificate") {
      script.objects.push_back({{CKA_CLASS, numberBytes(CKO_CERTIFICATE)},
                                {CKA_CERTIFICATE_TYPE, numberBytes(CKC_X_509)},
                                {CKA_ID, hexBytes(words[1])},
                                {CKA_VALUE, hexBytes(words[3])}});
    } else if (words.size() == 2 && words[0] == "key") {
      script.objects.push_back(
          {{CKA_CLASS, numberBytes(CKO_PRIVATE_KEY)}, {CKA_ID, hexBytes(words[1])}});
    } else if (words.size() > 1 && verbs.contains(words[0])) {
      script.statements.push_back(words);
    } else {
      throw std::invalid_argument("fake token script: " + line);
    }
  }
  return script;
}

std::vector<TokenScript::Words> TokenScript::after(
    std::initializer_list<std::string_view> beginning) const {
  std::vector<Words> rests;
  for (const Words& words : statements) {
    const auto [stop, at] =
        std::mismatch(beginning.begin(), beginning.end(), words.begin(), words.end());
    if (stop == beginning.end()) rests.emplace_back(at, words.end());
  }
  return rests;
}

std::string TokenScript::value(std::initializer_list<std::string_view> beginning,
                               std::string absent) const {
  const std::vector<Words> rests = after(beginning);
  return rests.empty() ? absent : rests.back().at(0);
}

std::vector<CK_SLOT_ID> TokenScript::slots() const {
  const std::vector<Words> told = after({"slots"});
  if (told.empty()) return {1};
  std::vector<CK_SLOT_ID> numbers;
  for (const std::string& word : told.back()) {
    if (word != "none") numbers.push_back(number(word));
  }
  return numbers;
}

CK_ULONG number(const std::string& word) {
  static const std::map<std::string, CK_ULONG> names{{"ones", ~CK_ULONG{0}},
                                                     {"CKA_ID", CKA_ID},
                                                     {"CKA_VALUE", CKA_VALUE},
                                                     {"CKR_HOST_MEMORY", CKR_HOST_MEMORY},
                                                     {"CKR_GENERAL_ERROR", CKR_GENERAL_ERROR},
                                                     {"CKR_DEVICE_ERROR", CKR_DEVICE_ERROR},
                                                     {"CKR_PIN_INCORRECT", CKR_PIN_INCORRECT}};
  const auto named = names.find(word);
  return named != names.end() ? named->second : std::stoul(word, nullptr, 0);
}
