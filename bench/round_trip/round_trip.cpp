// Rate and latency of the version command over pipes, of the host, of the minimal C program that
// marks the limit, and of a host of twenty lines of Python, in turns. Where the scheduler puts the
// two ends of a pipe changes a round trip fourfold and from one moment to the next, so both places
// are measured: this program and the other on one processor, and on two.
//
//   round_trip HOST FRAME_ECHO PYTHON_HOST [--quick]
#include <array>
#include <string>

#include "bench/driver/Child.h"
#include "bench/driver/Records.h"

namespace {

constexpr std::string_view kVersionRequest = R"({"command":8})";

struct Subject {
  std::string_view name;
  Child* child;
};

void measure(std::string_view name, const Subject& subject, int requests) {
  std::vector<double> latencies;
  latencies.reserve(static_cast<std::size_t>(requests));
  const auto start = Clock::now();
  for (int i = 0; i < requests; ++i) {
    const auto sent = Clock::now();
    subject.child->ask(kVersionRequest);
    latencies.push_back(nanosecondsSince(sent));
  }
  const double seconds = nanosecondsSince(start) / 1e9;
  record("round_trip", name, subject.name, "requests_per_second", requests / seconds);
  record("round_trip", name, subject.name, "median_ns", quantile(latencies, 0.5));
  record("round_trip", name, subject.name, "p99_ns", quantile(latencies, 0.99));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    return EXIT_FAILURE;
  }
  const int repetitions = quickRun(argc, argv) ? 5 : 41;
  const int requests = quickRun(argc, argv) ? 1000 : 4000;
  Child host({argv[1]});
  const std::size_t answerSize = host.ask(kVersionRequest).size();
  Child echo({argv[2], std::to_string(answerSize)});
  Child python({"/usr/bin/python3", argv[3]});
  std::array<Subject, 3> subjects{{{"host", &host}, {"minimal_c", &echo}, {"python", &python}}};
  const std::vector<int> processors = usableProcessors();
  runThisProcessOn(processors.front());
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    for (const Subject& subject : subjects) {
      subject.child->runOn(processors.front());
      measure("one_processor", subject, requests);
      if (processors.size() > 1) {
        subject.child->runOn(processors.back());
        measure("two_processors", subject, requests);
      }
    }
    std::rotate(subjects.begin(), subjects.begin() + 1, subjects.end());
  }
  return EXIT_SUCCESS;
}
