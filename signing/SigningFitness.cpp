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
  PRTime notBefore = 0;
  PRTime notAfter = 0;
  const SECCertTimeValidity validity = CERT_CheckCertValidTimes(&certificate, now, PR_FALSE);
  if (validity == secCertTimeNotValidYet) {
    return SigningFitness::kNotYetValid;
  }
  if (validity != secCertTimeValid ||
      CERT_GetCertTimes(&certificate, &notBefore, &notAfter) != SECSuccess) {
    return SigningFitness::kExpired;
  }
  // NSS lets a certificate count as valid one day early, for slow clocks; a signature made then
  // would not verify, so the beginning is compared exactly.
  return notBefore <= now ? SigningFitness::kFit : SigningFitness::kNotYetValid;
}
