#include "tests/host/Envelopes.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>

std::string indented(std::string_view compact) {
  std::string text;
  bool inString = false;
  for (const char byte : compact) {
    inString = inString != (byte == '"');
    switch (inString ? '"' : byte) {
      case '{':
        text += "{\n\t";
        break;
      case '}':
        text += "\n}";
        break;
      case ',':
        text += ",\n\t";
        break;
      case ':':
        text += " : ";
        break;
      default:
        text += byte;
    }
  }
  return text;
}

double processorSeconds(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text(std::istreambuf_iterator<char>(file), {});
  std::istringstream fields(text.substr(text.rfind(')') + 2));  // Field 3, the state, comes first.
  std::string skipped;
  for (int field = 3; field < 14; ++field) {
    fields >> skipped;
  }
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}
