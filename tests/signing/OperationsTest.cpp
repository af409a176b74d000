// Listing, retrieval and signing on a token that works and on one that lies. Every failing call is
// swept in tests/host/FaultSweepTest.cpp.
#include <prerror.h>
#include <secerr.h>

#include "tests/signing/ServiceFixture.h"

namespace {

using test_support::CertificateFields;
using test_support::hex;
using test_support::makeCertificate;

class Operations : public ServiceTest {
 protected:
  Operations() { DigitalSignatureUtil::SetPin(kModule, "1234"); }

  /// What the token was asked, argument by argument, in one operation.
  void expectLog(const std::string& between) const {
    std::string log;
    for (const std::string& line : FakeToken::instance().log()) log += line + "\n";
    EXPECT_EQ(log,
              "C_Initialize arguments=null -> 0x0\n"
              "C_GetSlotList tokenPresent=1 list=null count=10 -> 0x0 count=2\n"
              "C_GetSlotList tokenPresent=1 list=set count=2 -> 0x0 count=2\n"
              "C_OpenSession slot=3 flags=0x4 application=null notify=null -> 0x0 session=1\n" +
                  between + "C_CloseSession session=1 -> 0x0\nC_Finalize reserved=null -> 0x0\n");
    EXPECT_EQ(errorOf(*service), "0 0 ");
  }

  std::unique_ptr<Service> service = authorizedService();
};

constexpr char kFindCertificate[] =
    "C_FindObjectsInit session=1 0x0=0100000000000000 0x80=0000000000000000";

TEST_F(Operations, AskTheTokenExactly) {
  const std::string der = makeCertificate({});
  const std::string size = std::to_string(der.size());
  script("slots 3 9\ncertificate 01ab hex " + hex(der));
  EXPECT_EQ(list(*service), "CN=Test Authority|CN=Signer,C=CR|Aas=");
  expectLog(
      kFindCertificate +
      (" -> 0x0\nC_FindObjects session=1 maximum=1 -> 0x0 count=1 object=1\n"
       "C_GetAttributeValue session=1 object=1 0x102=null:0 0x11=null:0 -> 0x0 0x102:2 0x11:" +
       size + "\nC_GetAttributeValue session=1 object=1 0x102=buffer:2 0x11=buffer:" + size +
       " -> 0x0 0x102:2 0x11:" + size +
       "\nC_FindObjects session=1 maximum=1 -> 0x0 count=0\n"
       "C_FindObjectsFinal session=1 -> 0x0\n"));

  script("slots 3 9\ncertificate 02 hex 00\ncertificate 01ab hex " + hex(der) +
         "\ncertificate 01ab hex 00");  // only the first match is read
  EXPECT_EQ(retrieve(*service), nssBase64(der));
  expectLog(kFindCertificate +
            (" 0x102=01ab -> 0x0\nC_FindObjects session=1 maximum=1 -> 0x0 count=1 object=2\n"
             "C_GetAttributeValue session=1 object=2 0x11=null:0 -> 0x0 0x11:" +
             size + "\nC_GetAttributeValue session=1 object=2 0x11=buffer:" + size +
             " -> 0x0 0x11:" + size + "\nC_FindObjectsFinal session=1 -> 0x0\n"));

  const std::pair<std::size_t, const char*> kDigestInfos[]{
      {16, "3020300c06082a864886f70d020505000410"},
      {20, "3021300906052b0e03021a05000414"},
      {32, "3031300d060960864801650304020105000420"}};
  for (const auto& [length, prefix] : kDigestInfos) {
    const std::string digest(length, '\x5A');
    script("slots 3 9\nlog pin\nsignature 2048\ncertificate 01ab hex 00\nkey 01ab");
    const std::string text = service->SignPkcs1Base64("Aas=", test_support::base64(digest));
    EXPECT_EQ(text.size(), 2816U);  // 2048 bytes with line ends
    expectLog(
        "C_Login session=1 user=1 pinLength=4 pin=1234 -> 0x0\n"
        "C_FindObjectsInit session=1 0x0=0300000000000000 0x102=01ab -> 0x0\n"
        "C_FindObjects session=1 maximum=1 -> 0x0 count=1 object=2\n"
        "C_FindObjectsFinal session=1 -> 0x0\n"
        "C_SignInit session=1 mechanism=0x1 parameter=null:0 key=2 -> 0x0\nC_Sign session=1 data=" +
        (prefix + hex(digest)) +
        " signature=buffer:2048 -> 0x0 length=2048\nC_Logout session=1 -> 0x0\n");
  }
}

TEST_F(Operations, OnATokenThatLacksThingsOrLies) {
  const std::string noSlot = "12 0 No se encontro ningun slot";
  const std::string next = "GetAttributeValue FindObjects FindObjectsFinal CloseSession Finalize";
  const std::string certificate = "certificate 01ab hex " + hex(makeCertificate({})) + "\n";
  // The token's objects and lies; the last calls and the error.
  const std::tuple<Operation, std::string, std::string, std::string> kRows[]{
      {list, "slots none", "Initialize GetSlotList Finalize", noSlot},
      {list, "lie slots 2 0", "GetSlotList GetSlotList Finalize", noSlot},
      {list, certificate + "lie length CKA_VALUE asked 1048577", "FindObjects " + next,
       "12 19 get attribute value"},
      {list, certificate + "lie length CKA_ID read 3", "GetAttributeValue " + next,
       "12 336 get attribute value"},
      {retrieve, "key 01ab\ncertificate 01 hex 00",
       "FindObjects FindObjectsFinal CloseSession Finalize", "0 0 "},
      {sign, "key 01\n" + certificate, "FindObjects FindObjectsFinal Logout CloseSession Finalize",
       "0 0 "},
      {sign, "key 01ab\nlie signature 1 2049", "Sign Logout CloseSession Finalize",
       "12 336 sign final"}};
  for (const auto& [operation, objects, lastCalls, error] : kRows) {
    SCOPED_TRACE(error + " " + lastCalls);
    script(objects);
    const auto fresh = authorizedService();
    EXPECT_EQ(operation(*fresh), "");
    EXPECT_TRUE(calls().ends_with(lastCalls)) << calls();
    EXPECT_EQ(errorOf(*fresh), error);
  }
}

TEST_F(Operations, TheListingKeepsWhatCanSignNowInTheTokensOrder) {
  const std::string longId(50, '\xAA');  // NSS breaks its base64 after 64 characters
  const std::pair<std::string, CertificateFields> kCertificates[]{
      {"01", {.subject = {{"CN", "a"}}}},
      {"02", {.extensions = {{"keyUsage", "digitalSignature"}}}},
      {"03", {.extensions = {{"keyUsage", "nonRepudiation"}}}},
      {"04", {.notAfter = -60}},
      {"05", {.subject = {{"CN", "b"}}, .extensions = {}}},
      {"06", {.notBefore = 60}},
      {"-", {}},
      {hex(longId), {.subject = {{"CN", "\xC3\xA9|c"}}}}};  // the separator is not escaped
  std::string objects = "certificate 07 hex 3003020101\ncertificate 08 hex -\nkey 01\n";
  for (const auto& [id, fields] : kCertificates) {
    objects += "certificate " + id + " hex " + hex(makeCertificate(fields)) + "\n";
  }
  script(objects);
  ASSERT_NE(nssBase64(longId).find("\r\n"), std::string::npos);
  EXPECT_EQ(list(*service),
            "CN=Test Authority|CN=a|AQ==|CN=Test Authority|CN=b|BQ==|CN=Test Authority|"
            "CN=\xC3\xA9|c|" +
                nssBase64(longId));
  EXPECT_EQ(errorOf(*service), "0 0 ");
}

TEST_F(Operations, TheListingTellsIssuersApart) {
  const std::string der = makeCertificate({});
  std::string other = der;  // signatures are not verified
  other.replace(other.find("Test Authority"), 4, "Next");
  std::string unknown = der;  // an attribute that NSS does not know, which leaves an NSPR error
  unknown.replace(unknown.find("\x55\x04\x03"), 3, "\x55\x04\x7F");
  std::string objects;
  for (const std::string& certificate : {der, other, other, der, unknown, unknown}) {
    objects += "certificate 01 hex " + hex(certificate) + "\n";
  }
  script(objects);
  const std::string record = " Authority|CN=Signer,C=CR|AQ==";
  EXPECT_EQ(list(*service), "CN=Test" + record + "|CN=Next" + record + "|CN=Next" + record +
                                "|CN=Test" + record + "|OID.2.5.4.127=Test" + record +
                                "|OID.2.5.4.127=Test" + record);
  EXPECT_EQ(PR_GetError(), SEC_ERROR_UNRECOGNIZED_OID);
}

TEST_F(Operations, BadSigningInputIsRefusedOnlyAfterTheLogin) {
  std::vector<std::pair<std::string, std::string>> inputs{
      {"Aas=", ""}, {"Aas=", "!"}, {"!", kDigest}, {"", kDigest}};
  for (const unsigned int length : {1U, 15U, 17U, 19U, 21U, 31U, 33U, 64U}) {
    inputs.emplace_back("Aas=", test_support::base64(std::string(length, '\x5A')));
  }
  for (const auto& [certId, digest] : inputs) {
    script("key 01ab");
    PR_SetError(5, 0);
    EXPECT_EQ(service->SignPkcs1Base64(certId, digest), "");
    const bool empty = certId.empty() || digest.empty();  // the one thing that NSS itself faults
    EXPECT_EQ(errorOf(*service), empty ? "3 -8187 " : "3 5 ") << certId << " " << digest;
    EXPECT_EQ(calls(),
              "Initialize GetSlotList GetSlotList OpenSession Login Logout CloseSession Finalize");
  }
}

TEST_F(Operations, ABadCertIdLeavesTheSessionOpenAndTheLibraryInitialised) {
  for (const char* certId : {"!", ""}) {
    script("");
    const auto fresh = authorizedService();
    EXPECT_EQ(fresh->GetCertificateBase64(certId), "");
    EXPECT_EQ(errorOf(*fresh), "12 0 Invalid cert id base64");
    EXPECT_EQ(FakeToken::instance().openSessions(), 1U);
    EXPECT_EQ(retrieve(*fresh), "");
    EXPECT_EQ(errorOf(*fresh), "12 401 C_Initialize failed");
    EXPECT_EQ(calls(), "Initialize GetSlotList GetSlotList OpenSession Initialize");
  }
}

}  // namespace
