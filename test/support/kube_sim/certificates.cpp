#include "support/kube_sim/certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace kube_sim {

namespace {

constexpr long day = 24 * 60 * 60;
constexpr char ca_name[] = "kube-sim-ca";

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Cert = std::unique_ptr<X509, decltype(&X509_free)>;
using Memory = std::unique_ptr<BIO, decltype(&BIO_free)>;

void check(bool good) {
  if (!good) throw std::runtime_error("OpenSSL can't make a certificate");
}

Key make_key() {
  Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  check(key != nullptr);
  return key;
}

std::string text_of(const Memory& memory) {
  char* data = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &data);
  return {data, static_cast<size_t>(length)};
}

std::string pem(X509* cert) {
  const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
  check(PEM_write_bio_X509(memory.get(), cert) == 1);
  return text_of(memory);
}

std::string pem(EVP_PKEY* key) {
  const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
  check(PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
  return text_of(memory);
}

void set_name(X509_NAME* name, const char* text) {
  check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(text), -1, -1, 0) ==
        1);
}

void add_extension(X509* cert, X509* issuer, int id, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, id, value);
  check(extension != nullptr);
  const int added = X509_add_ext(cert, extension, -1);
  X509_EXTENSION_free(extension);
  check(added == 1);
}

/// A certificate for @a key that is still to be signed. @a issuer is null for one that signs itself.
Cert draft(const char* name, EVP_PKEY* key, X509* issuer, long valid_from, long valid_to) {
  Cert cert(X509_new(), X509_free);
  check(cert != nullptr && X509_set_version(cert.get(), X509_VERSION_3) == 1);
  unsigned char serial[8];
  check(RAND_bytes(serial, sizeof serial) == 1);
  serial[0] &= 0x7f;
  BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
  BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert.get()));
  BN_free(number);
  X509_gmtime_adj(X509_getm_notBefore(cert.get()), valid_from);
  X509_gmtime_adj(X509_getm_notAfter(cert.get()), valid_to);
  set_name(X509_get_subject_name(cert.get()), name);
  X509* signer = issuer != nullptr ? issuer : cert.get();
  check(X509_set_issuer_name(cert.get(), X509_get_subject_name(signer)) == 1);
  check(X509_set_pubkey(cert.get(), key) == 1);
  return cert;
}

void sign(X509* cert, EVP_PKEY* key) {
  check(X509_sign(cert, key, EVP_sha256()) > 0);
}

}  // namespace

struct Certificates::Authority {
  Key key = make_key();
  Cert cert = draft(ca_name, key.get(), nullptr, -day, 3650 * day);
  std::string text;

  Authority() {
    add_extension(cert.get(), cert.get(), NID_basic_constraints, "critical,CA:TRUE");
    add_extension(cert.get(), cert.get(), NID_key_usage, "critical,keyCertSign,cRLSign,digitalSignature");
    add_extension(cert.get(), cert.get(), NID_subject_key_identifier, "hash");
    sign(cert.get(), key.get());
    text = pem(cert.get());
  }
};

Certificates::Certificates() : authority_(std::make_unique<Authority>()) {}

Certificates::~Certificates() = default;

const std::string& Certificates::ca() const {
  return authority_->text;
}

Certificate Certificates::server(Certificate_Kind kind) const {
  if (kind == Certificate_Kind::OTHER_CA) return Certificates().server(Certificate_Kind::GOOD);
  const bool alone = kind == Certificate_Kind::SELF_SIGNED;
  const bool expired = kind == Certificate_Kind::EXPIRED;
  const Key key = make_key();
  X509* issuer = alone ? nullptr : authority_->cert.get();
  const Cert cert = draft("kube-sim", key.get(), issuer, expired ? -30 * day : -day, expired ? -day : 365 * day);
  X509* signer = alone ? cert.get() : issuer;
  add_extension(cert.get(), signer, NID_basic_constraints, "critical,CA:FALSE");
  add_extension(cert.get(), signer, NID_key_usage, "critical,digitalSignature");
  add_extension(cert.get(), signer, NID_ext_key_usage, "serverAuth");
  add_extension(cert.get(), signer, NID_subject_alt_name,
                kind == Certificate_Kind::WRONG_NAME ? "DNS:wrong.example.com,IP:192.0.2.1"
                                                     : "DNS:localhost,IP:127.0.0.1,IP:::1");
  sign(cert.get(), alone ? key.get() : authority_->key.get());
  return {pem(cert.get()), pem(key.get())};
}

}  // namespace kube_sim
