#pragma once

#include <cert.h>

/// Whether a certificate can sign now, and what speaks against it where it cannot.
enum class SigningFitness {
  kFit,
  /// The key usage (RFC 5280, 4.2.1.3) lacks digital signature or non-repudiation.
  kWrongKeyUsage,
  kNotYetValid,
  /// Its last day has passed, or its times cannot be read.
  kExpired,
};

/// Judges a certificate as `certificate::CERT_DecodeDERCertificate` returns it, at this moment.
/// Leaves an NSPR error where NSS finds it out of its time.
SigningFitness fitnessForSigning(const CERTCertificate& certificate);
