#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

/// Writes one measurement as a line of JSON to standard output; bench/report.py reads them. One
/// (group, name, subject, metric) is recorded once a repetition.
void record(std::string_view group, std::string_view name, std::string_view subject,
            std::string_view metric, double value);

/// The value below which `fraction` (0 to 1) of the samples lie.
inline double quantile(std::vector<double> samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  return samples[static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1))];
}

/// True when the last argument asks for a short run.
inline bool quickRun(int argc, char** argv) {
  return std::string_view(argv[argc - 1]) == "--quick";
}
