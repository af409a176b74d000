#include "doctor/Catalogue.h"

#include <algorithm>
#include <cstdlib>

#include "CatalogueTexts.h"

namespace {

bool isSpanish(std::string_view locale) { return locale.substr(0, 2) == "es"; }

}  // namespace

Catalogue::Catalogue(std::string_view locale)
    : texts(JSONWorker::parse(isSpanish(locale) ? kSpanishTexts : kEnglishTexts)),
      product(JSON_NODE) {
  const JSONNode operatorFile = JSONWorker::parse(kOperator);
  const char* const name = isSpanish(locale) ? "productName.es" : "productName.en";
  product.push_back(JSONNode("product", operatorFile.at(name).as_string()));
  for (const char* const member : {"installPage", "supportAddress"}) {
    product.push_back(JSONNode(member, operatorFile.at(member).as_string()));
  }
}

std::string Catalogue::text(std::string_view key, TextValues values) const {
  const std::string pattern = texts.at(key).as_string();
  std::string filled;
  std::size_t position = 0;
  while (position < pattern.size()) {
    const std::size_t open = pattern.find('{', position);
    filled.append(pattern, position, open - position);
    if (open == std::string::npos) {
      break;
    }
    const std::size_t close = pattern.find('}', open);
    const auto name = std::string_view(pattern).substr(open + 1, close - open - 1);
    const auto* const value = std::find_if(values.begin(), values.end(),
                                           [&](const auto& pair) { return pair.first == name; });
    filled += value != values.end() ? std::string(value->second) : product.at(name).as_string();
    position = close + 1;
  }
  return filled;
}

std::string_view messageLocale() {
  for (const char* const variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): one thread
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "";
}
