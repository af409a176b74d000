#include <utility>

#include "host/Pkcs11NativeMessagingHost.h"

namespace {

constexpr int kNoCommand = -1;

/// The low 32 bits of the value truncated toward zero. A number that no 64-bit integer can hold has
/// no low bits to speak of and selects no command.
int commandNumber(const JSONNode& node) {
  const double value = node.as_float();
  constexpr double kLimit = 0x1p63;
  if (!(value >= -kLimit && value < kLimit)) {
    return kNoCommand;
  }
  return static_cast<int>(static_cast<long long>(value));
}

}  // namespace

int Pkcs11NativeMessagingHost::GetCommandCode(JSONNode request) {
  for (const JSONNode& child : std::as_const(request)) {
    const bool isContainer = child.type() == JSON_ARRAY || child.type() == JSON_NODE;
    if (!isContainer && child.name() == "command") {
      return commandNumber(child);
    }
  }
  return kNoCommand;
}

void Pkcs11NativeMessagingHost::SendResponse(int command, DigitalSignatureUtil* util,
                                             JSONNode result) {
  // Without a service the error state of the last token command is intentionally reported again.
  if (util != nullptr) {
    lastError = util->LastError();
    lastLowLevelError = util->LastLowLevelError();
    errorMessage = util->LastErrorMessage();
  }
  JSONNode response(JSON_NODE);
  response.push_back(JSONNode("command", command));
  response.push_back(JSONNode("error", lastError != 0));
  response.push_back(JSONNode("errorMessage", errorMessage));
  response.push_back(JSONNode("lastError", static_cast<int>(lastError)));
  response.push_back(JSONNode("lastLowLevelError", static_cast<long>(lastLowLevelError)));
  response.push_back(JSONNode("pinModuleName", pinModuleName));
  response.push_back(JSONNode("missingPin", missingPin));
  response.push_back(JSONNode("invalidPin", invalidPin));
  response.push_back(JSONNode("pinLength", static_cast<unsigned long>(pendingPin.size())));
  if (util != nullptr) {
    response.push_back(
        JSONNode("pinRetryCount", static_cast<int>(util->InvalidPinRetries(pinModuleName))));
  }
  response.push_back(std::move(result));
  SendMessage(std::move(response));
}

void Pkcs11NativeMessagingHost::SendNativeAknowlegeMessage(int command,
                                                           const std::string& message) {
  sendSmallEnvelope(command, false, message);
}

void Pkcs11NativeMessagingHost::SendNativeErrorMessage(int command, const std::string& message) {
  sendSmallEnvelope(command, true, message);
}

void Pkcs11NativeMessagingHost::sendSmallEnvelope(int command, bool error,
                                                  const std::string& message) {
  JSONNode envelope(JSON_NODE);
  envelope.push_back(JSONNode("command", command));
  envelope.push_back(JSONNode("error", error));
  envelope.push_back(JSONNode("message", message));
  SendMessage(std::move(envelope));
}
