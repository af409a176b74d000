#pragma once

#include <cstdio>
#include <string_view>

#include "doctor/Catalogue.h"
#include "json/json.h"

/// What a finding says about the place that was looked at.
enum class Verdict {
  kOk,
  /// Worth knowing; nothing has to be done.
  kNote,
};

/// Something has to be done before signing works.
struct Problem {
  /// Keys "FAILURE.summary" and "FAILURE.advice" are what the client, the popup and the
  /// troubleshooting page say of it: the doctor has no other words for what they know.
  std::string_view failure;
  /// Key of what was seen here.
  std::string_view seen;
};

/// The findings of one examination: a line each as soon as it is known, or one JSON object at the
/// end, `{"ok": true, "findings": [{"area", "verdict", "key", "text"}]}`.
class Report {
 public:
  struct Format {
    bool json = false;
    bool colours = false;
  };

  /// @param catalogue the words, and
  /// @param stream where the report goes: both must outlive it
  Report(const Catalogue& catalogue, std::FILE* stream, Format chosen);

  /// Adds a finding in the words of a catalogue's key.
  void add(Verdict verdict, std::string_view area, std::string_view key, TextValues values = {});
  void add(const Problem& problem, std::string_view area, TextValues values = {});
  /// Prints what is printed at the end. True when there was no problem.
  bool finish();

  [[nodiscard]] const Catalogue& words() const { return texts; }

 private:
  struct Style {
    const char* name;
    const char* textKey;
    const char* colour;
  };
  static const Style kOkStyle;
  static const Style kNoteStyle;
  static const Style kProblemStyle;

  void write(const Style& style, std::string_view area, std::string_view key, std::string text);

  const Catalogue& texts;
  std::FILE* output;
  Format format;
  JSONNode findings;
  bool allWell = true;
};
