#include "tests/fake_token/TokenScript.h"

#include <sstream>
#include <stdexcept>

namespace {

using Words = std::istringstream;

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
  static const std::map<std::string, CK_ULONG, std::less<>> names{
      {"ones", ~CK_ULONG{0}},
      {"*", 0},
      {"CKA_ID", CKA_ID},
      {"CKA_VALUE", CKA_VALUE},
      {"CKR_HOST_MEMORY", CKR_HOST_MEMORY},
      {"CKR_GENERAL_ERROR", CKR_GENERAL_ERROR},
      {"CKR_DEVICE_ERROR", CKR_DEVICE_ERROR},
      {"CKR_PIN_INCORRECT", CKR_PIN_INCORRECT},
      {"CKR_PIN_LOCKED", CKR_PIN_LOCKED}};
  if (const auto named = names.find(text); named != names.end()) return named->second;
  std::size_t used = 0;
  const unsigned long value = std::stoul(text, &used, 0);
  if (used != text.size()) throw std::invalid_argument("not a number: " + text);
  return value;
}

Bytes hexBytes(const std::string& text) {
  Bytes bytes;
  for (std::size_t at = 0; text != "-" && at < text.size(); at += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

Bytes numberBytes(CK_ULONG value) {
  const auto* first = reinterpret_cast<const unsigned char*>(&value);
  return {first, first + sizeof value};
}

ScriptedAction action(const std::string& verb, const std::string& function, Words& words) {
  ScriptedAction action{verb, function, number(word(words)), 0, rest(words)};
  if (verb != "print" && verb != "crash") action.value = number(action.text);
  return action;
}

void addLie(TokenScript& script, Words& words) {
  static const std::map<std::string, std::string, std::less<>> functions{
      {"slots", "C_GetSlotList"}, {"found", "C_FindObjects"}, {"signature", "C_Sign"}};
  const std::string what = word(words);
  if (what == "search") {
    script.searchLie = number(word(words));
  } else if (what == "length") {
    const CK_ATTRIBUTE_TYPE type = number(word(words));
    const std::string when = word(words);
    const CK_ULONG length = number(word(words));
    std::string object;
    script.lengthLies.push_back(
        {type, when, length, words >> object ? number(word(words)) : CK_OBJECT_HANDLE{0}});
  } else {
    script.actions.push_back(action("lie", functions.at(what), words));
  }
}

void addStatement(TokenScript& script, const std::string& verb, Words& words) {
  if (verb == "fail" || verb == "print" || verb == "exit" || verb == "crash") {
    const std::string function = word(words);
    script.actions.push_back(action(verb, function, words));
  } else if (verb == "lie") {
    addLie(script, words);
  } else if (verb == "slots") {
    script.slots.clear();
    for (std::string slot; words >> slot && slot != "none";) script.slots.push_back(number(slot));
  } else if (verb == "pin") {
    script.pin = rest(words);
  } else if (verb == "certificate") {
    const Bytes id = hexBytes(word(words));
    if (word(words) != "hex") throw std::invalid_argument("hex?");
    script.objects.push_back({{CKA_CLASS, numberBytes(CKO_CERTIFICATE)},
                              {CKA_CERTIFICATE_TYPE, numberBytes(CKC_X_509)},
                              {CKA_ID, id},
                              {CKA_VALUE, hexBytes(word(words))}});
  } else if (verb == "key") {
    script.objects.push_back(
        {{CKA_CLASS, numberBytes(CKO_PRIVATE_KEY)}, {CKA_ID, hexBytes(word(words))}});
  } else if (verb == "signature") {
    script.signatureLength = number(word(words));
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
