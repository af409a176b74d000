#include "signing/SigningFitness.h"

#include <prtime.h>

namespace {
constexpr unsigned int kSigningUsage = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION;
}  // namespace

SigningFitness fitnessForSigning(const CERTCertificate& certificate) {
  if ((certificate.keyUsage & kSigningUsage) != kSigningUsage) {
    return SigningFitness::kWrongKeyUsage;
  }
  const PRTime now = PR_Now();
  PRTime notBefore{};
  PRTime notAfter{};
  const SECCertTimeValidity validity = CERT_CheckCertValidTimes(&certificate, now, PR_FALSE);
  // NSS lets a certificate count as valid one day early, for slow clocks; a signature made then
  // would not verify, so the beginning is compared exactly.
  if (CERT_GetCertTimes(&certificate, &notBefore, &notAfter) == SECSuccess && notBefore > now) {
    return SigningFitness::kNotYetValid;
  }
  return validity == secCertTimeValid ? SigningFitness::kFit : SigningFitness::kExpired;
}
