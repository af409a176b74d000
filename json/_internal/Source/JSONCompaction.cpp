// Stage one of parsing: one pass that drops white space and marks comments and escaped quotes.

#include <cstring>

#include "json/_internal/Source/ByteScan.h"
#include "json/_internal/Source/CharacterClass.h"
#include "json/_internal/Source/JSONWorker.h"

using json_detail::AnyOf;
using json_detail::CharacterClass;
using json_detail::classOf;
using json_detail::copyUntil;
using json_detail::JSONSource;

namespace {

constexpr char kHiddenQuote = 0x01;
constexpr char kCommentMark = '#';

/// The pass over one text. What is written is never longer than what was read, apart from the
/// closing mark of a line comment that the end of the text ends.
class Compactor {
 public:
  Compactor(std::string_view text, char* output, bool escapeQuotes)
      : at(text.data()), end(text.data() + text.size()), out(output), hidesQuotes(escapeQuotes) {}

  /// Returns the end of the output. Stops without a word at what cannot be part of JSON.
  /// @param inString  whether the text begins within a string
  char* run(bool inString) {
    bool proceeds = !inString || copyStringRest();
    while (proceeds && at != end) {
      // The two usual classes are tested for apart: foreseen better than one jump for all.
      const CharacterClass kind = classOf(*at);
      if (kind == CharacterClass::kQuote) {
        proceeds = copyString();
        continue;
      }
      if (kind == CharacterClass::kPlain) {
        *out++ = *at++;
        continue;
      }
      switch (kind) {
        case CharacterClass::kWhiteSpace:
          ++at;
          break;
        case CharacterClass::kBackslash:
          sawEscape = true;
          *out++ = *at++;
          break;
        case CharacterClass::kSlash:
          proceeds = copySlashComment();
          break;
        case CharacterClass::kHash:
          copyLineComment(at + 1);
          break;
        default:
          proceeds = false;
          break;
      }
    }
    return out;
  }

  [[nodiscard]] bool hasEscapes() const { return sawEscape; }
  [[nodiscard]] bool hasComments() const { return sawComment; }

 private:
  /// False when the string is not closed.
  bool copyString() {
    *out++ = *at++;
    return copyStringRest();
  }

  bool copyStringRest() {
    for (;;) {
      at = copyUntil<AnyOf<'"', '\\'>>(at, end, out);
      if (at == end) {
        return false;
      }
      const bool isEscape = *at == '\\';
      *out++ = *at++;
      if (!isEscape) {
        return true;
      }
      sawEscape = true;
      if (at == end) {
        return false;
      }
      if (*at == '"' && hidesQuotes) {
        *out++ = kHiddenQuote;
        ++at;
        JSONWorker::used_ascii_one.store(true, std::memory_order_relaxed);
      } else {
        *out++ = *at++;
      }
    }
  }

  /// False when the slash starts no comment, or one that is not closed.
  bool copySlashComment() {
    const char* const second = at + 1;
    if (second == end) {
      return false;
    }
    if (*second == '/') {
      copyLineComment(second + 1);
      return true;
    }
    return *second == '*' && copyBlockComment(second + 1);
  }

  void copyLineComment(const char* text) {
    openComment(text);
    at = copyUntil<AnyOf<'\n'>>(text, end, out);
    *out++ = kCommentMark;
  }

  bool copyBlockComment(const char* text) {
    openComment(text);
    at = text;
    for (;;) {
      at = copyUntil<AnyOf<'*'>>(at, end, out);
      const bool isClosed = end - at >= 2 && at[1] == '/';
      if (isClosed || at == end) {
        *out++ = kCommentMark;
        at += isClosed ? 2 : 0;
        return isClosed;
      }
      *out++ = *at++;
    }
  }

  void openComment(const char* text) {
    at = text;
    *out++ = kCommentMark;
    sawComment = true;
    sawEscape = true;  // a name cut out of a damaged text may reach into the comment
  }

  const char* at;
  const char* end;
  char* out;
  bool hidesQuotes;
  bool sawEscape = false;
  bool sawComment = false;
};

}  // namespace

JSONSource JSONWorker::RemoveWhiteSpace(std::string_view text, bool escapeQuotes) {
  JSONSource source(text.size() + 1);
  char* const out = source.data();
  if (!text.empty()) {
    std::memcpy(out, text.data(), text.size());
  }
  // A machine's JSON is mostly compact already, which is found out faster than compacting takes.
  const json_detail::PlainFront plain =
      json_detail::indexPlainFront(out, text.size(), source.index());
  if (plain.size == text.size()) {
    source.setSize(text.size());
    source.setIndexed();
    return source;
  }
  Compactor compactor(text.substr(plain.size), out + plain.size, escapeQuotes);
  const char* const end = compactor.run(plain.endsInString);
  source.setSize(static_cast<std::size_t>(end - out));
  source.setMayHoldEscapes(compactor.hasEscapes());
  source.setMayHoldComments(compactor.hasComments());
  return source;
}
