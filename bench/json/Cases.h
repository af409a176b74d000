#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <string_view>

// What every library is asked to do. A subject is a class whose static or member functions do the
// work as the library's documentation recommends for speed; benchmarks are named case/subject or
// case/subject/bytes.

/// What is copied out of an Initialize request.
struct InitializeTexts {
  long command = 0;
  std::string signature;
  std::string domains;
  std::string currentDomain;
  std::string caSubjectNames;
};

/// What is copied out of a signing request.
struct SigningTexts {
  long command = 0;
  std::string certId;
  std::string digest;
};

/// A full response envelope.
struct Envelope {
  int command;
  std::string pinModuleName;
  int pinRetryCount;
  std::string resultName;
  std::string result;
};

const std::string& initializeRequest();  ///< about 620 bytes
const std::string& signingRequest();     ///< about 120 bytes
const Envelope& signatureEnvelope();     ///< a signature of 344 characters
const Envelope& listingEnvelope();       ///< three certificates, accented names

/// One line: an object of members of about 100 bytes, the last one named "last" with a number.
std::string lineOfMembers(std::size_t bytes);
inline constexpr std::size_t kMegabyte = 1'000'000;

/// The result must be right before it is timed.
void requireRight(bool right, std::string_view subject);

template <typename Subject>
void readInitialize(benchmark::State& state) {
  Subject subject(initializeRequest());
  requireRight(subject.readInitialize().caSubjectNames.size() > 100, Subject::kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(subject.readInitialize());
  }
}

template <typename Subject>
void readSigning(benchmark::State& state) {
  Subject subject(signingRequest());
  requireRight(subject.readSigning().digest.size() == 44, Subject::kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(subject.readSigning());
  }
}

template <typename Subject>
void readLast(benchmark::State& state, std::size_t bytes) {
  const std::string line = lineOfMembers(bytes);
  Subject subject(line);
  requireRight(subject.readLast() == 42, Subject::kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(subject.readLast());
  }
}

template <typename Subject>
void write(benchmark::State& state, const Envelope& envelope, bool indented) {
  const std::string text = Subject::write(envelope, indented);
  requireRight(text.size() > envelope.result.size() && text.front() == '{' && text.back() == '}',
               Subject::kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Subject::write(envelope, indented));
  }
}

/// Registers the cases that a subject can do.
template <typename Subject>
bool registerSubject() {
  const auto add = [](const std::string& name, auto run) {
    benchmark::RegisterBenchmark((name + "/" + Subject::kName).c_str(), run);
  };
  if constexpr (requires(Subject subject) { subject.readLast(); }) {
    add("read_initialize", readInitialize<Subject>);
    add("read_signing", readSigning<Subject>);
    add("read_members", [](benchmark::State& state) { readLast<Subject>(state, kMegabyte); });
    for (std::size_t bytes = 1'000; bytes <= 17 * kMegabyte; bytes *= 4) {
      benchmark::RegisterBenchmark(
          ("growth/" + std::string(Subject::kName) + "/" + std::to_string(bytes)).c_str(),
          [bytes](benchmark::State& state) { readLast<Subject>(state, bytes); });
    }
  }
  if constexpr (requires(const Envelope& envelope) { Subject::write(envelope, true); }) {
    add("write_indented",
        [](benchmark::State& state) { write<Subject>(state, signatureEnvelope(), true); });
    add("write_compact",
        [](benchmark::State& state) { write<Subject>(state, signatureEnvelope(), false); });
    add("write_listing",
        [](benchmark::State& state) { write<Subject>(state, listingEnvelope(), true); });
  }
  return true;
}
