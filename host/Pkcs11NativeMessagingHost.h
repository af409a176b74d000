#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/MessageChannel.h"
#include "host/Protocol.h"
#include "json/json.h"
#include "signing/DigitalSignatureUtil.h"

/// The conversation with one page: reads requests, serves them with the signing service and writes
/// the answers. docs/protocol.md is the protocol as the other side sees it.
///
/// One thread, one request at a time; nothing is locked.
class Pkcs11NativeMessagingHost {
 public:
  /// @param websocketMode true: one JSON text per line; false: browser native messaging, a 32-bit
  ///   length before every text.
  /// @param channel where the bytes come from and go to; outlives the host.
  Pkcs11NativeMessagingHost(bool websocketMode, MessageChannel& channel);
  ~Pkcs11NativeMessagingHost();

  Pkcs11NativeMessagingHost(const Pkcs11NativeMessagingHost&) = delete;
  Pkcs11NativeMessagingHost& operator=(const Pkcs11NativeMessagingHost&) = delete;
  Pkcs11NativeMessagingHost(Pkcs11NativeMessagingHost&&) = delete;
  Pkcs11NativeMessagingHost& operator=(Pkcs11NativeMessagingHost&&) = delete;

  /// Serves requests until command 1 or, in native mode, a zero length or the end of input.
  void Execute();

 private:
  // RequestLoop.cpp
  void serveOneRequest();
  void dispatch(Command command, JSONNode* request);

  // MessageFraming.cpp
  std::unique_ptr<JSONNode> ReceiveMessage(std::string& message);
  std::unique_ptr<JSONNode> ReceiveNativeMessage(std::string& message);
  std::unique_ptr<JSONNode> ReceiveWebsocketMessage(std::string& message);
  void SendMessage(JSONNode node);
  void SendNativeMessage(JSONNode node);
  void SendWebsocketMessage(JSONNode node);

  // Envelopes.cpp
  static Command GetCommandCode(JSONNode request);
  void SendResponse(Command command, DigitalSignatureUtil* util, JSONNode result);
  void SendNativeAknowlegeMessage(Command command, const std::string& message);
  void SendNativeErrorMessage(Command command, const std::string& message);
  void sendSmallEnvelope(Command command, bool error, const std::string& message);
  [[nodiscard]] bool isTooLong(const JSONNode& listing) const;

  // ServiceCommands.cpp
  void Initialize(JSONNode* request);
  void GetVersion(JSONNode* request);
  DigitalSignatureUtil* GetDigitalSignatureUtil();

  // PinCommands.cpp
  void SetPin(JSONNode* request);
  void ProcessPinChar(JSONNode* request);
  void DeletePinChar(JSONNode* request);
  void LoadPin(DigitalSignatureUtil& util);
  void SetPinModuleName(DigitalSignatureUtil& util);
  void wipePendingPin();

  // CertificateCommands.cpp
  void GetDigitalSignatureCertificates(JSONNode* request);
  void GetCertificate(JSONNode* request);
  void SignPkcs1(JSONNode* request);
  bool refuseBeforeInitialize();
  template <typename Operation>
  void serveWithToken(Command command, const char* resultName, Operation operation);

  bool exitRequested = false;
  bool websocketMode;
  bool componentInitialized = false;
  /// PIN module that needs a PIN, as the last token command found it; "" when none does.
  std::string pinModuleName;
  /// PIN typed by the page and not yet handed to the registry; always on the heap (see
  /// constructor).
  std::string pendingPin;
  // Error state of the last token command, repeated by the commands that do not reach the token.
  std::int32_t lastError = 0;
  std::int64_t lastLowLevelError = 0;
  std::string errorMessage;
  bool missingPin = false;
  bool invalidPin = false;
  /// The service for the inputs below; null until a token command needs it.
  std::unique_ptr<DigitalSignatureUtil> digitalSignatureUtil;
  // The inputs of the last Initialize request, as received.
  std::string signature;
  std::string domains;
  std::string currentDomain;
  std::string caSubjectNames;

  MessageChannel& channel;
};
