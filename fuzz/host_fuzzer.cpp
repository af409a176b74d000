// Any bytes on standard input of the whole host, in both modes, with the fake token behind it.
//
// The first byte of an input chooses the framing, how far the conversation has come before the
// bytes arrive, and the token. Answers must be whole messages, whatever was asked.
#include <nss.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "host/Pkcs11NativeMessagingHost.h"
#include "json/_internal/Source/MissingMember.h"
#include "tests/fake_token/FakeToken.h"
#include "tests/support/TestCertificate.h"

// The host's own ends the process on purpose, which is no finding. Here the request loop swallows
// the exception and the conversation goes on.
void json_detail::missingMember(std::string_view /*name*/) {
  throw std::out_of_range("missing member");
}

namespace {

/// A file in memory that is written and read again for every input.
class Stream {
 public:
  void fill(std::string_view bytes) const {
    clear();
    require(pwrite(descriptor, bytes.data(), bytes.size(), 0) ==
            static_cast<ssize_t>(bytes.size()));
  }
  std::string text() const {
    std::string bytes(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_CUR)), '\0');
    require(pread(descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return bytes;
  }
  void clear() const { require(ftruncate(descriptor, 0) == 0 && lseek(descriptor, 0, 0) == 0); }

  const int descriptor = memfd_create("stream", MFD_CLOEXEC);
};

struct World {
  World() {
    // Kept running, so that the services that come and go need not start it.
    require(NSS_NoDB_Init(nullptr) == SECSuccess);
    const std::string domains = "a.test|";
    initialize = R"({"command":0,"signature":")" +
                 test_support::signSha1(DOMAINS_PRIVATE_KEY, domains) + R"(","domains":")" +
                 domains + R"(","currentDomain":"a.test","caSubjectNames":""})";
    const std::string good = "certificate a1 hex " +
                             test_support::hex(test_support::makeCertificate({})) +
                             "\nkey a1\nsignature 16\n";
    for (const char* misbehaviour :
         {"", "fail C_Login 1 CKR_PIN_INCORRECT\n", "fail C_Sign 1 CKR_DEVICE_ERROR\n",
          "slots none\n", "lie length CKA_VALUE read ones\n", "lie signature * 5000\n",
          "fail C_FindObjects 2 CKR_HOST_MEMORY\n", "fail C_Initialize 1 CKR_GENERAL_ERROR\n"}) {
      tokens.push_back(TokenScript::parse(good + misbehaviour));
    }
  }

  std::string initialize;
  std::vector<TokenScript> tokens;
  Stream input;
  Stream output;
};

std::string frame(std::string_view text) {
  const auto length = static_cast<std::uint32_t>(text.size());
  return std::string(reinterpret_cast<const char*>(&length), sizeof length).append(text);
}

/// True for a row of whole messages, each an object.
bool isConversation(std::string_view bytes, bool websocketMode) {
  while (!bytes.empty()) {
    std::uint32_t length = 0;
    if (websocketMode) {
      length = static_cast<std::uint32_t>(bytes.find('\n'));
    } else if (bytes.size() >= sizeof length) {
      std::memcpy(&length, bytes.data(), sizeof length);
      bytes.remove_prefix(sizeof length);
    }
    if (length < 2 || length > bytes.size() || bytes[0] != '{' || bytes[length - 1] != '}') {
      return false;
    }
    bytes.remove_prefix(length + (websocketMode ? 1 : 0));
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const World world;
  if (size == 0) return 0;
  const unsigned choice = *data;
  const bool websocketMode = (choice & 1U) != 0;
  const bool framed = (choice & 2U) == 0;  // The bytes are lines; else they are taken raw.
  FakeToken::instance().reset();
  FakeToken::instance().current = world.tokens[(choice >> 2U) & 7U];
  gPines.clear();

  std::string conversation;
  const auto say = [&](std::string_view text) {
    conversation += websocketMode ? std::string(text) + "\n" : frame(text);
  };
  if ((choice & 32U) != 0) say(world.initialize);
  if ((choice & 64U) != 0) {  // A PIN that the registry gets with the next request for the token.
    say(R"({"command":5,"certId":"oQ==","digest":"AAECAwQFBgcICQoLDA0ODw=="})");
    say(R"({"command":3,"pin":"1234"})");
  }
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (websocketMode || !framed) {
    conversation += bytes;
  } else {
    std::istringstream lines{std::string(bytes)};
    for (std::string line; std::getline(lines, line);) say(line);
  }
  if (websocketMode) conversation += "\n{\"command\":1}\n";  // Only this ends it.

  world.input.fill(conversation);
  world.output.clear();
  MessageChannel channel(world.input.descriptor, world.output.descriptor, nullptr);
  Pkcs11NativeMessagingHost(websocketMode, channel).Execute();
  require(isConversation(world.output.text(), websocketMode));
  return 0;
}
