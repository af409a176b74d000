#pragma once

#include <cert.h>
#include <secoidt.h>

#include "signing/NssHandles.h"

/// Decoding of certificates without a certificate database, into NSS's own record.
///
/// The routines carry NSS's names for what they replace; calls are written with the namespace, so
/// that NSS's function of the same name is never the one chosen.
namespace certificate {

/// Decodes a DER certificate (RFC 5280); null when the bytes are none, with nothing leaked.
///
/// With `copyDER` false the record points into the caller's bytes, which must outlive it. Fields
/// that nothing in the system reads stay zero: database key, certificate type, root flag, and the
/// mark for unknown critical extensions. `subjectName` and `issuerName` are null where NSS cannot
/// write the name.
CertificateHandle CERT_DecodeDERCertificate(const SECItem& der, bool copyDER, const char* nickname);

/// E-mail addresses of the subject and the subject alternative name, lower case: NUL-terminated
/// texts followed by one more NUL, in the certificate's arena; null when there is none. Duplicates
/// stay; an address beyond the size of the certificate's DER is left out.
char* cert_GetCertificateEmailAddresses(CERTCertificate* certificate);

/// Escaped text of the first attribute with the wanted tag, stored as by `avaToString`; null when
/// there is none.
char* CERT_GetNameElement(PLArenaPool* arena, const CERTName* name, int wantedTag);

/// Sets `subjectKeyID` from the extension, else to the SHA-1 of the DER public key.
SECStatus cert_GetKeyID(CERTCertificate* certificate);

/// Sets the key usage from the first byte of the extension; all uses when there is none. Always
/// succeeds.
SECStatus GetKeyUsage(CERTCertificate* certificate);

}  // namespace certificate
