#include "doctor/TokenCheck.h"

#include <prtime.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "signing/CertificateDecoding.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/NssHandles.h"
#include "signing/SigningFitness.h"
#include "token/TokenModule.h"

namespace {

/// The text of a PKCS#11 field, which is padded with spaces and has no end of its own.
template <std::size_t Size>
std::string fieldText(const CK_UTF8CHAR (&field)[Size]) {
  std::string text(std::begin(field), std::end(field));
  text.resize(text.find_last_not_of(std::string_view(" \0", 2)) + 1);
  return text;
}

std::string hexadecimal(std::int64_t number) {
  std::array<char, 20> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "0x%" PRIx64, number));
  return text.data();
}

std::string day(PRTime time) {
  PRExplodedTime exploded{};
  PR_ExplodeTime(time, PR_GMTParameters, &exploded);
  std::array<char, 32> text{};
  PR_FormatTimeUSEnglish(text.data(), text.size(), "%Y-%m-%d", &exploded);
  return text.data();
}

/// Smart-card readers are reached through pcscd, whose socket is there even while it sleeps.
void checkReaderService(Report& report) {
  const char* const named = std::getenv("PCSCLITE_CSOCK_NAME");  // NOLINT(concurrency-mt-unsafe)
  const std::string socket = named != nullptr ? named : "/run/pcscd/pcscd.comm";
  const bool running = access(socket.c_str(), F_OK) == 0;
  // Not every token needs it, a token of software or a TPM does not.
  report.add(running ? Verdict::kOk : Verdict::kNote, "service",
             running ? "doctor.service.ok" : "doctor.service.absent", {{"path", socket}});
}

/// The host's own steps on the token, one after the other, with a finding for each.
class TokenExamination : private DigitalSignatureUtilPkcs11 {
 public:
  explicit TokenExamination(Report& target)
      : DigitalSignatureUtilPkcs11("", "", "", ""), report(target) {}

  void run() {
    TokenConnection connection;
    if (!checkReturnValue(C_Initialize(nullptr), "C_Initialize failed")) {
      addFailure("library");
      return;
    }
    connection.library.emplace(nullptr);
    examineModule();
    examineReaders();
    const CK_SLOT_ID slot = getSlot();
    if (slot == kNone) {
      // No token at all has been said by the readers.
      if (lastLowLevelError != 0) {
        addFailure("token");
      }
      return;
    }
    examineToken(slot);
    connection.session = startSession(slot);
    if (connection.session == kNone) {
      addFailure("token");
      return;
    }
    connection.sessionScope.emplace(connection.session);
    examineCertificates(connection.session);
  }

 private:
  void addFailure(std::string_view area) {
    // As the client judges the same answers.
    const bool isCardGone = lastLowLevelError == CKR_DEVICE_REMOVED ||
                            lastLowLevelError == CKR_TOKEN_NOT_PRESENT ||
                            lastLowLevelError == CKR_TOKEN_NOT_RECOGNIZED;
    report.add(isCardGone ? Problem{"error.no-token", "doctor.token.failure"}
                          : Problem{"error.token-failure", "doctor.token.failure"},
               area, {{"step", errorMessage}, {"code", hexadecimal(lastLowLevelError)}});
  }

  void examineModule() {
    CK_INFO info{};
    if (C_GetInfo(&info) == CKR_OK) {
      report.add(Verdict::kOk, "module", "doctor.module.info",
                 {{"maker", fieldText(info.manufacturerID)},
                  {"description", fieldText(info.libraryDescription)}});
    }
  }

  void examineReaders() {
    CK_ULONG count = 0;
    if (C_GetSlotList(CK_FALSE, nullptr, &count) != CKR_OK || count > kMaximumSlots) {
      return;  // the host's own question comes next, and its failure is told
    }
    std::vector<CK_SLOT_ID> slots(count);
    if (count != 0 && C_GetSlotList(CK_FALSE, slots.data(), &count) != CKR_OK) {
      return;
    }
    slots.resize(std::min<std::size_t>(slots.size(), count));
    if (slots.empty()) {
      report.add({"error.no-token", "doctor.reader.none"}, "reader");
    }
    std::size_t withToken = 0;
    for (const CK_SLOT_ID slot : slots) {
      CK_SLOT_INFO info{};
      if (C_GetSlotInfo(slot, &info) != CKR_OK) {
        continue;
      }
      CK_TOKEN_INFO token{};
      // A place for a software token that was never set up is no card to a person.
      const bool hasToken =
          (info.flags & CKF_TOKEN_PRESENT) != 0 &&
          (C_GetTokenInfo(slot, &token) != CKR_OK || (token.flags & CKF_TOKEN_INITIALIZED) != 0);
      withToken += hasToken ? 1 : 0;
      report.add(hasToken ? Verdict::kOk : Verdict::kNote, "reader",
                 hasToken ? "doctor.reader.card" : "doctor.reader.empty",
                 {{"reader", fieldText(info.slotDescription)}});
    }
    if (!slots.empty() && withToken == 0) {
      report.add({"error.no-token", "doctor.token.none"}, "token");
    } else if (withToken > 1) {
      report.add(Verdict::kNote, "token", "doctor.token.several");
    }
  }

  void examineToken(CK_SLOT_ID slot) {
    CK_TOKEN_INFO info{};
    if (C_GetTokenInfo(slot, &info) != CKR_OK) {
      return;
    }
    const std::string label = fieldText(info.label);
    report.add(Verdict::kOk, "token", "doctor.token.used",
               {{"token", label}, {"model", fieldText(info.model)}});
    const auto note = [&](const char* key) {
      report.add(Verdict::kNote, "token", key, {{"token", label}});
    };
    if ((info.flags & CKF_USER_PIN_LOCKED) != 0) {
      report.add({"error.pin-locked", "doctor.token.locked"}, "token", {{"token", label}});
    } else if ((info.flags & CKF_USER_PIN_FINAL_TRY) != 0) {
      note("doctor.token.finalTry");
    } else if ((info.flags & CKF_USER_PIN_COUNT_LOW) != 0) {
      note("doctor.token.fewTries");
    }
    if ((info.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0) {
      note("doctor.token.pinPad");
    }
    if ((info.flags & CKF_USER_PIN_INITIALIZED) == 0) {
      note("doctor.token.noPin");
    }
  }

  void examineCertificates(CK_SESSION_HANDLE session) {
    lastLowLevelError = 0;
    std::size_t listed = 0;
    visitCertificates(
        session, [&](CertificateObject& object) { listed += examineCertificate(object) ? 1 : 0; });
    if (lastLowLevelError != 0) {
      addFailure("certificate");
    }
    if (listed > 0) {
      report.add(Verdict::kOk, "certificate", "doctor.certificate.count",
                 {{"count", std::to_string(listed)}});
    } else if (lastLowLevelError == 0) {
      report.add({"error.no-certificate", "doctor.certificate.none"}, "certificate");
    }
  }

  /// True when the host lists it.
  bool examineCertificate(CertificateObject& object) {
    if (object.der.empty()) {
      report.add(Verdict::kNote, "certificate", "doctor.certificate.unreadable");
      lastLowLevelError = 0;  // said
      return false;
    }
    SECItem der{siBuffer, object.der.data(), static_cast<unsigned int>(object.der.size())};
    const CertificateHandle certificate =
        certificate::CERT_DecodeDERCertificate(der, false, nullptr);
    if (!certificate) {
      report.add(Verdict::kNote, "certificate", "doctor.certificate.malformed");
      return false;
    }
    const NssText commonName(CERT_GetCommonName(&certificate->subject));
    const char* const subjectName = commonName ? commonName.get() : certificate->subjectName;
    const std::string subject = subjectName != nullptr ? subjectName : "?";
    PRTime notBefore = 0;
    PRTime notAfter = 0;
    CERT_GetCertTimes(certificate.get(), &notBefore, &notAfter);
    const std::string from = day(notBefore);
    const std::string until = day(notAfter);
    const char* key = "doctor.certificate.noId";
    if (!object.id.empty()) {
      switch (fitnessForSigning(*certificate)) {
        case SigningFitness::kFit:
          key = "doctor.certificate.listed";
          break;
        case SigningFitness::kWrongKeyUsage:
          key = "doctor.certificate.wrongUsage";
          break;
        case SigningFitness::kNotYetValid:
          key = "doctor.certificate.notYetValid";
          break;
        case SigningFitness::kExpired:
          key = "doctor.certificate.expired";
          break;
      }
    }
    const bool isListed = std::string_view(key) == "doctor.certificate.listed";
    report.add(isListed ? Verdict::kOk : Verdict::kNote, "certificate", key,
               {{"subject", subject}, {"from", from}, {"until", until}});
    return isListed;
  }

  Report& report;
};

}  // namespace

void checkToken(Report& report) {
  const TokenModule& module = tokenModule();
  if (!module.fault.empty()) {
    report.add({"error.no-module", "doctor.module.unusable"}, "module",
               {{"path", module.path}, {"reason", module.fault}});
    return;
  }
  report.add(Verdict::kOk, "module", "doctor.module.ok", {{"path", module.path}});
  checkReaderService(report);
  TokenExamination(report).run();
}
