// Listing and retrieval of certificates against the fake token.
#include <gtest/gtest.h>

#include "signing/Base64.h"
#include "tests/signing/ServiceFixture.h"

namespace {

using test_support::CertificateFields;
using test_support::hex;
using test_support::makeCertificate;

const std::string kBefore = "Initialize GetSlotList GetSlotList OpenSession ";

std::string certificateLine(const std::string& id, const CertificateFields& fields) {
  return "certificate " + id + " hex " + hex(makeCertificate(fields)) + "\n";
}

CertificateFields named(const char* name) { return {.subject = {{"CN", name}}}; }

class Listing : public ServiceTest {
 protected:
  static void script(const std::string& text) {
    FakeToken::instance().reset();
    FakeToken::instance().script(text);
  }

  std::unique_ptr<Service> service = authorizedService();
};

TEST_F(Listing, MakesEveryCallAsTheTokenExpectsIt) {
  const std::string der = makeCertificate({});
  script("slots 3\ncertificate 01ab hex " + hex(der));
  EXPECT_EQ(service->ListCertificates("ignored"), "CN=Test Authority|CN=Signer,C=CR|Aas=");
  const std::string size = std::to_string(der.size());
  EXPECT_EQ(log(),
            "C_Initialize arguments=null -> 0x0\n"
            "C_GetSlotList tokenPresent=1 list=null count=10 -> 0x0 count=1\n"
            "C_GetSlotList tokenPresent=1 list=set count=1 -> 0x0 count=1\n"
            "C_OpenSession slot=3 flags=0x4 application=null notify=null -> 0x0 session=1\n"
            "C_FindObjectsInit session=1 0x0=0100000000000000 0x80=0000000000000000 -> 0x0\n"
            "C_FindObjects session=1 maximum=1 -> 0x0 count=1 object=1\n"
            "C_GetAttributeValue session=1 object=1 0x102=null:0 0x11=null:0 -> 0x0 0x102:2 0x11:" +
                size + "\n" + "C_GetAttributeValue session=1 object=1 0x102=buffer:2 0x11=buffer:" +
                size + " -> 0x0 0x102:2 0x11:" + size + "\n" +
                "C_FindObjects session=1 maximum=1 -> 0x0 count=0\n"
                "C_FindObjectsFinal session=1 -> 0x0\n"
                "C_CloseSession session=1 -> 0x0\n"
                "C_Finalize reserved=null -> 0x0\n");
}

TEST_F(Listing, KeepsWhatCanSignNowInTheTokensOrder) {
  CertificateFields authentication = named("authentication");
  authentication.extensions = {{"keyUsage", "digitalSignature"}};
  CertificateFields committing = named("commitment");
  committing.extensions = {{"keyUsage", "nonRepudiation"}};
  CertificateFields unlimited = named("b");
  unlimited.extensions = {};
  CertificateFields expired = named("expired");
  expired.notAfter = -60;
  CertificateFields early = named("early");
  early.notBefore = 60;
  CertificateFields foreign = named("\xC3\xA9|c");  // no escaping of the separator
  script(certificateLine("01", named("a")) + certificateLine("02", authentication) +
         certificateLine("03", committing) + certificateLine("04", expired) +
         certificateLine("05", unlimited) + certificateLine("06", early) +
         certificateLine("-", named("no id")) + "certificate 07 hex 3003020101\n" +
         "certificate 08 hex -\n" + certificateLine(std::string(100, 'a'), foreign) + "key 01");
  std::string longId(50, '\xAA');
  EXPECT_EQ(service->ListCertificates(""),
            "CN=Test Authority|CN=a|AQ==|CN=Test Authority|CN=b|BQ==|CN=Test Authority|"
            "CN=\xC3\xA9|c|" +
                // NSS breaks its lines after 64 characters, and the text is passed on unchanged.
                encodeBase64({reinterpret_cast<unsigned char*>(longId.data()), longId.size()}));
  EXPECT_NE(
      encodeBase64({reinterpret_cast<unsigned char*>(longId.data()), longId.size()}).find("\r\n"),
      std::string::npos);
  EXPECT_EQ(errorOf(*service), "0 0 ");
}

TEST_F(Listing, AFailedReadSkipsTheObjectAndAFailedSearchEndsTheListing) {
  const std::string both = certificateLine("01", named("a")) + certificateLine("02", named("b"));
  const std::string one = "CN=Test Authority|CN=a|AQ==";
  const std::string other = "CN=Test Authority|CN=b|Ag==";
  const std::string init = kBefore + "FindObjectsInit ";
  const std::string read = "FindObjects GetAttributeValue GetAttributeValue ";
  const std::string end = "FindObjectsFinal CloseSession Finalize";
  const Outcome kCases[]{
      {"fail C_FindObjectsInit 1 CKR_DEVICE_ERROR", init + end, "12 48 Find objects init", ""},
      {"fail C_FindObjects 1 CKR_DEVICE_ERROR", init + "FindObjects " + end,
       "12 48 Find first object", ""},
      {"fail C_FindObjects 2 CKR_DEVICE_ERROR", init + read + "FindObjects " + end,
       "12 48 Find other objects", one},
      {"fail C_GetAttributeValue 1 CKR_DEVICE_ERROR",
       init + "FindObjects GetAttributeValue " + read + "FindObjects " + end,
       "12 48 get attribute value", other},
      {"fail C_GetAttributeValue 2 CKR_DEVICE_ERROR", init + read + read + "FindObjects " + end,
       "12 48 get attribute value", other},
      {"lie length CKA_ID asked ones object 1",
       init + "FindObjects GetAttributeValue " + read + "FindObjects " + end,
       "12 19 get attribute value", other},
      {"lie length CKA_VALUE asked 1048577 object 1",
       init + "FindObjects GetAttributeValue " + read + "FindObjects " + end,
       "12 19 get attribute value", other},
      {"lie length CKA_ID read 2 object 1", init + read + read + "FindObjects " + end,
       "12 336 get attribute value", other},
      {"lie length CKA_VALUE read ones object 1", init + read + read + "FindObjects " + end,
       "12 336 get attribute value", other},
      {"lie length CKA_VALUE read 0 object 1", init + read + read + "FindObjects " + end, "0 0 ",
       other},
      {"lie length CKA_ID both 0 object 1", init + read + read + "FindObjects " + end, "0 0 ",
       other},
      {"lie found 1 5", init + read + read + "FindObjects " + end, "0 0 ", one + "|" + other},
      {"fail C_CloseSession 1 CKR_DEVICE_ERROR\nfail C_FindObjectsFinal 1 CKR_DEVICE_ERROR",
       init + read + read + "FindObjects " + end, "0 0 ", one + "|" + other}};
  expectOutcomes(both, kCases, [](Service& fresh) { return fresh.ListCertificates(""); });
}

TEST_F(Listing, RetrievalFindsByIdAndReadsTheFirstMatch) {
  const std::string der = makeCertificate({});
  script("certificate 02 hex 00\ncertificate 01ab hex " + hex(der) + "\ncertificate 01ab hex 00");
  std::string bytes = der;
  EXPECT_EQ(service->GetCertificateBase64("Aas="),
            encodeBase64({reinterpret_cast<unsigned char*>(bytes.data()), bytes.size()}));
  EXPECT_EQ(calls(), kBefore +
                         "FindObjectsInit FindObjects GetAttributeValue GetAttributeValue "
                         "FindObjectsFinal CloseSession Finalize");
  EXPECT_EQ(FakeToken::instance().callsOf("C_FindObjectsInit").front(),
            "C_FindObjectsInit session=1 0x0=0100000000000000 0x80=0000000000000000 "
            "0x102=01ab -> 0x0");
  EXPECT_EQ(FakeToken::instance().callsOf("C_GetAttributeValue").front(),
            "C_GetAttributeValue session=1 object=2 0x11=null:0 -> 0x0 0x11:" +
                std::to_string(der.size()));
}

TEST_F(Listing, AFailedRetrievalIsEmptyAndEndsWhatItBegan) {
  const std::string init = kBefore + "FindObjectsInit ";
  const std::string end = "FindObjectsFinal CloseSession Finalize";
  const Outcome kCases[]{
      // Unlike the listing, no find is finalised that did not begin.
      {"fail C_FindObjectsInit 1 CKR_PIN_LOCKED", init + "CloseSession Finalize",
       "5 164 Find objects init"},
      {"fail C_FindObjects 1 CKR_DEVICE_ERROR", init + "FindObjects " + end,
       "12 48 Find first object"},
      {"lie found 1 0", init + "FindObjects " + end, "0 0 "},
      {"fail C_GetAttributeValue 1 CKR_DEVICE_ERROR", init + "FindObjects GetAttributeValue " + end,
       "12 48 get attribute value"},
      {"fail C_GetAttributeValue 2 CKR_DEVICE_ERROR",
       init + "FindObjects GetAttributeValue GetAttributeValue " + end,
       "12 48 get attribute value"},
      {"lie length CKA_VALUE asked ones", init + "FindObjects GetAttributeValue " + end,
       "12 19 get attribute value"},
      {"lie length CKA_VALUE read 5000",
       init + "FindObjects GetAttributeValue GetAttributeValue " + end,
       "12 336 get attribute value"},
      {"lie length CKA_VALUE asked 0\nlie length CKA_VALUE read 0",
       init + "FindObjects GetAttributeValue GetAttributeValue " + end, "0 0 "}};
  expectOutcomes("certificate 01 hex 0011223344\n", kCases,
                 [](Service& fresh) { return fresh.GetCertificateBase64("AQ=="); });
}

TEST_F(Listing, ABadCertIdLeavesTheSessionOpenAndTheLibraryInitialised) {
  for (const char* certId : {"!", ""}) {
    script("certificate 01 hex 00");
    auto fresh = authorizedService();
    EXPECT_EQ(fresh->GetCertificateBase64(certId), "");
    EXPECT_EQ(errorOf(*fresh), "12 0 Invalid cert id base64");
    EXPECT_EQ(calls(), "Initialize GetSlotList GetSlotList OpenSession");
    EXPECT_EQ(FakeToken::instance().openSessions(), 1U);
    EXPECT_EQ(fresh->GetCertificateBase64("AQ=="), "");
    EXPECT_EQ(errorOf(*fresh), "12 401 C_Initialize failed");
    EXPECT_EQ(calls(), "Initialize GetSlotList GetSlotList OpenSession Initialize");
  }
}

}  // namespace
