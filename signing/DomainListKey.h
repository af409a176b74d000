#pragma once

#include "signing/NssHandles.h"

/// Decodes a DER `RSAPublicKey` (PKCS#1) into a key that owns its own arena and does not point into
/// the caller's bytes; null, with the NSPR error set, on failure. The key type is left for the
/// caller to set.
PublicKeyHandle miSECKEY_DecodeDERPublicKey(const SECItem& der);

/// Marks modulus and exponent as unsigned integers, so that the decoder strips leading zero bytes.
void miprepare_rsa_pub_key_for_asn1(SECKEYPublicKey& key);
