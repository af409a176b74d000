#include "bench/driver/Records.h"

#include <iostream>

void record(std::string_view group, std::string_view name, std::string_view subject,
            std::string_view metric, double value) {
  std::cout << R"({"group": ")" << group << R"(", "name": ")" << name << R"(", "subject": ")"
            << subject << R"(", "metric": ")" << metric << R"(", "value": )" << std::fixed << value
            << "}" << std::endl;  // a line at a time, so that a run that stops leaves whole lines
}
