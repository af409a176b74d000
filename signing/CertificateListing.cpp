#include <array>
#include <utility>

#include "signing/Base64.h"
#include "signing/CertificateDecoding.h"
#include "signing/DigitalSignatureUtilPkcs11.h"
#include "signing/ServiceError.h"
#include "signing/SigningFitness.h"

namespace {

CertificateHandle decodeCertificate(std::vector<CK_BYTE>& der) {
  SECItem item{siBuffer, der.data(), static_cast<unsigned int>(der.size())};
  return certificate::CERT_DecodeDERCertificate(item, true, "Certificado");
}

/// The text, or the empty text where NSS could not write the name.
const char* nameText(const char* name) { return name != nullptr ? name : ""; }

void appendRecord(std::string& listing, const CERTCertificate& certificate, std::span<CK_BYTE> id) {
  if (!listing.empty()) {
    listing += '|';
  }
  listing += nameText(certificate.issuerName);
  listing += '|';
  listing += nameText(certificate.subjectName);
  listing += '|';
  listing += encodeBase64(id);
}

}  // namespace

std::string DigitalSignatureUtilPkcs11::ListCertificates(std::string /*caSubjectNames*/) {
  // Every fit certificate is listed: the page's CA names do not filter, on purpose.
  // On purpose the listing alone also stops at a code that was set though the page is authorised.
  if (!mayUseToken() || lastError != service_error::kNone) {
    return {};
  }
  TokenConnection connection;
  if (!connect(connection)) {
    return {};
  }
  return listSigningCertificates(connection.session);
}

void DigitalSignatureUtilPkcs11::visitCertificates(
    CK_SESSION_HANDLE session, const std::function<void(CertificateObject&)>& visit) {
  CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  std::array<CK_ATTRIBUTE, 2> search{{
      {CKA_CLASS, &objectClass, sizeof objectClass},
      {CKA_CERTIFICATE_TYPE, &type, sizeof type},
  }};
  constexpr std::array<CK_ATTRIBUTE_TYPE, 2> kRead{CKA_ID, CKA_VALUE};

  const FindScope find(session);  // the listing's find is finalised even where it did not begin
  if (!checkReturnValue(C_FindObjectsInit(session, search.data(), search.size()),
                        "Find objects init")) {
    return;
  }
  for (auto handle = findObject(session, "Find first object"); handle;
       handle = findObject(session, "Find other objects")) {
    std::vector<Bytes> values = readAttributes(session, *handle, kRead);
    CertificateObject object;
    if (!values.empty()) {
      object = {std::move(values[0]), std::move(values[1])};
    }
    visit(object);
  }
}

std::string DigitalSignatureUtilPkcs11::listSigningCertificates(CK_SESSION_HANDLE session) {
  std::string listing;
  visitCertificates(session, [&](CertificateObject& object) {
    if (object.id.empty() || object.der.empty()) {
      return;
    }
    const CertificateHandle certificate = decodeCertificate(object.der);
    if (certificate && fitnessForSigning(*certificate) == SigningFitness::kFit) {
      appendRecord(listing, *certificate, object.id);
    }
  });
  return listing;
}
