#include "support/kube_sim/certificates.h"

#include <gtest/gtest.h>

#include "support/kube_sim/front.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"

using namespace kube_sim;
using namespace kube_sim_test;

namespace {

bool trusted(Certificate_Kind kind, const std::string& name) {
  Simple_Api api;
  Front_Options options;
  options.certificate = kind;
  const Front front(api, options);
  Tls_Peer peer(front.port(), front.ca(), name);
  const bool connected = peer.connected();
  EXPECT_EQ(connected && peer.reply_to("/a").status == 200, connected);
  EXPECT_EQ(front.connections(), connected ? 1u : 0u);
  return connected;
}

TEST(Certificates, a_good_one_is_trusted_for_the_address_and_the_name) {
  EXPECT_TRUE(trusted(Certificate_Kind::GOOD, "127.0.0.1"));
  EXPECT_TRUE(trusted(Certificate_Kind::GOOD, "localhost"));
  EXPECT_FALSE(trusted(Certificate_Kind::GOOD, "other.example.com"));
}

TEST(Certificates, an_expired_one_is_not_trusted) {
  EXPECT_FALSE(trusted(Certificate_Kind::EXPIRED, "127.0.0.1"));
}

TEST(Certificates, one_of_another_ca_is_not_trusted) {
  EXPECT_FALSE(trusted(Certificate_Kind::OTHER_CA, "127.0.0.1"));
}

TEST(Certificates, a_self_signed_one_is_not_trusted) {
  EXPECT_FALSE(trusted(Certificate_Kind::SELF_SIGNED, "127.0.0.1"));
}

TEST(Certificates, one_of_another_name_is_trusted_for_that_name_alone) {
  EXPECT_FALSE(trusted(Certificate_Kind::WRONG_NAME, "127.0.0.1"));
  EXPECT_TRUE(trusted(Certificate_Kind::WRONG_NAME, "wrong.example.com"));
}

TEST(Certificates, those_of_one_authority_are_not_trusted_by_clients_of_another) {
  Simple_Api api;
  const Front front(api), other(api);
  EXPECT_TRUE(Tls_Peer(front.port(), front.ca()).connected());
  EXPECT_FALSE(Tls_Peer(front.port(), other.ca()).connected());
}

TEST(Certificates, fronts_may_share_an_authority) {
  Simple_Api api;
  const Certificates certificates;
  Front_Options options;
  options.certificates = &certificates;
  const Front front(api, options), other(api, options);
  EXPECT_TRUE(Tls_Peer(front.port(), certificates.ca()).connected());
  EXPECT_TRUE(Tls_Peer(other.port(), certificates.ca()).connected());
}

}  // namespace
