#pragma once

#include <cstdint>

/// Error codes of the signing service, as they travel to the page in "lastError". The numbers 2, 4,
/// 6 and 7 belong to older hosts and are never set.
namespace service_error {

inline constexpr std::int32_t kNone = 0;
/// NSS could not be started, or an operation was called without it.
inline constexpr std::int32_t kNotInitialized = 1;
/// A base64 text does not decode, or a digest has a length that names no hash.
inline constexpr std::int32_t kUndecodableInput = 3;
/// The token refused the PIN, or the PIN is already known to be wrong.
inline constexpr std::int32_t kInvalidPin = 5;
/// The compiled-in key is not an RSA public key.
inline constexpr std::int32_t kUndecodableKey = 8;
/// The page's domain is not in the signed list.
inline constexpr std::int32_t kDomainNotAuthorized = 9;
/// The signature of the domain list does not decode or does not verify.
inline constexpr std::int32_t kInvalidDomainsSignature = 10;
/// A PIN module has no PIN.
inline constexpr std::int32_t kMissingPin = 11;
/// Any other failure of the token, or no token at all.
inline constexpr std::int32_t kTokenFailure = 12;

}  // namespace service_error
