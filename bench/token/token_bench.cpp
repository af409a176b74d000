// The token commands through the host against the bare PKCS#11 calls, and as whole processes
// against pkcs11-tool and p11tool, in turns.
//
//   token_bench HOST BARE_TOKEN GUARDED_TOKEN TOKENS PIN INITIALIZE [--quick]
//
// TOKENS holds one token folder for each number of certificates, named by that number.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "bench/driver/Records.h"
#include "bench/token/TokenConversation.h"

namespace {

constexpr std::array<std::size_t, 4> kCertificateCounts{1, 10, 100, 1000};

/// A card for signing holds a few certificates.
constexpr std::size_t kUsualCount = 10;

struct Programs {
  std::string host;
  std::string bare;
  std::string guarded;
  std::string tokens;
  std::string pin;
  std::string initialize;
  bool quick;

  [[nodiscard]] BenchToken token(std::size_t count) const {
    return {tokens + "/" + std::to_string(count), pin, initialize};
  }
};

/// Operations that make one sample: the first one pays for whatever ran before it.
constexpr int kInARow = 5;

double timed(const std::function<void()>& work, int times = 1) {
  const auto start = Clock::now();
  for (int i = 0; i < times; ++i) {
    work();
  }
  return nanosecondsSince(start) / times;
}

/// Enough repetitions for a median; fewer of what takes long.
int repetitions(const Programs& programs, std::size_t count) {
  const int wanted = count >= 1000 ? 25 : 101;
  return programs.quick ? std::max(3, wanted / 20) : wanted;
}

/// One host and both bare programs, started and logged in, on a token with `count` certificates.
void againstBareCalls(const Programs& programs, std::size_t count) {
  const BenchToken token = programs.token(count);
  TokenConversation host(programs.host, token);
  Child bare({programs.bare, BENCH_PKCS11_MODULE, programs.pin}, token.environment);
  Child guarded({programs.guarded, BENCH_PKCS11_MODULE, programs.pin}, token.environment);
  if (host.list() != count) {
    fail("the host did not list every certificate");
  }
  std::string hostListing = TokenConversation::result(kList, host.ask(kList));
  std::string bareListing(bare.ask("names"));
  // Compared without their order: SoftHSM finds objects in the order of their addresses.
  std::ranges::sort(hostListing);
  std::ranges::sort(bareListing);
  if (hostListing != bareListing) {
    fail("the bare program did not list what the host lists");
  }
  host.enterPin();
  host.sign();
  for (Child* program : {&bare, &guarded}) {
    program->ask("names");
    program->ask("sign");
  }

  struct Subject {
    const char* job;
    const char* name;
    std::function<double()> time;
  };
  const auto hostSubject = [&](const char* job, const TokenRequest& request) {
    return Subject{job, "host", [&host, request] {
                     std::string_view answer;
                     const double time = timed([&] { answer = host.ask(request); }, kInARow);
                     TokenConversation::result(request, answer);  // looked at off the clock
                     return time;
                   }};
  };
  const auto bareSubject = [](Child& program, const char* job, const char* name,
                              const char* request) {
    return Subject{job, name,
                   [&program, request] { return timed([&] { program.ask(request); }, kInARow); }};
  };
  std::vector<std::vector<Subject>> jobs{{hostSubject("list", kList),
                                          bareSubject(guarded, "list", "guarded_listing", "names"),
                                          bareSubject(bare, "list", "bare_listing", "names"),
                                          bareSubject(bare, "list", "bare_calls", "list")}};
  if (count == kUsualCount) {
    for (const auto& [job, request] : {std::pair{"get", kRetrieve}, {"sign", kSign}}) {
      jobs.push_back({hostSubject(job, request), bareSubject(guarded, job, "guarded_calls", job),
                      bareSubject(bare, job, "bare_calls", job)});
    }
  }
  for (int repetition = 0; repetition < repetitions(programs, count); ++repetition) {
    for (std::vector<Subject>& subjects : jobs) {
      for (const Subject& subject : subjects) {
        const std::string name = std::string(subject.job) + "/" + std::to_string(count);
        record("token", name, subject.name, "ns", subject.time());
      }
      // Who goes later finds the token's files warmer: take turns.
      std::rotate(subjects.begin(), subjects.begin() + 1, subjects.end());
    }
  }
}

/// From the start of a process to its end, for one job.
void asWholeProcesses(const Programs& programs, std::size_t count) {
  const BenchToken token = programs.token(count);
  const std::string digestInfo = programs.tokens + "/digest-info";
  constexpr std::array<unsigned char, 19> kSha256Prefix{0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                                        0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                                        0x01, 0x05, 0x00, 0x04, 0x20};
  std::ofstream(digestInfo, std::ios::binary)
      << std::string(kSha256Prefix.begin(), kSha256Prefix.end()) << std::string(32, '\0');

  const std::vector<std::string> pkcs11Tool{"pkcs11-tool", "--module", BENCH_PKCS11_MODULE};
  const std::vector<std::string> p11tool{"p11tool", "--provider", BENCH_PKCS11_MODULE};
  const auto run = [&](std::vector<std::string> command, const std::vector<std::string>& options) {
    command.insert(command.end(), options.begin(), options.end());
    return runToEnd(command, token.environment);
  };
  const auto listObjects = [&] { return run(pkcs11Tool, {"--list-objects", "--type", "cert"}); };
  const auto listUrls = [&] { return run(p11tool, {"--only-urls", "--list-all-certs"}); };
  struct Subject {
    const char* job;
    const char* name;
    std::function<double()> peakAfterRun;
  };
  std::vector<Subject> subjects{
      {"list", "host",
       [&] {
         TokenConversation host(programs.host, token);
         host.list();
         return host.process().finish();
       }},
      {"list", "pkcs11-tool", listObjects},
      {"list", "p11tool", [&] { return run(p11tool, {"--list-all-certs"}); }},
      {"list", "p11tool_urls", listUrls},
  };
  if (count == kUsualCount) {
    subjects.insert(subjects.end(),
                    {{"sign", "host",
                      [&] {
                        TokenConversation host(programs.host, token);
                        host.list();
                        host.enterPin();
                        host.sign();
                        return host.process().finish();
                      }},
                     {"sign", "pkcs11-tool",
                      [&] {
                        return run(pkcs11Tool, {"--sign", "--mechanism", "RSA-PKCS", "--id", "01",
                                                "--pin", programs.pin, "--input-file", digestInfo,
                                                "--output-file", "/dev/null"});
                      }},
                     {"sign", "p11tool", [&] {
                        return run(p11tool, {"--login", "--set-pin", programs.pin, "--test-sign",
                                             "pkcs11:id=%01;type=private"});
                      }}});
  }
  const int rounds = std::max(3, repetitions(programs, count) / 8);
  for (int repetition = 0; repetition < rounds; ++repetition) {
    for (const Subject& subject : subjects) {
      const std::string name = std::string(subject.job) + "/" + std::to_string(count);
      double peak = 0;
      record("token_process", name, subject.name, "ns",
             timed([&] { peak = subject.peakAfterRun(); }));
      record("token_process", name, subject.name, "peak_kb", peak);
    }
    std::rotate(subjects.begin(), subjects.begin() + 1, subjects.end());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 7) {
    return EXIT_FAILURE;
  }
  const Programs programs{
      argv[1], argv[2], argv[3], argv[4], argv[5], argv[6], quickRun(argc, argv)};
  for (const std::size_t count : kCertificateCounts) {
    againstBareCalls(programs, count);
    asWholeProcesses(programs, count);
  }
  return EXIT_SUCCESS;
}
