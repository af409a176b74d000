// Start, memory and growth of the process.
//
//   process_bench HOST MINIMAL_HOST PYTHON_HOST BARE_TOKEN TOKEN PIN INITIALIZE [--quick]
//
// TOKEN is one token folder.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "bench/driver/Records.h"
#include "bench/token/TokenConversation.h"

namespace {

constexpr std::string_view kVersionRequest = R"({"command":8})";

/// From before the process exists to its first answer, and its memory then.
void measureStart(const std::string& subject, const std::vector<std::string>& command) {
  const auto start = Clock::now();
  Child child(command);
  child.ask(kVersionRequest);
  record("start", "first_answer", subject, "ns", nanosecondsSince(start));
  record("start", "first_answer", subject, "peak_kb", child.kilobytes("VmHWM:"));
}

void measureStarts(const std::string& host, const std::string& minimal, const std::string& python,
                   int repetitions) {
  struct Subject {
    std::string name;
    std::vector<std::string> command;
  };
  std::array<Subject, 3> subjects{
      {{"host", {host}}, {"minimal_cpp", {minimal}}, {"python", {"/usr/bin/python3", python}}}};
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    for (const Subject& subject : subjects) {
      measureStart(subject.name, subject.command);
    }
    std::rotate(subjects.begin(), subjects.begin() + 1, subjects.end());
  }
}

void measurePeakAfterSigning(const std::string& host, const BenchToken& token) {
  TokenConversation conversation(host, token);
  conversation.list();
  conversation.enterPin();
  conversation.sign();
  record("start", "after_signing", "host", "peak_kb", conversation.process().kilobytes("VmHWM:"));
}

/// Resident size once `few` and once `many` of `work` are done.
template <typename Work>
void measureGrowth(std::string_view name, std::string_view subject, Child& process, int few,
                   int many, Work work) {
  for (int done = 0; done <= many; ++done) {
    if (done == few || done == many) {
      record("memory", name, subject, done == few ? "resident_kb_few" : "resident_kb_many",
             process.kilobytes("VmRSS:"));
    }
    if (done < many) {
      work();
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 8) {
    return EXIT_FAILURE;
  }
  const std::string host = argv[1];
  const BenchToken token(argv[5], argv[6], argv[7]);
  const bool quick = quickRun(argc, argv);
  measureStarts(host, argv[2], argv[3], quick ? 10 : 201);
  for (int repetition = 0; repetition < (quick ? 3 : 11); ++repetition) {
    measurePeakAfterSigning(host, token);
  }

  Child version({host});
  measureGrowth("version", "host", version, 1000, quick ? 10000 : 100000,
                [&] { version.ask(kVersionRequest); });

  const int signings = quick ? 100 : 1000;
  TokenConversation signing(host, token);
  signing.list();
  signing.enterPin();
  measureGrowth("sign", "host", signing.process(), 10, signings, [&] { signing.sign(); });

  // What the module itself keeps shows in the bare program.
  Child bare({argv[4], BENCH_PKCS11_MODULE, token.pin}, token.environment);
  bare.ask("list");
  measureGrowth("sign", "bare_calls", bare, 10, signings, [&] { bare.ask("sign"); });
  return EXIT_SUCCESS;
}
