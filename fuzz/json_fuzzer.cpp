// Any bytes as a JSON text: parse, look up, convert, change, write both forms.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"
#include "tests/support/Require.h"

namespace {

constexpr std::size_t kSearched = 32;  // values whose children are looked up one by one

/// Reads every value below a root, without recursion; returns how many there are.
std::size_t readAll(const JSONNode& root) {
  std::size_t count = 0;
  std::vector<const JSONNode*> open{&root};
  while (!open.empty()) {
    const JSONNode& node = *open.back();
    open.pop_back();
    ++count;
    static_cast<void>(node.as_string());
    static_cast<void>(node.as_int());
    static_cast<void>(static_cast<unsigned long long>(node));
    require(node.as_bool() || node.empty(), "what has children is true");
    for (const JSONNode& child : node) {
      require(count > kSearched || node.find(child.name()) != node.end(), "a name is found");
      open.push_back(&child);
    }
  }
  return count;
}

void checkRoundTrips(std::string_view text, const JSONNode& untouched) {
  // Comments are dropped, and 0x01 stands for a hidden quote: such texts need not come back.
  if (text.find_first_of("#/\x01") != std::string_view::npos) {
    return;
  }
  const std::string compact = untouched.write();
  require(JSONWorker::parse(compact).write() == compact, "compact text is a fixed point");
  const auto source = JSONWorker::RemoveWhiteSpace(compact, true);
  // Names are written back raw, so an escape in one may change what is read.
  if (text.find('\\') == std::string_view::npos && JSONValidator::isValidRoot(source.view())) {
    const JSONNode read = untouched.duplicate();
    static_cast<void>(read.write_formatted());
    readAll(read);
    require(read.write() == compact, "reading changes nothing in well-formed text");
    require(JSONWorker::parse(read.write_formatted()) == read, "the formatted form reads equal");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    JSONNode root = JSONWorker::parse(text);
    // With a space in front it is split without an index, which must change nothing.
    require(JSONWorker::parse(' ' + std::string(text)).write_formatted() ==
            root.duplicate().write_formatted());
    checkRoundTrips(text, root);
    JSONNode copy = root;
    const std::size_t count = readAll(root);
    const JSONNode duplicate = root.duplicate();
    require(readAll(duplicate) == count && duplicate == copy, "a copy is equal");
    static_cast<void>(root.write_formatted(2048));
    copy.push_back(JSONNode(text.substr(0, size / 2), std::string(text)));
    require(readAll(root) == count, "a changed copy leaves the other alone");
    if (const auto last = copy.rbegin(); last != copy.rend()) {
      require(last->as_string() == text, "a string comes back as it was set");
      JSONNode array(JSON_ARRAY);
      array.push_back(*last);
      require(JSONWorker::parse(array.write())[0U].as_string() == text, "also through its text");
      copy.merge(root);
      copy.erase(copy.begin());
    }
    copy.cast(JSON_STRING);
  } catch (const std::invalid_argument&) {
    static_cast<void>(JSONValidator::isValidRoot(text));
  }
  return 0;
}
