#include <algorithm>

#include "host/Pkcs11NativeMessagingHost.h"

void Pkcs11NativeMessagingHost::wipePendingPin() {
  std::fill(pendingPin.begin(), pendingPin.end(), 'X');
  pendingPin.clear();
}

void Pkcs11NativeMessagingHost::SetPin(JSONNode* request) {
  wipePendingPin();
  // Copied, not moved in: the text keeps its place in pendingPin's own heap block.
  const std::string pin = (*request)["pin"].as_string();
  pendingPin.append(pin);
  SendResponse(Command::kSetPin, nullptr, JSONNode("ok", true));
}

void Pkcs11NativeMessagingHost::ProcessPinChar(JSONNode* request) {
  // Only the first byte counts. An empty text intentionally appends its terminating zero byte.
  const std::string character = (*request)["pinChar"].as_string();
  pendingPin.push_back(*character.c_str());
  SendResponse(Command::kPinChar, nullptr, JSONNode("ok", true));
}

void Pkcs11NativeMessagingHost::DeletePinChar(JSONNode* /*request*/) {
  if (!pendingPin.empty()) {
    pendingPin.back() = 'X';
    pendingPin.pop_back();
  }
  SendResponse(Command::kDeletePinChar, nullptr, JSONNode("ok", true));
}

void Pkcs11NativeMessagingHost::LoadPin(DigitalSignatureUtil& util) {
  if (pinModuleName.empty() || pendingPin.empty()) {
    return;
  }
  util.SetPin(pinModuleName, pendingPin);
  wipePendingPin();
}

void Pkcs11NativeMessagingHost::SetPinModuleName(DigitalSignatureUtil& util) {
  invalidPin = util.InvalidPin();
  missingPin = !invalidPin && util.MissingPin();
  if (invalidPin) {
    pinModuleName = util.InvalidPines().front();
  } else if (missingPin) {
    pinModuleName = util.MissingPines().front();
  } else {
    pinModuleName.clear();
  }
}
