#include "signing/DomainListKey.h"

#include <pkcs11t.h>
#include <secasn1.h>
#include <secerr.h>

#include "DomainsPublicKey.h"
#include "signing/DigitalSignatureUtil.h"

const char* DigitalSignatureUtil::GetQuorinPublicKey() {
  static const char* const key = kDomainsPublicKey;
  return key;
}

void miprepare_rsa_pub_key_for_asn1(SECKEYPublicKey& key) {
  key.u.rsa.modulus.type = siUnsignedInteger;
  key.u.rsa.publicExponent.type = siUnsignedInteger;
}

PublicKeyHandle miSECKEY_DecodeDERPublicKey(const SECItem& der) {
  ArenaHandle arena(PORT_NewArena(kArenaChunkSize));
  if (!arena) {
    PORT_SetError(SEC_ERROR_NO_MEMORY);
    return nullptr;
  }
  auto* const memory = PORT_ArenaZAlloc(arena.get(), sizeof(SECKEYPublicKey));
  if (memory == nullptr) {
    PORT_SetError(SEC_ERROR_NO_MEMORY);
    return nullptr;
  }
  PublicKeyHandle key(static_cast<SECKEYPublicKey*>(memory));
  key->arena = arena.release();  // from here the arena goes with the key
  key->pkcs11Slot = nullptr;
  key->pkcs11ID = CK_INVALID_HANDLE;
  miprepare_rsa_pub_key_for_asn1(*key);

  SECItem copy{};
  // The template's offsets are those of the whole key, not of its RSA part.
  if (SECITEM_CopyItem(key->arena, &copy, &der) != SECSuccess ||
      SEC_QuickDERDecodeItem(key->arena, key.get(), SEC_ASN1_GET(SECKEY_RSAPublicKeyTemplate),
                             &copy) != SECSuccess) {
    return nullptr;
  }
  return key;
}
