#include "signing/DigitalSignatureUtil.h"

#include <utility>

std::map<std::string, PinInfoStruct> gPines;

DigitalSignatureUtil::DigitalSignatureUtil(std::string domainsSignature, std::string signedDomains,
                                           std::string pageAddress) {
  LoadDomains(signedDomains);
  currentDomain = extractDomainName(trim(pageAddress));
  domains = std::move(signedDomains);
  signature = std::move(domainsSignature);
}
