#include "json/_internal/Source/JSONCompaction.h"

#include <algorithm>
#include <cstring>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/CharacterClass.h"

namespace json_detail {

namespace {

constexpr char kHiddenQuote = 0x01;
constexpr char kCommentMark = '#';

/// The pass over one text. What is written is never longer than what was read,
/// apart from the closing mark of a line comment that the end of the text ends.
class Compactor {
 public:
  Compactor(std::string_view text, char* output, bool hideQuotes)
      : at(text.data()), end(text.data() + text.size()), out(output), hidesQuotes(hideQuotes) {}

  /// Returns the end of the output. Stops without a word at what cannot be part of JSON.
  /// @param inString  whether the text begins within a string
  char* run(bool inString) {
    bool proceeds = !inString || copyStringRest();
    while (proceeds && at != end) {
      switch (classOf(*at)) {
        case CharacterClass::kBackslash:
          found.mayHoldEscapes = true;
          [[fallthrough]];
        case CharacterClass::kPlain:
          *out++ = *at++;
          break;
        case CharacterClass::kWhiteSpace:
          ++at;
          break;
        case CharacterClass::kQuote:
          *out++ = *at++;
          proceeds = copyStringRest();
          break;
        case CharacterClass::kSlash:
          proceeds = copySlashComment();
          break;
        case CharacterClass::kHash:
          copyLineComment(at + 1);
          break;
        case CharacterClass::kIllegal:
          proceeds = false;
          break;
      }
    }
    return out;
  }

  [[nodiscard]] const TextFacts& facts() const { return found; }

 private:
  /// False when the string is not closed.
  bool copyStringRest() {
    for (;;) {
      at = copyUntil<QuoteOrBackslash>(at, end, out);
      if (at == end) {
        return false;
      }
      const bool isEscape = *at == '\\';
      *out++ = *at++;
      if (!isEscape) {
        return true;
      }
      found.mayHoldEscapes = true;
      if (at == end) {
        return false;
      }
      const bool hides = *at == '"' && hidesQuotes;
      found.holdsHiddenQuotes = found.holdsHiddenQuotes || hides;
      *out++ = hides ? kHiddenQuote : *at;
      ++at;
    }
  }

  /// False when the slash starts no comment, or one that is not closed.
  bool copySlashComment() {
    const std::string_view rest(at, static_cast<std::size_t>(end - at));
    if (rest.starts_with("//")) {
      copyLineComment(at + 2);
      return true;
    }
    constexpr std::size_t kMark = 2;  // of a block comment, at either end
    if (!rest.starts_with("/*")) {
      return false;
    }
    const std::size_t close = rest.find("*/", kMark);
    const bool isClosed = close != std::string_view::npos;
    const std::size_t length = isClosed ? close : rest.size();
    copyComment(rest.substr(kMark, length - kMark));
    at += isClosed ? length + kMark : length;
    return isClosed;
  }

  void copyLineComment(const char* text) {
    const char* const lineEnd = std::find(text, end, '\n');
    copyComment({text, static_cast<std::size_t>(lineEnd - text)});
    at = lineEnd;
  }

  void copyComment(std::string_view text) {
    *out++ = kCommentMark;
    out = std::copy(text.begin(), text.end(), out);
    *out++ = kCommentMark;
    found.mayHoldComments = true;
    found.mayHoldEscapes = true;  // a name cut out of a damaged text may reach into the comment
  }

  const char* at;
  const char* end;
  char* out;
  bool hidesQuotes;
  TextFacts found{.mayHoldEscapes = false, .mayHoldComments = false};
};

}  // namespace

JSONSource compacted(std::string_view text, bool hideQuotes) {
  JSONSource source(text.size() + kIndexBlockBytes);
  char* const out = source.data();
  copyBytes(out, text.data(), text.size());
  std::memset(out + text.size(), '0', kIndexBlockBytes);  // plain, as the index wants it
  // A machine's JSON is mostly compact already, which is found out faster than compacting takes.
  const PlainFront plain = indexPlainFront(out, text.size(), source.index());
  if (plain.size == text.size()) {
    source.setText(text.size(),
                   {.isIndexed = true, .mayHoldEscapes = false, .mayHoldComments = false});
    return source;
  }
  Compactor compactor(text.substr(plain.size), out + plain.size, hideQuotes);
  const char* const end = compactor.run(plain.endsInString);
  source.setText(static_cast<std::size_t>(end - out), compactor.facts());
  return source;
}

}  // namespace json_detail
