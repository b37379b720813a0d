// Who is trusted with the token: nobody whose certificate doesn't prove the name by the CA file, or by the system's
// store where there is no file. The same for REST and WebSocket.
#include <sys/stat.h>
#include <unistd.h>

#include "http/test/network_fixture.h"
#include "http/websocket_connection_factory.h"

namespace {

using testing::HasSubstr;

class Tls_Trust : public Network_Test {
 protected:
  /// Both clients are refused, and no request reaches @a front.
  void expect_refused(const kube_sim::Front& front, const std::string& reason, const std::string& host = "127.0.0.1") {
    log_.clear();
    JSON_HTTP_Session session(Network_Test::session(front.port(), 20, host), 5, 300);
    EXPECT_FALSE(get(session));
    EXPECT_EQ(0, response_.status());
    EXPECT_TRUE(clock_.sleeps().empty()) << "repeated";
    EXPECT_THAT(log_.texts(LM_ERROR), testing::ElementsAre(HasSubstr(reason)));

    log_.clear();
    EXPECT_FALSE(web_socket_opens(front, host));
    EXPECT_THAT(log_.texts(LM_ERROR), testing::ElementsAre(testing::AnyOf(HasSubstr(reason), HasSubstr("trust"))));
    EXPECT_TRUE(front.requests().empty());
  }
  bool rest_works(const kube_sim::Front& front) {
    JSON_HTTP_Session session(Network_Test::session(front.port()), 0, 300);
    return get(session);
  }
  bool web_socket_opens(const kube_sim::Front& front, const std::string& host = "127.0.0.1") {
    const auto socket = WebSocket_Connection_Factory::create(host, front.port(), true, nullptr, nullptr, false, 20);
    socket->request().headers().put("Authorization", "Bearer canary-token", true);
    socket->request().uri("/exec", true);
    const bool opened = socket->connect() == 0 && socket->handshake() == 0;
    EXPECT_EQ(opened ? HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED : HTTP_SOCK_STATE_CLOSED, socket->state());
    return opened;
  }
  kube_sim::Front_Options with(Kind kind) const { return {.certificate = kind, .certificates = &certificates_}; }

  void SetUp() override {
    Network_Test::SetUp();
    api_.on_exec = [] { return std::make_unique<kube_sim_test::Simple_Exec>([](kube_sim::Exec_Stream&) {}); };
  }
};

TEST_F(Tls_Trust, a_certificate_of_the_ca_for_the_host_is_good) {
  EXPECT_TRUE(rest_works(front_)) << log_.all();
  EXPECT_TRUE(web_socket_opens(front_)) << log_.all();
}

TEST_F(Tls_Trust, a_name_is_verified_as_well_as_an_address) {
  JSON_HTTP_Session session(Network_Test::session(front_.port(), 20, "localhost"), 0, 300);
  EXPECT_TRUE(get(session)) << log_.all();
  EXPECT_TRUE(web_socket_opens(front_, "localhost")) << log_.all();
}

TEST_F(Tls_Trust, an_expired_certificate_is_refused) {
  expect_refused(kube_sim::Front(api_, with(Kind::EXPIRED)), "certificate has expired");
}

TEST_F(Tls_Trust, a_certificate_of_another_ca_is_refused) {
  expect_refused(kube_sim::Front(api_, with(Kind::OTHER_CA)), "certificate");
}

TEST_F(Tls_Trust, a_self_signed_certificate_is_refused) {
  expect_refused(kube_sim::Front(api_, with(Kind::SELF_SIGNED)), "certificate");
}

TEST_F(Tls_Trust, a_certificate_for_another_name_is_refused) {
  const kube_sim::Front front(api_, with(Kind::WRONG_NAME));
  expect_refused(front, "name", "localhost");
}

TEST_F(Tls_Trust, a_certificate_for_another_address_is_refused) {
  const kube_sim::Front front(api_, with(Kind::WRONG_NAME));
  log_.clear();
  EXPECT_FALSE(rest_works(front));
  EXPECT_FALSE(web_socket_opens(front));
  EXPECT_TRUE(front.requests().empty());
}

TEST_F(Tls_Trust, without_a_ca_file_the_systems_store_counts_and_does_not_know_the_server) {
  account_.remove_ca();
  expect_refused(front_, "certificate");
}

TEST_F(Tls_Trust, a_ca_file_that_holds_no_certificate_is_no_reason_for_another_one) {
  for (const char* content : {"", "nonsense", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}) {
    account_.set_ca(content);
    expect_refused(front_, "ca.crt");
  }
}

TEST_F(Tls_Trust, a_ca_file_that_can_not_be_read_is_no_reason_for_another_one) {
  account_.remove_ca();
  ASSERT_EQ(0, ::symlink("/nonexistent/ca.crt", ca_path().c_str()));
  expect_refused(front_, "ca.crt");
  account_.remove_ca();
  ASSERT_EQ(0, ::mkdir(ca_path().c_str(), 0700));
  expect_refused(front_, "ca.crt");
}

TEST_F(Tls_Trust, a_new_ca_file_counts_for_the_next_connection) {
  const kube_sim::Certificates others;
  const kube_sim::Front other(api_, {.certificates = &others});
  JSON_HTTP_Session session(Network_Test::session(other.port()), 0, 300);
  EXPECT_FALSE(get(session));
  EXPECT_FALSE(web_socket_opens(other));
  account_.set_ca(other.ca());
  EXPECT_TRUE(get(session)) << log_.all();
  EXPECT_TRUE(web_socket_opens(other)) << log_.all();
  EXPECT_FALSE(rest_works(front_)) << "the old CA is still trusted";
  EXPECT_FALSE(web_socket_opens(front_));
}

TEST_F(Tls_Trust, what_an_earlier_connection_has_verified_does_not_help_a_new_one) {
  JSON_HTTP_Session session(Network_Test::session(front_.port()), 0, 300);
  front_.fail({}, {.answer = kube_sim::Answer{200, "application/json", "{}", {{"Connection", "close"}}}});
  EXPECT_TRUE(get(session)) << log_.all();
  account_.set_ca(kube_sim::Certificates().ca());
  EXPECT_FALSE(get(session));
  EXPECT_EQ(1u, front_.requests().size());
}

}  // namespace
