#include "support/kube_sim/service_account.h"

#include <gtest/gtest.h>

#include "support/kube_sim/test/simple_api.h"
#include "support/temp_dir.h"

using namespace kube_sim;
using test_support::read_file;

namespace {

const std::string directory = "/var/run/secrets/kubernetes.io/serviceaccount/";

TEST(Service_Account, gives_a_process_the_look_of_a_pod) {
  kube_sim_test::Simple_Api api;
  const Front front(api);
  const Service_Account account(front, "secret");
  EXPECT_EQ(read_file(directory + "token"), "secret");
  EXPECT_EQ(read_file(directory + "ca.crt"), front.ca());
  EXPECT_EQ(read_file(directory + "namespace"), "default");
  EXPECT_STREQ(std::getenv("KUBERNETES_SERVICE_HOST"), "127.0.0.1");
  EXPECT_EQ(std::getenv("KUBERNETES_SERVICE_PORT"), std::to_string(front.port()));
}

TEST(Service_Account, leaves_nothing_behind) {
  kube_sim_test::Simple_Api api;
  const Front front(api);
  { const Service_Account account(front); }
  EXPECT_FALSE(std::filesystem::exists(directory + "token"));
  EXPECT_EQ(std::getenv("KUBERNETES_SERVICE_HOST"), nullptr);
  EXPECT_EQ(std::getenv("KUBERNETES_SERVICE_PORT"), nullptr);
}

TEST(Service_Account, turns_the_token_and_the_ca_over) {
  kube_sim_test::Simple_Api api;
  const Front front(api), other(api);
  Service_Account account(front, "first");
  account.set_token("second\n");
  account.set_ca(other.ca());
  account.set_front(other);
  EXPECT_EQ(read_file(directory + "token"), "second\n");
  EXPECT_EQ(read_file(directory + "ca.crt"), other.ca());
  EXPECT_EQ(std::getenv("KUBERNETES_SERVICE_PORT"), std::to_string(other.port()));
  account.remove_token();
  EXPECT_FALSE(std::filesystem::exists(directory + "token"));
}

TEST(Sandbox, only_this_test_sees_the_directory_of_secrets) {
  EXPECT_TRUE(std::filesystem::is_empty("/run/secrets"));
  std::ofstream("/run/secrets/mark") << "x";
  EXPECT_EQ(std::system("test -e /proc/1/root/run/secrets/mark"), 1 << 8);
  std::filesystem::remove("/run/secrets/mark");
}

}  // namespace
