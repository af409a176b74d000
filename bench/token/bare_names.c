#include "bench/token/bare_names.h"

#include <cert.h>
#include <ctype.h>
#include <hasht.h>
#include <nss.h>
#include <nssb64.h>
#include <pk11pub.h>
#include <prtime.h>
#include <secasn1.h>
#include <secitem.h>
#include <secport.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kArenaChunk = 2048, kAllUses = 255 };

static void require(int success, const char* what) {
  if (!success) {
    fprintf(stderr, "bare_token: %s\n", what);
    exit(EXIT_FAILURE);
  }
}

void startNss(void) {
  require(NSS_Initialize("", "", "", "",
                         NSS_INIT_READONLY | NSS_INIT_NOCERTDB | NSS_INIT_NOMODDB) == SECSuccess,
          "NSS_Initialize");
}

void append(struct Text* text, const void* bytes, size_t size) {
  if (text->room - text->length < size) {
    text->room = 2 * (text->room + size);
    text->bytes = realloc(text->bytes, text->room);
    require(text->bytes != NULL, "realloc");
  }
  memcpy(text->bytes + text->length, bytes, size);
  text->length += size;
}

// Appends the address in lower case with its NUL; the room is that of the whole certificate.
static char* appendAddress(char* end, const SECItem* address) {
  for (unsigned int i = 0; i < address->len; ++i) {
    *end++ = (char)tolower(address->data[i]);
  }
  *end++ = '\0';
  return end;
}

static char* appendNameAddresses(char* end, const CERTName* name) {
  static const SECOidTag kTags[] = {SEC_OID_PKCS9_EMAIL_ADDRESS, SEC_OID_RFC1274_MAIL};
  for (size_t i = 0; i < sizeof kTags / sizeof *kTags; ++i) {
    for (CERTRDN** rdn = name->rdns; rdn != NULL && *rdn != NULL; ++rdn) {
      for (CERTAVA** ava = (*rdn)->avas; ava != NULL && *ava != NULL; ++ava) {
        if (CERT_GetAVATag(*ava) == kTags[i]) {
          SECItem* const value = CERT_DecodeAVAValue(&(*ava)->value);
          require(value != NULL, "CERT_DecodeAVAValue");
          end = appendAddress(end, value);
          SECITEM_FreeItem(value, PR_TRUE);
        }
      }
    }
  }
  return end;
}

static char* addresses(const CERTCertificate* certificate) {
  PLArenaPool* const arena = PORT_NewArena(kArenaChunk);
  char* const start = PORT_ArenaZAlloc(arena, certificate->derCert.len + 1);
  char* end = appendNameAddresses(start, &certificate->subject);
  SECItem extension = {siBuffer, NULL, 0};
  if (CERT_FindCertExtension(certificate, SEC_OID_X509_SUBJECT_ALT_NAME, &extension) ==
      SECSuccess) {
    CERTGeneralName* const head = CERT_DecodeAltNameExtension(arena, &extension);
    CERTGeneralName* name = head;
    do {
      if (name->type == certDirectoryName) {
        end = appendNameAddresses(end, &name->name.directoryName);
      } else if (name->type == certRFC822Name) {
        end = appendAddress(end, &name->name.other);
      }
      name = CERT_GetNextGeneralName(name);
    } while (name != head);
    SECITEM_FreeItem(&extension, PR_FALSE);
  }
  char* copy = NULL;
  if (end != start) {
    *end++ = '\0';
    copy = PORT_ArenaAlloc(certificate->arena, (size_t)(end - start));
    memcpy(copy, start, (size_t)(end - start));
  }
  PORT_FreeArena(arena, PR_FALSE);
  return copy;
}

static void readKeyId(CERTCertificate* certificate) {
  SECItem extension = {siBuffer, NULL, 0};
  SECItem* const keyId = &certificate->subjectKeyID;
  if (CERT_FindSubjectKeyIDExtension(certificate, &extension) == SECSuccess) {
    SECITEM_CopyItem(certificate->arena, keyId, &extension);
    SECITEM_FreeItem(&extension, PR_FALSE);
  } else {
    keyId->data = PORT_ArenaZAlloc(certificate->arena, SHA1_LENGTH);
    keyId->len = SHA1_LENGTH;
    PK11_HashBuf(SEC_OID_SHA1, keyId->data, certificate->derPublicKey.data,
                 (PRInt32)certificate->derPublicKey.len);
  }
}

static void readKeyUsage(CERTCertificate* certificate) {
  SECItem usage = {siBuffer, NULL, 0};
  certificate->keyUsage = kAllUses;
  if (CERT_FindKeyUsageExtension(certificate, &usage) == SECSuccess) {
    certificate->keyUsage = usage.data[0];
    SECITEM_FreeItem(&usage, PR_FALSE);
  }
}

static char* copyName(PLArenaPool* arena, CERTName* name) {
  char* const text = CERT_NameToAscii(name);
  char* const copy = PORT_ArenaStrdup(arena, text);
  PORT_Free(text);
  return copy;
}

static CERTCertificate* decode(const SECItem* der) {
  PLArenaPool* const arena = PORT_NewArena(kArenaChunk);
  CERTCertificate* const certificate = PORT_ArenaZAlloc(arena, sizeof *certificate);
  certificate->arena = arena;
  SECITEM_CopyItem(arena, &certificate->derCert, der);
  require(SEC_QuickDERDecodeItem(arena, certificate, SEC_ASN1_GET(SEC_SignedCertificateTemplate),
                                 &certificate->derCert) == SECSuccess,
          "SEC_QuickDERDecodeItem");
  certificate->emailAddr = addresses(certificate);
  readKeyId(certificate);
  readKeyUsage(certificate);
  certificate->subjectName = copyName(arena, &certificate->subject);
  certificate->issuerName = copyName(arena, &certificate->issuer);
  certificate->referenceCount = 1;
  return certificate;
}

static int canSignNow(const CERTCertificate* certificate) {
  const unsigned int wanted = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION;
  const PRTime now = PR_Now();
  PRTime notBefore = 0;
  PRTime notAfter = 0;
  return (certificate->keyUsage & wanted) == wanted &&
         CERT_CheckCertValidTimes(certificate, now, PR_FALSE) == secCertTimeValid &&
         CERT_GetCertTimes(certificate, &notBefore, &notAfter) == SECSuccess && notBefore <= now;
}

void appendRecord(struct Text* listing, unsigned char* der, size_t derSize, unsigned char* id,
                  size_t idSize) {
  const SECItem derItem = {siBuffer, der, (unsigned int)derSize};
  SECItem idItem = {siBuffer, id, (unsigned int)idSize};
  CERTCertificate* const certificate = decode(&derItem);
  if (canSignNow(certificate)) {
    char* const idText = NSSBase64_EncodeItem(NULL, NULL, 0, &idItem);
    if (listing->length > 0) {
      append(listing, "|", 1);
    }
    append(listing, certificate->issuerName, strlen(certificate->issuerName));
    append(listing, "|", 1);
    append(listing, certificate->subjectName, strlen(certificate->subjectName));
    append(listing, "|", 1);
    append(listing, idText, strlen(idText));
    PORT_Free(idText);
  }
  CERT_DestroyCertificate(certificate);
}
