// The host's own main, which at the end of the conversation clears the PIN registry and waits, so
// that its memory can be searched from outside.
#include <unistd.h>

#include "host/Pkcs11NativeMessagingHost.h"
#include "host/ProcessProtection.h"
#include "signing/DigitalSignatureUtilPkcs11.h"

int main() {
  protectProcess();
  {
    Pkcs11NativeMessagingHost host(false, claimMessageChannel());
    host.Execute();
  }
  DigitalSignatureUtilPkcs11("", "", "", "").ClearPin();
  pause();
  return 0;
}
