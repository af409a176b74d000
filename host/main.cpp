#include <string_view>

#include "host/Pkcs11NativeMessagingHost.h"
#include "host/ProcessProtection.h"

/// The browser starts native mode with arguments of its own (the extension's origin, or the
/// manifest's path and the extension's id), so only the exact word "ws" selects the relay's
/// framing.
int main(int argc, char** argv) {
  protectProcess();
  const bool websocketMode = argc > 1 && std::string_view(argv[1]) == "ws";
  Pkcs11NativeMessagingHost host(websocketMode, claimMessageChannel());
  host.Execute();
  return 0;
}
