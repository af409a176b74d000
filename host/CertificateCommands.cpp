#include "host/Pkcs11NativeMessagingHost.h"
#include "host/WipeStack.h"

/// Answers a token command that comes before any Initialize; true when it did.
bool Pkcs11NativeMessagingHost::refuseBeforeInitialize() {
  if (componentInitialized) {
    return false;
  }
  // Command 2 is intentionally named whichever of the three was asked for.
  SendNativeErrorMessage(Command::kListCertificates, "Not initialized");
  return true;
}

/// Runs one operation of the signing service, a callable that takes the service and returns text,
/// and answers with its result and error state.
template <typename Operation>
void Pkcs11NativeMessagingHost::serveWithToken(Command command, const char* resultName,
                                               Operation operation) {
  DigitalSignatureUtil* util = GetDigitalSignatureUtil();
  LoadPin(*util);
  channel.beforeLongWait();
  const std::string result = operation(*util);
  // Here, and not after every request: this costs as much as serving a request without a token.
  wipeStack<kTokenStackDepth>();
  SetPinModuleName(*util);
  SendResponse(command, util, JSONNode(resultName, result));
}

void Pkcs11NativeMessagingHost::GetDigitalSignatureCertificates(JSONNode* /*request*/) {
  if (refuseBeforeInitialize()) {
    return;
  }
  serveWithToken(Command::kListCertificates, "certificates", [this](DigitalSignatureUtil& util) {
    return util.ListCertificates(caSubjectNames);
  });
}

void Pkcs11NativeMessagingHost::GetCertificate(JSONNode* request) {
  if (refuseBeforeInitialize()) {
    return;
  }
  const std::string certId = (*request)["certId"].as_string();
  serveWithToken(Command::kGetCertificate, "certificate", [&certId](DigitalSignatureUtil& util) {
    return util.GetCertificateBase64(certId);
  });
}

void Pkcs11NativeMessagingHost::SignPkcs1(JSONNode* request) {
  if (refuseBeforeInitialize()) {
    return;
  }
  const std::string certId = (*request)["certId"].as_string();
  const std::string digest = (*request)["digest"].as_string();
  serveWithToken(Command::kSignPkcs1, "pkcs1", [&certId, &digest](DigitalSignatureUtil& util) {
    return util.SignPkcs1Base64(certId, digest);
  });
}
