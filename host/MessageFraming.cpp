#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "host/Pkcs11NativeMessagingHost.h"

namespace {

// Expected sizes of a response's text, reserved once; not limits.
constexpr std::size_t kNativeReserve = 2048;
constexpr std::size_t kWebsocketReserve = 1024;

}  // namespace

std::unique_ptr<JSONNode> Pkcs11NativeMessagingHost::ReceiveMessage(std::string& message) {
  return websocketMode ? ReceiveWebsocketMessage(message) : ReceiveNativeMessage(message);
}

std::unique_ptr<JSONNode> Pkcs11NativeMessagingHost::ReceiveNativeMessage(std::string& message) {
  std::int32_t length = 0;
  channel.read({reinterpret_cast<char*>(&length), sizeof length});
  if (length == 0) {
    exitRequested = true;
    return nullptr;
  }
  if (length >= kNativeLengthLimit) {
    // The payload is intentionally neither read nor skipped: the next length is taken from its
    // first four bytes.
    message = "Message too long";
    return nullptr;
  }
  std::string text;
  if (length < 0) {
    // No bytes belong to a negative length, and no later length can be trusted: the input counts as
    // ended. The empty text below is refused by the parser, so nothing is answered.
    channel.failInput();
  } else {
    // Bytes that do not arrive read as zero, so that a request cut off by the end of input ends
    // where its bytes end and never shows an earlier request's bytes.
    text.resize(static_cast<std::size_t>(length));
    channel.read(text);
    // A zero byte ends the text; what follows it in the frame is ignored.
    text.resize(std::strlen(text.c_str()));
  }
  return std::make_unique<JSONNode>(JSONWorker::parse(std::move(text)));
}

std::unique_ptr<JSONNode> Pkcs11NativeMessagingHost::ReceiveWebsocketMessage(
    std::string& /*message*/) {
  // At the end of input this is intentionally an empty line for ever: the parser refuses it and the
  // loop asks again, so a host behind a relay ends by command 1 or by a signal.
  return std::make_unique<JSONNode>(JSONWorker::parse(channel.readLine()));
}

void Pkcs11NativeMessagingHost::SendMessage(JSONNode node) {
  if (websocketMode) {
    SendWebsocketMessage(std::move(node));
  } else {
    SendNativeMessage(std::move(node));
  }
}

void Pkcs11NativeMessagingHost::SendNativeMessage(JSONNode node) {
  // Indented in native mode, compact over the relay, where a line feed would end the message.
  // Length and text go out with one call.
  std::string message = node.write_formatted(kNativeReserve);
  const auto length = static_cast<std::uint32_t>(message.size());
  message.insert(0, reinterpret_cast<const char*>(&length), sizeof length);
  channel.write(message);
}

void Pkcs11NativeMessagingHost::SendWebsocketMessage(JSONNode node) {
  channel.write(node.write(kWebsocketReserve) + "\n");
}
