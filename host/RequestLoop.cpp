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
      SendNativeErrorMessage(Command::kNone, refusal);
      return;
    }
    dispatch(GetCommandCode(*request), request.get());
  } catch (...) {  // NOLINT(bugprone-empty-catch)
    // The page is told nothing about the host's inside.
  }
}

void Pkcs11NativeMessagingHost::dispatch(Command command, JSONNode* request) {
  switch (command) {
    case Command::kInitialize:
      return Initialize(request);
    case Command::kExit:
      exitRequested = true;
      return;
    case Command::kListCertificates:
      return GetDigitalSignatureCertificates(request);
    case Command::kSetPin:
      return SetPin(request);
    case Command::kGetCertificate:
      return GetCertificate(request);
    case Command::kSignPkcs1:
      return SignPkcs1(request);
    case Command::kPinChar:
      return ProcessPinChar(request);
    case Command::kDeletePinChar:
      return DeletePinChar(request);
    case Command::kGetVersion:
      return GetVersion(request);
    case Command::kNone:
      break;
  }
  // Unknown commands are dropped without an answer.
}
