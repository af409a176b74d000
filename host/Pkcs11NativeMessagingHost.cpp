#include "host/Pkcs11NativeMessagingHost.h"

namespace {
/// Longer than any small-string buffer, so that the PIN's bytes stand in a heap block, which is
/// wiped when it is released, and never inside the string object.
constexpr std::size_t kPendingPinCapacity = 64;
}  // namespace

Pkcs11NativeMessagingHost::Pkcs11NativeMessagingHost(bool websocketModeChosen,
                                                     MessageChannel& messageChannel)
    : websocketMode(websocketModeChosen), channel(messageChannel) {
  pendingPin.reserve(kPendingPinCapacity);
}

Pkcs11NativeMessagingHost::~Pkcs11NativeMessagingHost() { wipePendingPin(); }
