#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "json/json.h"

/// Values for the placeholders of a text: {{"path", "/usr/bin/x"}} fills "{path}".
using TextValues = std::initializer_list<std::pair<std::string_view, std::string_view>>;

/// The texts of one language that a person reads, from the catalogue which is compiled in.
class Catalogue {
 public:
  /// Takes Spanish for a locale name that begins with "es", English for every other.
  explicit Catalogue(std::string_view locale);

  /// The text of a key, with its placeholders filled in: by `values`, else by the product's own
  /// ({product}, {installPage}, {supportAddress}). A key that the catalogue does not have is a
  /// fault of the program: std::out_of_range.
  [[nodiscard]] std::string text(std::string_view key, TextValues values = {}) const;

 private:
  JSONNode texts;
  JSONNode product;
};

/// The locale that messages are wanted in: the first of LC_ALL, LC_MESSAGES and LANG that is set.
std::string_view messageLocale();
