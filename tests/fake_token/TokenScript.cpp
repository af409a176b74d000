#include "tests/fake_token/TokenScript.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

using Words = std::istringstream;

const std::map<std::string, CK_ULONG, std::less<>>& namedNumbers() {
  static const std::map<std::string, CK_ULONG, std::less<>> names{
      {"ones", ~CK_ULONG{0}},
      {"CKA_ID", CKA_ID},
      {"CKA_VALUE", CKA_VALUE},
      {"CKR_OK", CKR_OK},
      {"CKR_HOST_MEMORY", CKR_HOST_MEMORY},
      {"CKR_GENERAL_ERROR", CKR_GENERAL_ERROR},
      {"CKR_FUNCTION_FAILED", CKR_FUNCTION_FAILED},
      {"CKR_ATTRIBUTE_SENSITIVE", CKR_ATTRIBUTE_SENSITIVE},
      {"CKR_DEVICE_ERROR", CKR_DEVICE_ERROR},
      {"CKR_DEVICE_REMOVED", CKR_DEVICE_REMOVED},
      {"CKR_KEY_FUNCTION_NOT_PERMITTED", CKR_KEY_FUNCTION_NOT_PERMITTED},
      {"CKR_MECHANISM_INVALID", CKR_MECHANISM_INVALID},
      {"CKR_PIN_INCORRECT", CKR_PIN_INCORRECT},
      {"CKR_PIN_INVALID", CKR_PIN_INVALID},
      {"CKR_PIN_LEN_RANGE", CKR_PIN_LEN_RANGE},
      {"CKR_PIN_EXPIRED", CKR_PIN_EXPIRED},
      {"CKR_PIN_LOCKED", CKR_PIN_LOCKED},
      {"CKR_SESSION_COUNT", CKR_SESSION_COUNT},
      {"CKR_TOKEN_NOT_PRESENT", CKR_TOKEN_NOT_PRESENT},
      {"CKR_USER_ALREADY_LOGGED_IN", CKR_USER_ALREADY_LOGGED_IN},
      {"CKR_BUFFER_TOO_SMALL", CKR_BUFFER_TOO_SMALL}};
  return names;
}

std::string word(Words& words) {
  std::string text;
  if (!(words >> text)) throw std::invalid_argument("a word is missing");
  return text;
}

std::string rest(Words& words) {
  std::string text;
  std::getline(words >> std::ws, text);
  return text;
}

CK_ULONG number(const std::string& text) {
  if (const auto named = namedNumbers().find(text); named != namedNumbers().end()) {
    return named->second;
  }
  std::size_t used = 0;
  const unsigned long value = std::stoul(text, &used, 0);
  if (used != text.size()) throw std::invalid_argument("not a number: " + text);
  return value;
}

unsigned long occurrence(Words& words) {
  const std::string text = word(words);
  return text == "*" ? 0 : number(text);
}

Bytes hexBytes(const std::string& text) {
  Bytes bytes;
  if (text == "-") return bytes;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

Bytes fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::invalid_argument("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Bytes numberBytes(CK_ULONG value) {
  const auto* first = reinterpret_cast<const unsigned char*>(&value);
  return {first, first + sizeof value};
}

Attributes certificate(Words& words) {
  Attributes attributes{{CKA_CLASS, numberBytes(CKO_CERTIFICATE)}};
  attributes[CKA_ID] = hexBytes(word(words));
  const bool fromFile = word(words) == "file";
  attributes[CKA_VALUE] = fromFile ? fileBytes(word(words)) : hexBytes(word(words));
  std::string type;
  attributes[CKA_CERTIFICATE_TYPE] = numberBytes(words >> type ? number(word(words)) : CKC_X_509);
  return attributes;
}

LengthLie lengthLie(Words& words) {
  LengthLie lie{};
  lie.type = number(word(words));
  const std::string when = word(words);
  lie.whenAsked = when == "asked" || when == "both";
  lie.whenRead = when == "read" || when == "both";
  if (!lie.whenAsked && !lie.whenRead) throw std::invalid_argument("when? " + when);
  lie.length = number(word(words));
  std::string object;
  lie.object = words >> object ? number(word(words)) : 0;
  return lie;
}

void addLie(TokenScript& script, Words& words) {
  const std::string what = word(words);
  if (what == "length") {
    script.lengthLies.push_back(lengthLie(words));
  } else if (what == "search") {
    script.searchLie = number(word(words));
  } else {
    static const std::map<std::string, std::string, std::less<>> functions{
        {"slots", "C_GetSlotList"}, {"found", "C_FindObjects"}, {"signature", "C_Sign"}};
    const std::string& function = functions.at(what);
    const unsigned long when = occurrence(words);
    script.countLies.push_back({function, when, number(word(words))});
  }
}

void addAction(TokenScript& script, ScriptedAction::Kind kind, Words& words) {
  ScriptedAction action{kind, word(words), 0, 0, {}};
  action.occurrence = occurrence(words);
  if (kind == ScriptedAction::Kind::kPrint) {
    action.text = rest(words);
  } else if (kind != ScriptedAction::Kind::kCrash) {
    action.value = number(word(words));
  }
  script.actions.push_back(std::move(action));
}

void addStatement(TokenScript& script, const std::string& verb, Words& words) {
  using Kind = ScriptedAction::Kind;
  static const std::map<std::string, Kind, std::less<>> actions{{"fail", Kind::kFail},
                                                                {"print", Kind::kPrint},
                                                                {"exit", Kind::kExit},
                                                                {"crash", Kind::kCrash}};
  if (const auto action = actions.find(verb); action != actions.end()) {
    addAction(script, action->second, words);
  } else if (verb == "lie") {
    addLie(script, words);
  } else if (verb == "slots") {
    script.slots.clear();
    for (std::string slot; words >> slot && slot != "none";) script.slots.push_back(number(slot));
  } else if (verb == "pin") {
    script.pin = rest(words);
  } else if (verb == "certificate") {
    script.objects.push_back(certificate(words));
  } else if (verb == "key") {
    const Bytes id = hexBytes(word(words));
    script.objects.push_back({{CKA_CLASS, numberBytes(CKO_PRIVATE_KEY)}, {CKA_ID, id}});
    script.keyFiles[std::string(id.begin(), id.end())] = rest(words);
  } else if (verb == "signature") {
    script.patternSignatureLength = number(word(words));
  } else if (verb == "accept") {
    script.acceptSecondInitialize = true;
  } else if (verb == "log") {
    script.logPin = true;
  } else {
    throw std::invalid_argument("unknown statement");
  }
}

}  // namespace

TokenScript TokenScript::parse(std::string_view text) {
  TokenScript script;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    Words words(line);
    std::string verb;
    if (!(words >> verb) || verb.front() == '#') continue;
    try {
      addStatement(script, verb, words);
    } catch (const std::exception& problem) {
      throw std::invalid_argument("fake token script: \"" + line + "\": " + problem.what());
    }
  }
  return script;
}
