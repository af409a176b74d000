#include "signing/DigitalSignatureUtil.h"

#include <utility>

std::map<std::string, PinInfoStruct> gPines;

DigitalSignatureUtil::DigitalSignatureUtil(
    std::string domainsSignature, std::string signedDomains,
    std::string pageAddress)  // NOLINT(performance-unnecessary-value-param): the interface's type
    : signature(std::move(domainsSignature)),
      currentDomain(extractDomainName(trim(pageAddress))),
      domains(std::move(signedDomains)) {
  LoadDomains(domains);
}
