#include "signing/CertificateDecoding.h"

#include <hasht.h>
#include <pk11pub.h>
#include <secasn1.h>

#include "signing/NameText.h"

namespace certificate {

namespace {

/// Key usage of a certificate that does not limit it.
constexpr unsigned int kAllUses = 255;
/// Room for e-mail addresses when the length of the certificate is not known.
constexpr unsigned int kDefaultEmailSpace = 2000;

/// A list of NUL-terminated texts under construction.
struct TextList {
  char* position;
  unsigned int spaceLeft;
};

void appendEmailElements(TextList& list, PLArenaPool* arena, const CERTName* name) {
  for (const SECOidTag tag : {SEC_OID_PKCS9_EMAIL_ADDRESS, SEC_OID_RFC1274_MAIL}) {
    const char* const text = certificate::CERT_GetNameElement(arena, name, tag);
    list.position = appendStringToBuf(list.position, text, &list.spaceLeft);
  }
}

void appendAlternativeNames(TextList& list, PLArenaPool* arena,
                            const CERTCertificate* certificate) {
  HeapItem extension;
  if (CERT_FindCertExtension(certificate, SEC_OID_X509_SUBJECT_ALT_NAME, extension.get()) !=
          SECSuccess ||
      !extension.hasData()) {
    return;
  }
  CERTGeneralName* const head = CERT_DecodeAltNameExtension(arena, extension.get());
  for (CERTGeneralName* current = head; current != nullptr;) {
    if (current->type == certDirectoryName) {
      appendEmailElements(list, arena, &current->name.directoryName);
    } else if (current->type == certRFC822Name) {
      list.position = appendItemToBuf(list.position, &current->name.other, &list.spaceLeft);
    }
    current = CERT_GetNextGeneralName(current);
    if (current == head) {
      break;
    }
  }
}

/// Puts NSS's text of a name in the arena; null where NSS has none. False when memory is short.
bool copyNameText(PLArenaPool* arena, CERTName* name, char*& copy) {
  const NssText text(CERT_NameToAscii(name));
  copy = text ? PORT_ArenaStrdup(arena, text.get()) : nullptr;
  return !text || copy != nullptr;
}

}  // namespace

CertificateHandle CERT_DecodeDERCertificate(const SECItem& der, bool copyDER,
                                            const char* nickname) {
  ArenaHandle arena(PORT_NewArena(kArenaChunkSize));
  if (!arena) {
    return nullptr;
  }
  auto* const certificate =
      static_cast<CERTCertificate*>(PORT_ArenaZAlloc(arena.get(), sizeof(CERTCertificate)));
  if (certificate == nullptr) {
    return nullptr;
  }
  certificate->arena = arena.get();
  if (!copyDER) {
    certificate->derCert = der;
  } else if (SECITEM_CopyItem(arena.get(), &certificate->derCert, &der) != SECSuccess) {
    return nullptr;
  }
  if (SEC_QuickDERDecodeItem(arena.get(), certificate, SEC_ASN1_GET(SEC_SignedCertificateTemplate),
                             &certificate->derCert) != SECSuccess) {
    return nullptr;
  }
  if (nickname != nullptr) {
    certificate->nickname = PORT_ArenaStrdup(arena.get(), nickname);
    if (certificate->nickname == nullptr) {
      return nullptr;
    }
  }
  certificate->emailAddr = cert_GetCertificateEmailAddresses(certificate);
  if (cert_GetKeyID(certificate) != SECSuccess) {
    return nullptr;
  }
  GetKeyUsage(certificate);
  if (!copyNameText(arena.get(), &certificate->subject, certificate->subjectName) ||
      !copyNameText(arena.get(), &certificate->issuer, certificate->issuerName)) {
    return nullptr;
  }
  certificate->referenceCount = 1;
  certificate->arena = arena.release();  // from here the arena goes with the certificate
  return CertificateHandle(certificate);
}

char* cert_GetCertificateEmailAddresses(CERTCertificate* certificate) {
  const ArenaHandle arena(PORT_NewArena(kArenaChunkSize));
  if (!arena) {
    return nullptr;
  }
  const unsigned int size =
      certificate->derCert.len != 0 ? certificate->derCert.len : kDefaultEmailSpace;
  auto* const start = static_cast<char*>(PORT_ArenaZAlloc(arena.get(), std::size_t{size} + 1));
  if (start == nullptr) {
    return nullptr;
  }
  TextList list{start, size};
  appendEmailElements(list, arena.get(), &certificate->subject);
  appendAlternativeNames(list, arena.get(), certificate);
  if (list.position == start) {
    return nullptr;
  }
  const auto used = static_cast<std::size_t>(list.position - start) + 1;  // with the final NUL
  auto* const addresses = static_cast<char*>(PORT_ArenaAlloc(certificate->arena, used));
  if (addresses != nullptr) {
    PORT_Memcpy(addresses, start, used);
  }
  return addresses;
}

char* CERT_GetNameElement(PLArenaPool* arena, const CERTName* name, int wantedTag) {
  for (CERTRDN** rdn = name->rdns; rdn != nullptr && *rdn != nullptr; ++rdn) {
    for (CERTAVA** ava = (*rdn)->avas; ava != nullptr && *ava != nullptr; ++ava) {
      if (CERT_GetAVATag(*ava) == wantedTag) {
        return avaToString(arena, *ava);
      }
    }
  }
  return nullptr;
}

SECStatus cert_GetKeyID(CERTCertificate* certificate) {
  SECItem& keyId = certificate->subjectKeyID;
  keyId.len = 0;
  HeapItem extension;
  if (CERT_FindSubjectKeyIDExtension(certificate, extension.get()) == SECSuccess) {
    // Not tested: a copy that fails leaves the length alone.
    static_cast<void>(SECITEM_CopyItem(certificate->arena, &keyId, extension.get()));
  }
  if (keyId.len == 0) {
    keyId.data = static_cast<unsigned char*>(PORT_ArenaZAlloc(certificate->arena, SHA1_LENGTH));
    if (keyId.data != nullptr &&
        PK11_HashBuf(SEC_OID_SHA1, keyId.data, certificate->derPublicKey.data,
                     static_cast<PRInt32>(certificate->derPublicKey.len)) == SECSuccess) {
      keyId.len = SHA1_LENGTH;
    }
  }
  return keyId.len != 0 ? SECSuccess : SECFailure;
}

SECStatus GetKeyUsage(CERTCertificate* certificate) {
  HeapItem usage;
  const bool present = CERT_FindKeyUsageExtension(certificate, usage.get()) == SECSuccess;
  certificate->keyUsagePresent = present ? PR_TRUE : PR_FALSE;
  certificate->rawKeyUsage = kAllUses;
  if (present) {
    // The first byte alone, whatever the length of the bit string: "decipher only" in the second
    // byte is never seen, on purpose. An empty bit string has no first byte and allows nothing.
    certificate->rawKeyUsage = usage.hasData() ? usage->data[0] : 0;
  }
  certificate->keyUsage = certificate->rawKeyUsage;
  return SECSuccess;
}

}  // namespace certificate
