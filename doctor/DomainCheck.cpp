#include "doctor/DomainCheck.h"

#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/ServiceError.h"

namespace {

class DomainExamination : private DigitalSignatureUtilPkcs11 {
 public:
  explicit DomainExamination(const DomainQuestion& question)
      : DigitalSignatureUtilPkcs11("", question.signature, question.domains, question.page) {}

  void run(Report& report) {
    if (IsAuthorized()) {
      report.add(Verdict::kOk, "domains", "doctor.domains.covered",
                 {{"host", currentDomain}, {"entry", *coveringEntry()}});
    } else if (lastError == service_error::kDomainNotAuthorized) {
      report.add({"error.domain-not-authorised", "doctor.domains.notCovered"}, "domains",
                 {{"host", currentDomain}, {"entries", entries()}});
      // The last entry is taken as it stands; the others are trimmed and lowered.
      if (!domainList.empty() && trim(domainList.back()) != domainList.back()) {
        report.add(Verdict::kNote, "domains", "doctor.domains.lastEntry",
                   {{"entry", domainList.back()}});
      }
    } else {
      const bool isKeyBad = lastError == service_error::kUndecodableKey;
      report.add(isKeyBad ? Problem{"error.bad-key", "doctor.domains.badSignature"}
                          : Problem{"error.domain-list-rejected", "doctor.domains.badSignature"},
                 "domains", {{"reason", errorMessage}});
    }
  }

 private:
  [[nodiscard]] std::string entries() const {
    std::string joined;
    for (const std::string& entry : domainList) {
      joined += (joined.empty() ? "" : ", ") + entry;
    }
    return joined;
  }
};

}  // namespace

void checkDomains(Report& report, const DomainQuestion& question) {
  DomainExamination(question).run(report);
}
