// The server over TLS, as a client that knows nothing of it sees it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "http/test/scripted_access.h"
#include "http/test/server_fixture.h"
#include "support/kube_sim/certificates.h"
#include "support/kube_sim/test/tls_peer.h"

using kube_sim::Certificate_Kind;
using kube_sim::Certificates;
using kube_sim_test::Tls_Peer;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

const char* const with_token = "Authorization: Bearer good\r\n";

/// A client that speaks one version of TLS; whether there is a handshake.
bool handshake_with(unsigned short port, int version) {
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  SSL_CTX_set_security_level(context.get(), 0);
  SSL_CTX_set_min_proto_version(context.get(), version);
  SSL_CTX_set_max_proto_version(context.get(), version);
  const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()), BIO_free_all);
  BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
  return BIO_do_handshake(connection.get()) == 1;
}

class HTTP_TLS_Test : public HTTP_Server_Fixture {
 protected:
  HTTP_TLS_Test() { write(certificates_.server(Certificate_Kind::GOOD)); }

  /// In place of the files that are there, as editors and deployments do it.
  void replace(const std::string& path, const std::string& text, mode_t mode) {
    const std::string fresh = dir_.write("fresh", text);
    ASSERT_EQ(0, chmod(fresh.c_str(), mode));
    ASSERT_EQ(0, std::rename(fresh.c_str(), path.c_str()));
  }
  void write(const kube_sim::Certificate& pair) {
    replace(files_.key, pair.key, 0400);
    replace(files_.certificate, pair.certificate, 0644);
  }
  int listen() {
    server_ = std::make_unique<HTTP_Server>(service_, options_);
    return server_->listen_tls("127.0.0.1", 0, files_, access_);
  }
  void serve() {
    ASSERT_EQ(0, listen()) << log_.all();
    ASSERT_EQ(0, server_->start()) << log_.all();
  }
  Tls_Peer tls_peer(const Certificates& authority) { return Tls_Peer(server_->port(), authority.ca()); }
  std::string answer(const std::string& request) {
    Tls_Peer peer = tls_peer(certificates_);
    peer.send(request);
    return peer.reply().body;
  }
  void expect_refused(const std::string& why) {
    log_.clear();
    EXPECT_EQ(-1, listen());
    EXPECT_EQ(EINVAL, errno);
    EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(testing::AllOf(StartsWith("No TLS: "), HasSubstr(why))));
  }

  const Certificates certificates_;
  const TLS_Files files_{dir_ / "tls.crt", dir_ / "tls.key"};
  const std::shared_ptr<Scripted_Access> access_ = std::make_shared<Scripted_Access>();
};

TEST_F(HTTP_TLS_Test, PostIsAnsweredByTheService) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  ASSERT_TRUE(peer.connected());
  for (const std::string body : {"[1]", "[2]"}) {
    peer.send(post(body, with_token));
    EXPECT_EQ(body, peer.reply().body);
  }
}

TEST_F(HTTP_TLS_Test, CallerNeedsATokenHereToo) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(post("[1]"));
  EXPECT_EQ(401, peer.reply().status);
  EXPECT_EQ(0u, service_.posts());
}

TEST_F(HTTP_TLS_Test, AnyAddressMayBeListenedOn) {
  server_ = std::make_unique<HTTP_Server>(service_, options_);
  EXPECT_EQ(0, server_->listen_tls("0.0.0.0", 0, files_, access_)) << log_.all();
}

TEST_F(HTTP_TLS_Test, WithoutACheckOfTokensItIsNotOpened) {
  server_ = std::make_unique<HTTP_Server>(service_, options_);
  EXPECT_EQ(-1, server_->listen_tls("127.0.0.1", 0, files_, nullptr));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to listen on 127.0.0.1 port 0: no token to ask for\n"));
}

TEST_F(HTTP_TLS_Test, LargeBodiesGoBothWays) {
  serve();
  const std::string body(options_.limits.body_bytes, 'x');
  EXPECT_EQ(body, answer(post(body, with_token)));
}

TEST_F(HTTP_TLS_Test, PipelinedRequestsAreAnsweredInTheirOrder) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(post("[1]", with_token) + post("[2]", with_token) + post("[3]", with_token));
  for (const char* body : {"[1]", "[2]", "[3]"}) EXPECT_EQ(body, peer.reply().body);
}

TEST_F(HTTP_TLS_Test, RequestSentWhileAnAnswerIsMadeIsServedNext) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(post("keep", with_token));
  const auto kept = service_.kept();
  peer.send(post("[2]", with_token));
  std::this_thread::sleep_for(milliseconds(20));
  kept->reply(200, "[1]");
  EXPECT_EQ("[1]", peer.reply().body);
  EXPECT_EQ("[2]", peer.reply().body);
}

TEST_F(HTTP_TLS_Test, PeerThatGoesWhileItsAnswerIsMadeIsNoticed) {
  serve();
  {
    Tls_Peer peer = tls_peer(certificates_);
    peer.send(post("keep", with_token));
    service_.kept();
    EXPECT_TRUE(service_.token_is_held());
  }
  EXPECT_TRUE(eventually([this] { return !service_.token_is_held(); }));
}

TEST_F(HTTP_TLS_Test, ConnectionEndsWithNoticeWhenThePeerAsksForIt) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(post("[1]", std::string(with_token) + "Connection: close\r\n"));
  EXPECT_THAT(peer.read_all(), EndsWith("[1]"));
  EXPECT_EQ(kube_sim_test::State::CLOSED, peer.state());
}

TEST_F(HTTP_TLS_Test, WebSocketIsServed) {
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(upgrade(with_token));
  EXPECT_EQ(101, peer.reply().status);
  for (const std::string& text : {std::string("one"), std::string(3'000, 'x')}) {
    peer.send(frame(0x81, text));
    EXPECT_EQ(text, peer.frame().payload);
  }
  peer.send_frame(8, "\x03\xe8");
  EXPECT_EQ(8, peer.frame().opcode);
  EXPECT_TRUE(eventually([this] { return !service_.receiver_is_held(); }));
}

TEST_F(HTTP_TLS_Test, WebSocketMessageInFragmentsWithoutEndIsCutOff) {
  options_.limits.message_bytes = 1000;
  options_.limits.message_overhead_bytes = 1000;
  serve();
  Tls_Peer peer = tls_peer(certificates_);
  peer.send(upgrade(with_token));
  EXPECT_EQ(101, peer.reply().status);
  service_.sender();
  peer.send(frame(0x01, "a"));
  for (int i = 0; i < 2000; ++i) peer.send(frame(0x00, ""));
  EXPECT_TRUE(eventually([this] { return !service_.receiver_is_held(); }));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("WebSocket ended: a message in too many fragments.\n"));
}

TEST_F(HTTP_TLS_Test, OldVersionsAreRefused) {
  serve();
  EXPECT_FALSE(handshake_with(server_->port(), TLS1_VERSION));
  EXPECT_FALSE(handshake_with(server_->port(), TLS1_1_VERSION));
  EXPECT_TRUE(handshake_with(server_->port(), TLS1_2_VERSION));
  EXPECT_TRUE(handshake_with(server_->port(), TLS1_3_VERSION));
}

TEST_F(HTTP_TLS_Test, CallerWithoutTLSGetsNoAnswer) {
  serve();
  Raw_Peer peer = tcp_peer();
  peer.say(post("[1]", with_token));
  EXPECT_THAT(peer.hear_all(), testing::Not(HasSubstr("HTTP")));
  EXPECT_THAT(log_.texts(LM_WARNING), ElementsAre(HasSubstr("Caller at 127.0.0.1 refused: http request")));
  EXPECT_THAT(access_->tokens(), IsEmpty());
}

TEST_F(HTTP_TLS_Test, HandshakeHasALimitOfItsOwn) {
  options_.limits.tls_handshake = milliseconds(100);
  serve();
  Raw_Peer silent = tcp_peer();
  EXPECT_TRUE(silent.ends());
  EXPECT_THAT(log_.lines(), IsEmpty()) << "who looks whether the port is open";
  Raw_Peer slow = tcp_peer();
  slow.say("\x16\x03\x01");  // the begin of a record, and no more
  EXPECT_TRUE(slow.ends());
}

TEST_F(HTTP_TLS_Test, CloseEndsConnectionsInAnyState) {
  serve();
  Raw_Peer silent = tcp_peer();
  Tls_Peer idle = tls_peer(certificates_);
  Tls_Peer waiting = tls_peer(certificates_);
  waiting.send(post("keep", with_token));
  service_.kept();
  server_->close();
  EXPECT_TRUE(silent.ends());
  EXPECT_EQ("", idle.read_all());
  EXPECT_EQ("", waiting.read_all());
  EXPECT_FALSE(service_.token_is_held());
}

TEST_F(HTTP_TLS_Test, NewCertificateIsTakenForNewConnectionsAndOldOnesGoOn) {
  serve();
  Tls_Peer before = tls_peer(certificates_);
  const Certificates others;
  write(others.server(Certificate_Kind::GOOD));
  Tls_Peer after = tls_peer(others);
  EXPECT_TRUE(after.connected());
  EXPECT_FALSE(tls_peer(certificates_).connected());
  for (Tls_Peer* peer : {&before, &after}) {
    peer->send(post("[1]", with_token));
    EXPECT_EQ("[1]", peer->reply().body);
  }
  EXPECT_THAT(log_.texts(LM_INFO), ElementsAre("The certificate in '" + files_.certificate + "' has been replaced.\n"));
}

TEST_F(HTTP_TLS_Test, BrokenPairLeavesTheOldOneInPlaceAndIsToldOnce) {
  serve();
  const auto next = certificates_.server(Certificate_Kind::GOOD);
  replace(files_.certificate, next.certificate, 0644);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(tls_peer(certificates_).connected());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(StartsWith("The old certificate stays in use: '" + files_.key +
                                                           "' holds no usable key for the certificate: ")));
  replace(files_.key, next.key, 0400);
  EXPECT_TRUE(tls_peer(certificates_).connected());
  EXPECT_THAT(log_.texts(LM_INFO), SizeIs(1));
  EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(1));
}

TEST_F(HTTP_TLS_Test, FilesThatAreGoneLeaveTheOldPairInPlace) {
  serve();
  std::remove(files_.certificate.c_str());
  std::remove(files_.key.c_str());
  EXPECT_TRUE(tls_peer(certificates_).connected());
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre(HasSubstr("'" + files_.certificate + "' cannot be read: No such file or directory")));
}

TEST_F(HTTP_TLS_Test, PairOfAnotherCertificateIsRefused) {
  replace(files_.key, certificates_.server(Certificate_Kind::GOOD).key, 0400);
  expect_refused("'" + files_.key + "' holds no usable key for the certificate: key values mismatch.");
}

TEST_F(HTTP_TLS_Test, KeyThatOthersMayReadIsRefused) {
  chmod(files_.key.c_str(), 0644);
  expect_refused("'" + files_.key + "' is open to others; its mode must be 0400, 0600 or 0440.");
}

TEST_F(HTTP_TLS_Test, FilesWithoutWhatTheyAreForAreRefused) {
  const auto pair = certificates_.server(Certificate_Kind::GOOD);
  for (const std::string& text :
       {std::string(), std::string("nonsense"), pair.key,
        std::string("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"),
        pair.certificate + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}) {
    replace(files_.certificate, text, 0644);
    expect_refused("'" + files_.certificate + "' holds no usable certificates: ");
  }
  write(pair);
  for (const std::string& text : {std::string(), std::string("nonsense"), pair.certificate}) {
    replace(files_.key, text, 0400);
    expect_refused("'" + files_.key + "' holds no usable key");
  }
}

TEST_F(HTTP_TLS_Test, KeyWithAPassphraseIsRefusedWithoutAPrompt) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  unsigned char passphrase[] = "secret";
  PEM_write_bio_PKCS8PrivateKey(memory.get(), key.get(), EVP_aes_256_cbc(), reinterpret_cast<char*>(passphrase), 6,
                                nullptr, nullptr);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  replace(files_.key, std::string(text, static_cast<size_t>(length)), 0400);
  expect_refused("'" + files_.key + "' holds no usable key");
}

TEST_F(HTTP_TLS_Test, ChainIsSentToo) {
  const auto pair = certificates_.server(Certificate_Kind::GOOD);
  replace(files_.key, pair.key, 0400);
  replace(files_.certificate, pair.certificate + "\n# who signed it\n" + certificates_.ca(), 0644);
  serve();
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(context.get()), BIO_free_all);
  BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(server_->port())).c_str());
  ASSERT_EQ(1, BIO_do_handshake(connection.get()));
  SSL* ssl = nullptr;
  BIO_get_ssl(connection.get(), &ssl);
  EXPECT_EQ(2, sk_X509_num(SSL_get_peer_cert_chain(ssl)));
}

TEST_F(HTTP_TLS_Test, ExpiredCertificateIsUsedWithAWarning) {
  write(certificates_.server(Certificate_Kind::EXPIRED));
  serve();
  EXPECT_THAT(log_.texts(LM_WARNING), ElementsAre("The certificate in '" + files_.certificate + "' has expired.\n"));
  EXPECT_FALSE(tls_peer(certificates_).connected());
}

}  // namespace
