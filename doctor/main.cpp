// Why does it not work? Walks from the browsers' manifests to the certificates on the card and says
// of each step whether it is well, and what to do where it is not.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "doctor/BrowserCheck.h"
#include "doctor/Catalogue.h"
#include "doctor/DomainCheck.h"
#include "doctor/HostCheck.h"
#include "doctor/Report.h"
#include "doctor/TokenCheck.h"

namespace fs = std::filesystem;

namespace {

constexpr int kProblemsStatus = 1;
constexpr int kUsageStatus = 2;

struct CloseFile {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// The report's own stream. A token module may print: what goes to standard output from now on
/// ends on standard error.
File claimOutput() {
  const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return File(own < 0 ? nullptr : fdopen(own, "w"));
}

struct Options {
  bool json = false;
  bool help = false;
  std::optional<std::string> domains;
  std::optional<std::string> signature;
  std::optional<std::string> page;
};

/// A value as it is, or with "@" in front the content of a file.
std::optional<std::string> readValue(const char* argument) {
  if (argument == nullptr || argument[0] != '@') {
    return argument == nullptr ? std::nullopt : std::optional<std::string>(argument);
  }
  std::ifstream file(argument + 1, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(file), {});
}

/// Nothing when the command line is wrong. The three about domains come together or not at all.
std::optional<Options> readOptions(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const std::string_view word = arguments[i];
    std::optional<std::string>* value = word == "--domains"     ? &options.domains
                                        : word == "--signature" ? &options.signature
                                        : word == "--page"      ? &options.page
                                                                : nullptr;
    if (value != nullptr) {
      *value = readValue(arguments[++i]);  // a null pointer ends the list
      if (!*value) {
        return std::nullopt;
      }
    } else if (word == "--json") {
      options.json = true;
    } else if (word == "--help" || word == "-h") {
      options.help = true;
    } else {
      return std::nullopt;
    }
  }
  const int given =
      (options.domains ? 1 : 0) + (options.signature ? 1 : 0) + (options.page ? 1 : 0);
  return given == 0 || given == 3 ? std::optional(options) : std::nullopt;
}

/// The host beside this program, as it is installed or as it is built; empty where there is none.
std::string neighbouringHost() {
  std::error_code failure;
  const fs::path folder = fs::read_symlink("/proc/self/exe", failure).parent_path();
  for (const fs::path& host : {folder / INSTALLED_HOST, folder / "../host/signing-host"}) {
    if (access(host.c_str(), X_OK) == 0) {
      return fs::weakly_canonical(host, failure);
    }
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  const Catalogue texts(messageLocale());
  const std::optional<Options> options = readOptions(argc, argv);
  if (!options || options->help) {
    std::FILE* const stream = options ? stdout : stderr;
    static_cast<void>(std::fprintf(stream, "%s\n", texts.text("doctor.usage").c_str()));
    return options ? 0 : kUsageStatus;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread
  const bool colours = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
  const File output = claimOutput();
  if (!output) {
    return kUsageStatus;
  }
  Report report(texts, output.get(), {options->json, colours});
  std::set<std::string> hosts = checkBrowsers(report);
  if (const std::string host = neighbouringHost(); hosts.empty() && !host.empty()) {
    hosts.insert(host);
  }
  for (const std::string& host : hosts) {
    checkHost(report, host);
  }
  checkToken(report);
  if (options->domains) {
    checkDomains(report, {*options->domains, *options->signature, *options->page});
  }
  return report.finish() ? 0 : kProblemsStatus;
}
