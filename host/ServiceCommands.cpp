#include "host/Pkcs11NativeMessagingHost.h"
#include "signing/DigitalSignatureUtilPkcs11.h"

void Pkcs11NativeMessagingHost::Initialize(JSONNode* request) {
  // Nothing is checked here: the service verifies the signed domain list at each token command.
  signature = (*request)["signature"].as_string();
  domains = (*request)["domains"].as_string();
  currentDomain = (*request)["currentDomain"].as_string();
  caSubjectNames = (*request)["caSubjectNames"].as_string();
  digitalSignatureUtil.reset();
  SendNativeAknowlegeMessage(Command::kInitialize, "InitializeComponent OK");
  componentInitialized = true;
}

DigitalSignatureUtil* Pkcs11NativeMessagingHost::GetDigitalSignatureUtil() {
  if (digitalSignatureUtil == nullptr) {
    digitalSignatureUtil =
        std::make_unique<DigitalSignatureUtilPkcs11>("", signature, domains, currentDomain);
  }
  return digitalSignatureUtil.get();
}

void Pkcs11NativeMessagingHost::GetVersion(JSONNode* /*request*/) {
  SendResponse(Command::kGetVersion, nullptr, JSONNode("version", kProtocolVersion));
}
