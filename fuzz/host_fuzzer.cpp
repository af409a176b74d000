// Any bytes on standard input of the whole host, in both modes, and any answers of its token.
//
// The first byte of an input chooses the framing and how far the conversation has come before the
// bytes arrive; the next two are the length of what the token answers, which follows. The rest are
// the bytes. The host's answers must be whole messages, whatever was asked.
#include <nss.h>
#include <pkcs11.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/Pkcs11NativeMessagingHost.h"
#include "json/_internal/Source/MissingMember.h"
#include "tests/support/Require.h"
#include "tests/support/TestCertificate.h"

// The host's own ends the process on purpose, which is no finding. Here the request loop swallows
// the exception and the conversation goes on.
void json_detail::missingMember(std::string_view /*name*/) {
  throw std::out_of_range("missing member");
}

namespace {

/// What the token still answers. Where it ends, zeros follow: success, and nothing there.
std::string_view answers;
bool initialized = false;
/// The certificate whose length was told last, by attribute; empty where there is none.
std::map<CK_ATTRIBUTE_TYPE, std::string> chosen;

/// Copies answers and zeros into `room` bytes.
void take(void* place, std::size_t room) {
  std::memset(place, 0, room);
  answers.remove_prefix(answers.copy(static_cast<char*>(place), room));
}

/// One byte, or what so many bytes say as it exceeds 247.
CK_ULONG number() {
  std::uint8_t first = 0;
  take(&first, 1);
  CK_ULONG value = first;
  if (first > 247) take(&value, first - 247U);
  return value;
}

CK_RV answer() {
  require(initialized, "only an initialised library is asked");
  return number();
}

void give(CK_ATTRIBUTE& attribute) {
  static const std::string kCertificates[]{
      test_support::makeCertificate({}), test_support::makeCertificate({.notAfter = -60}),
      test_support::makeCertificate({.subject = {{"emailAddress", "a@b.test"}}, .extensions = {}})};
  std::string& certificate = chosen[attribute.type];
  if (attribute.pValue == nullptr) {
    const CK_ULONG choice = number();
    certificate = choice < std::size(kCertificates) ? kCertificates[choice] : "";
    attribute.ulValueLen = certificate.empty() ? number() : certificate.size();
    return;
  }
  take(attribute.pValue, certificate.empty() ? attribute.ulValueLen : 0);
  certificate.copy(static_cast<char*>(attribute.pValue), attribute.ulValueLen);
  if (const CK_ULONG lie = number(); lie != 0) attribute.ulValueLen = lie;
}

/// A row of whole messages, each an object.
void requireConversation(std::string_view bytes, bool websocketMode) {
  while (!bytes.empty()) {
    std::size_t length = websocketMode ? bytes.find('\n') : 0;
    if (!websocketMode) {
      bytes.copy(reinterpret_cast<char*>(&length), 4);
      bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 4));
    }
    require(length > 1 && length <= bytes.size() && bytes[0] == '{' && bytes[length - 1] == '}');
    bytes.remove_prefix(length + (websocketMode ? 1 : 0));
  }
}

}  // namespace

extern "C" {
CK_RV C_Initialize(void*) {
  const CK_RV value = number();
  initialized = initialized || value == CKR_OK;
  return value;
}
CK_RV C_Finalize(void*) {
  const CK_RV value = answer();
  initialized = false;
  return value;
}
CK_RV C_GetSlotList(CK_BBOOL, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
  for (CK_ULONG at = 0; slots != nullptr && at < *count; ++at) slots[at] = number();
  *count = number();
  return answer();
}
CK_RV C_OpenSession(CK_SLOT_ID, CK_FLAGS, void*, CK_NOTIFY, CK_SESSION_HANDLE_PTR session) {
  *session = number();
  return answer();
}
CK_RV C_CloseSession(CK_SESSION_HANDLE) { return answer(); }
CK_RV C_Login(CK_SESSION_HANDLE, CK_USER_TYPE, CK_UTF8CHAR_PTR, CK_ULONG) { return answer(); }
CK_RV C_Logout(CK_SESSION_HANDLE) { return answer(); }
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG) { return answer(); }
CK_RV C_FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE_PTR object, CK_ULONG, CK_ULONG_PTR count) {
  *object = number();
  *count = number();
  return answer();
}
CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE) { return answer(); }
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR attributes,
                          CK_ULONG count) {
  for (CK_ATTRIBUTE& attribute : std::span(attributes, count)) give(attribute);
  return answer();
}
CK_RV C_SignInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) { return answer(); }
CK_RV C_Sign(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR signature, CK_ULONG_PTR length) {
  const CK_ULONG own = number();
  take(signature, std::min(own, *length));
  *length = own;
  return answer();
}
}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool started = NSS_NoDB_Init(nullptr) == SECSuccess;
  static const std::string initialize =
      R"({"command":0,"signature":")" + test_support::signDomains("a.test|") +
      R"(","domains":"a.test|","currentDomain":"a.test","caSubjectNames":""})";
  // Files in memory that are written and read again for every input.
  static const int input = memfd_create("input", MFD_CLOEXEC);
  static const int output = memfd_create("output", MFD_CLOEXEC);
  require(started);
  if (size < 3) return 0;
  const bool websocketMode = (data[0] & 1U) != 0;
  const bool framed = (data[0] & 2U) == 0;  // The bytes are lines; else they are taken raw.
  const std::string_view all(reinterpret_cast<const char*>(data), size);
  answers = all.substr(3, data[1] + 256U * data[2]);
  const std::string_view bytes = all.substr(3 + answers.size());
  initialized = false;
  chosen.clear();
  gPines.clear();

  std::string conversation;
  const auto say = [&](std::string_view text) {
    conversation += websocketMode ? std::string(text) + "\n" : test_support::frame(text);
  };
  if ((data[0] & 4U) != 0) say(initialize);
  if ((data[0] & 8U) != 0) gPines["Certificado ZORAL"].pin = "1234";
  if (websocketMode || !framed) {
    conversation += bytes;
  } else {
    std::istringstream lines{std::string(bytes)};
    for (std::string line; std::getline(lines, line);) say(line);
  }
  if (websocketMode) conversation += "\n{\"command\":1}\n";  // Only this ends it.

  for (const int stream : {input, output}) {
    require(ftruncate(stream, 0) == 0 && lseek(stream, 0, SEEK_SET) == 0);
  }
  require(pwrite(input, conversation.data(), conversation.size(), 0) ==
          static_cast<ssize_t>(conversation.size()));
  MessageChannel channel(input, output, nullptr);
  Pkcs11NativeMessagingHost(websocketMode, channel).Execute();
  std::string told(static_cast<std::size_t>(lseek(output, 0, SEEK_CUR)), '\0');
  require(pread(output, told.data(), told.size(), 0) == static_cast<ssize_t>(told.size()));
  requireConversation(told, websocketMode);
  return 0;
}
