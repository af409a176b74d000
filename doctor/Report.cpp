#include "doctor/Report.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr int kVerdictWidth = 8;

/// Names of cards and certificates come from outside: without the control characters that would
/// move a terminal's cursor or change its colours.
std::string printable(std::string text) {
  constexpr unsigned char kFirstPrintable = 0x20;
  constexpr unsigned char kDelete = 0x7f;
  for (char& character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < kFirstPrintable || byte == kDelete) {
      character = '?';
    }
  }
  // U+0080 to U+009F are control characters too: C2 80 to C2 9F in UTF-8.
  constexpr unsigned char kLastControlTail = 0x9f;
  for (std::size_t at = text.find('\xc2'); at != std::string::npos;
       at = text.find('\xc2', at + 1)) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) <= kLastControlTail) {
      text.replace(at, 2, "?");
    }
  }
  return text;
}

}  // namespace

constexpr Report::Style Report::kOkStyle{"ok", "doctor.verdict.ok", "\033[32m"};
constexpr Report::Style Report::kNoteStyle{"note", "doctor.verdict.note", "\033[33m"};
constexpr Report::Style Report::kProblemStyle{"problem", "doctor.verdict.problem", "\033[31m"};

Report::Report(const Catalogue& catalogue, std::FILE* stream, Format chosen)
    : texts(catalogue), output(stream), format(chosen), findings(JSON_ARRAY) {
  findings.set_name("findings");
}

void Report::add(Verdict verdict, std::string_view area, std::string_view key, TextValues values) {
  write(verdict == Verdict::kOk ? kOkStyle : kNoteStyle, area, key, texts.text(key, values));
}

void Report::add(const Problem& problem, std::string_view area, TextValues values) {
  allWell = false;
  const std::string failure(problem.failure);
  write(kProblemStyle, area, problem.seen,
        texts.text(failure + ".summary") + ' ' + texts.text(failure + ".advice") + " (" +
            texts.text(problem.seen, values) + ')');
}

void Report::write(const Style& style, std::string_view area, std::string_view key,
                   std::string text) {
  text = printable(std::move(text));
  if (format.json) {
    JSONNode finding(JSON_NODE);
    finding.push_back(JSONNode("area", area));
    finding.push_back(JSONNode("verdict", style.name));
    finding.push_back(JSONNode("key", key));
    finding.push_back(JSONNode("text", text));
    findings.push_back(std::move(finding));
    return;
  }
  std::string word = texts.text(style.textKey);
  word.resize(std::max<std::size_t>(word.size(), kVerdictWidth), ' ');
  if (format.colours) {
    word = style.colour + word + "\033[0m";
  }
  // Flushed, so that a step which hangs is seen to hang.
  static_cast<void>(std::fprintf(output, "%s %s\n", word.c_str(), text.c_str()));
  static_cast<void>(std::fflush(output));
}

bool Report::finish() {
  if (format.json) {
    JSONNode report(JSON_NODE);
    report.push_back(JSONNode("ok", allWell));
    report.push_back(findings);
    static_cast<void>(std::fprintf(output, "%s\n", report.write_formatted(1024).c_str()));
  } else {
    static_cast<void>(
        std::fprintf(output, "\n%s\n",
                     texts.text(allWell ? "doctor.summary.ok" : "doctor.summary.problem").c_str()));
  }
  return allWell;
}
