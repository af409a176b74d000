#include <memory>
#include <string>

#include "host/Pkcs11NativeMessagingHost.h"
#include "host/WipeStack.h"

void Pkcs11NativeMessagingHost::Execute() {
  while (!exitRequested) {
    serveOneRequest();
    wipeStack<kMessageStackDepth>();
  }
}

// Not inlined: everything a request puts on the stack lies below Execute's frame, where wipeStack
// reaches it.
[[gnu::noinline]] void Pkcs11NativeMessagingHost::serveOneRequest() {
  // Whatever goes wrong inside one request, that request gets no answer and the next is served.
  try {
    std::string refusal;
    const std::unique_ptr<JSONNode> request = ReceiveMessage(refusal);
    if (exitRequested) {
      return;
    }
    if (request == nullptr) {
      SendNativeErrorMessage(-1, refusal);
      return;
    }
    dispatch(GetCommandCode(*request), request.get());
  } catch (
      ...) {  // NOLINT(bugprone-empty-catch): the page is told nothing about the host's inside.
  }
}

void Pkcs11NativeMessagingHost::dispatch(int command, JSONNode* request) {
  switch (command) {
    case 0:
      return Initialize(request);
    case 1:
      exitRequested = true;
      return;
    case 2:
      return GetDigitalSignatureCertificates(request);
    case 3:
      return SetPin(request);
    case 4:
      return GetCertificate(request);
    case 5:
      return SignPkcs1(request);
    case 6:
      return ProcessPinChar(request);
    case 7:
      return DeletePinChar(request);
    case 8:
      return GetVersion(request);
    default:
      return;  // Unknown commands are dropped without an answer.
  }
}
