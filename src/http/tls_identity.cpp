#include "http/tls_identity.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <ctime>

#include "ace/Log_Msg.h"
#include "kolt/metrics.h"
#include "kolt/secure_memory.h"

namespace http_server {

namespace {

constexpr size_t longest_file = 1 << 20;
/// With forward secrecy and a cipher that cannot be tampered with; TLS 1.3 has no others.
constexpr char tls12_ciphers[] = "ECDHE+AESGCM:ECDHE+CHACHA20";

template <auto function>
struct Freed_By {
  template <typename T>
  void operator()(T* object) const {
    function(object);
  }
};
typedef std::unique_ptr<BIO, Freed_By<BIO_free>> Bio;
typedef std::unique_ptr<X509, Freed_By<X509_free>> Certificate;
typedef std::unique_ptr<EVP_PKEY, Freed_By<EVP_PKEY_free>> Key;

std::string reason() {
  const unsigned long error = ::ERR_peek_last_error();
  const char* const text = ::ERR_reason_error_string(error);
  ::ERR_clear_error();
  return text ? text : "unknown error";
}

Bio reader_of(const std::string& text) {
  return Bio(::BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

/// In place of a prompt for the passphrase.
int no_passphrase(char*, int, int, void*) {
  return -1;
}

std::shared_ptr<SSL_CTX> make_context() {
  const std::shared_ptr<SSL_CTX> context(::SSL_CTX_new(::TLS_server_method()), ::SSL_CTX_free);
  if (!context || !::SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) ||
      !::SSL_CTX_set_cipher_list(context.get(), tls12_ciphers)) {
    return nullptr;
  }
  // No connection is made on the word of an earlier one, and the keys of tickets would outlive the certificate.
  ::SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
  ::SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                           SSL_OP_CIPHER_SERVER_PREFERENCE);
  ::SSL_CTX_set_num_tickets(context.get(), 0);
  return context;
}

bool use_certificates(SSL_CTX* context, const std::string& pem) {
  const Bio bio = reader_of(pem);
  const Certificate own(::PEM_read_bio_X509_AUX(bio.get(), nullptr, no_passphrase, nullptr));
  if (!own || ::SSL_CTX_use_certificate(context, own.get()) != 1) return false;
  while (const Certificate issuer{::PEM_read_bio_X509(bio.get(), nullptr, no_passphrase, nullptr)}) {
    if (::SSL_CTX_add1_chain_cert(context, issuer.get()) != 1) return false;
  }
  const bool at_end = ERR_GET_REASON(::ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  if (at_end) ::ERR_clear_error();
  return at_end;
}

bool use_key(SSL_CTX* context, const std::string& pem) {
  const Bio bio = reader_of(pem);
  const Key key(::PEM_read_bio_PrivateKey(bio.get(), nullptr, no_passphrase, nullptr));
  // Tells whether it is the certificate's, too.
  return key && ::SSL_CTX_use_PrivateKey(context, key.get()) == 1;
}

time_t end_of(SSL_CTX* context) {
  tm moment{};
  if (::ASN1_TIME_to_tm(::X509_get0_notAfter(::SSL_CTX_get0_certificate(context)), &moment) != 1) return 0;
  return ::timegm(&moment);
}

/// Tells people how long it is good. One that is over is used all the same: callers refuse it, and see why.
void tell_end(const std::string& file, SSL_CTX* context) {
  static const kolt::Gauge gauge("tessarin_tls_certificate_not_after_seconds",
                                 "End of the agent's certificate, in seconds since 1970.");
  const time_t end = end_of(context);
  gauge.set(static_cast<double>(end));
  if (end < std::time(nullptr)) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("The certificate in '%C' has expired.\n"), file.c_str()));
  }
}

}  // namespace

std::string TLS_Identity::read(std::shared_ptr<SSL_CTX>& context) const {
  std::string certificate, key;
  std::string fault = kolt::read_public_file(files_.certificate, longest_file, certificate);
  if (fault.empty()) fault = kolt::read_secret_file(files_.key, longest_file, key);
  if (!fault.empty()) return fault;
  ::ERR_clear_error();
  const auto made = make_context();
  if (!made) {
    fault = "TLS: " + reason();
  } else if (!use_certificates(made.get(), certificate)) {
    fault = "'" + files_.certificate + "' holds no usable certificates: " + reason();
  } else if (!use_key(made.get(), key)) {
    fault = "'" + files_.key + "' holds no usable key for the certificate: " + reason();
  } else {
    context = made;
  }
  secure_memset(key.data(), 0, key.size());
  return fault;
}

int TLS_Identity::load() {
  const Stamp now = stamp();
  const std::string fault = read(context_);
  if (!fault.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("No TLS: %C.\n"), fault.c_str()), -1);
  stamp_ = now;
  tell_end(files_.certificate, context_.get());
  return 0;
}

std::shared_ptr<SSL_CTX> TLS_Identity::current() {
  const Stamp now = stamp();
  if (now == stamp_) return context_;
  const std::string fault = read(context_);
  if (fault.empty()) {
    stamp_ = now;
    ACE_DEBUG((LM_INFO, ACE_TEXT("The certificate in '%C' has been replaced.\n"), files_.certificate.c_str()));
    tell_end(files_.certificate, context_.get());
  } else if (fault != fault_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The old certificate stays in use: %C.\n"), fault.c_str()));
  }
  fault_ = fault;
  return context_;
}

}  // namespace http_server
