#include <utility>

#include "host/Pkcs11NativeMessagingHost.h"
#include "signing/ServiceError.h"

namespace {

/// The low 32 bits of the value truncated toward zero. A number that no 64-bit integer can hold has
/// no low bits to speak of and selects no command.
Command commandNumber(const JSONNode& node) {
  const double value = node.as_float();
  constexpr double kLimit = 0x1p63;
  if (!(value >= -kLimit && value < kLimit)) {
    return Command::kNone;
  }
  return static_cast<Command>(static_cast<std::int32_t>(static_cast<long long>(value)));
}

}  // namespace

Command Pkcs11NativeMessagingHost::GetCommandCode(JSONNode request) {
  for (const JSONNode& child : std::as_const(request)) {
    const bool isContainer = child.type() == JSON_ARRAY || child.type() == JSON_NODE;
    if (!isContainer && child.name() == "command") {
      return commandNumber(child);
    }
  }
  return Command::kNone;
}

/// True for a listing that a browser would end the conversation for.
bool Pkcs11NativeMessagingHost::isTooLong(const JSONNode& listing) const {
  constexpr std::size_t kLongestEscape = 6;
  constexpr std::size_t kOtherMembers = 4096;  // They take less than a quarter of it.
  constexpr std::size_t kLimit = kNativeAnswerLimit - kOtherMembers;
  if (websocketMode || listing.as_string().size() <= kLimit / kLongestEscape) {
    return false;
  }
  JSONNode alone(JSON_NODE);
  alone.push_back(listing);
  return alone.write().size() > kLimit;
}

void Pkcs11NativeMessagingHost::SendResponse(Command command, DigitalSignatureUtil* util,
                                             JSONNode result) {
  // Without a service the error state of the last token command is intentionally reported again.
  if (util != nullptr) {
    lastError = util->LastError();
    lastLowLevelError = util->LastLowLevelError();
    errorMessage = util->LastErrorMessage();
  }
  if (command == Command::kListCertificates && isTooLong(result)) {
    lastError = service_error::kTokenFailure;
    errorMessage = "listing too long";
    result = JSONNode(result.name(), "");
  }
  JSONNode response(JSON_NODE);
  response.push_back(JSONNode("command", static_cast<int>(command)));
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

void Pkcs11NativeMessagingHost::SendNativeAknowlegeMessage(Command command,
                                                           const std::string& message) {
  sendSmallEnvelope(command, false, message);
}

void Pkcs11NativeMessagingHost::SendNativeErrorMessage(Command command,
                                                       const std::string& message) {
  sendSmallEnvelope(command, true, message);
}

void Pkcs11NativeMessagingHost::sendSmallEnvelope(Command command, bool error,
                                                  const std::string& message) {
  JSONNode envelope(JSON_NODE);
  envelope.push_back(JSONNode("command", static_cast<int>(command)));
  envelope.push_back(JSONNode("error", error));
  envelope.push_back(JSONNode("message", message));
  SendMessage(std::move(envelope));
}
