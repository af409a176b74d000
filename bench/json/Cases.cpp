#include "bench/json/Cases.h"

#include <algorithm>
#include <random>
#include <stdexcept>

namespace {

/// As base64 of random bytes, the same in every run.
std::string base64Text(std::size_t length) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text(length, '=');
  std::minstd_rand random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  std::generate(text.begin(), text.end() - 1, [&] { return kAlphabet[random() % 64]; });
  return text;
}

}  // namespace

const std::string& initializeRequest() {
  static const std::string request =
      R"({"command":0,"signature":")" + base64Text(172) +
      R"(","domains":"sede.example.es|firma.example.es|tramites.example.org|oficina.example.net")"
      R"(,"currentDomain":"https://sede.example.es/tramites/firma/solicitud?expediente=2041")"
      R"(,"caSubjectNames":"CN=AC Firma Ejemplo, OU=Certificados, O=Autoridad de Ejemplo, C=ES|)"
      R"(CN=AC Raiz Ejemplo 2, OU=Certificados, O=Autoridad de Ejemplo, C=ES|CN=AC Componentes)"
      R"( Ejemplo, OU=Ceres, O=Otra Autoridad de Ejemplo, L=Madrid, C=ES"})";
  return request;
}

const std::string& signingRequest() {
  static const std::string request = R"({"command":5,"certId":"q83vASNFZ4mrze8BI0VniavN7wE=",)"
                                     R"("digest":"47DEQpj8HBSa+TImW+5JCeuQeRkm5NMpJWZG3hSuFUA="})";
  return request;
}

const Envelope& signatureEnvelope() {
  static const Envelope envelope{5, "Certificado ZORAL", 3, "pkcs1", base64Text(344)};
  return envelope;
}

const Envelope& listingEnvelope() {
  static const Envelope envelope = [] {
    std::string list;
    for (const char* name : {"MUÑOZ IBÁÑEZ, JOSÉ", "GARCÍA PEÑA, MARÍA", "NÚÑEZ LEÓN, ÍÑIGO"}) {
      list += list.empty() ? "" : "|";
      list += "CN=AC Firma Ejemplo, OU=Certificación, O=Autoridad de Ejemplo, C=ES|CN=\"";
      list += name;
      list += "\", SERIALNUMBER=IDCES-00000000T, C=ES|" + base64Text(28);
    }
    return Envelope{2, "Certificado ZORAL", 3, "certificates", list};
  }();
  return envelope;
}

std::string lineOfMembers(std::size_t bytes) {
  constexpr std::size_t kMember = 100;
  std::string line = "{";
  for (std::size_t i = 0; line.size() + kMember <= bytes; ++i) {
    std::string member = "\"member" + std::to_string(i) + "\":\"";
    member.append(kMember - member.size() - 2, 'v');
    line += member + "\",";
  }
  return line + "\"last\":42}";
}

void requireRight(bool right, std::string_view subject) {
  if (!right) {
    throw std::runtime_error(std::string(subject) + ": wrong result");
  }
}
