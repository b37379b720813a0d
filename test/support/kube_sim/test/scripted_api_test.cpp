#include "support/kube_sim/scripted_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/kube_sim/front.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"

using namespace kube_sim;
using namespace kube_sim_test;

namespace {

struct Scripted_Api_Test : testing::Test {
  Scripted_Api api;
  Front front{api};
  Tls_Peer peer{front.port(), front.ca()};
};

TEST_F(Scripted_Api_Test, answers_in_order_and_is_content) {
  api.expect("GET", "/a?x=1", json_answer(200, "{}")).expect("GET", "/b", json_answer(404, "{\"code\":404}"));
  EXPECT_EQ(peer.reply_to("/a?x=1").body, "{}");
  EXPECT_EQ(peer.reply_to("/b").status, 404);
  EXPECT_EQ(api.verify(), "");
}

TEST_F(Scripted_Api_Test, tells_a_request_that_was_not_expected) {
  api.expect("GET", "/a", json_answer(200, "{}"));
  EXPECT_EQ(peer.reply_to("/b").status, 500);
  EXPECT_EQ(peer.reply_to("/a").status, 200);
  EXPECT_EQ(api.verify(), "came: GET /b, expected: GET /a\n");
}

TEST_F(Scripted_Api_Test, tells_a_request_that_did_not_come) {
  api.expect("DELETE", "/a", json_answer(200, "{}"));
  EXPECT_EQ(api.verify(), "did not come: DELETE /a\n");
}

TEST_F(Scripted_Api_Test, sends_the_lines_of_a_watch) {
  api.expect_watch("/a?watch=true", {"{1}", "{2}"});
  EXPECT_EQ(peer.reply_to("/a?watch=true").body, "{1}\n{2}\n");
  EXPECT_EQ(api.verify(), "");
}

TEST_F(Scripted_Api_Test, serves_an_upgrade) {
  api.expect_exec("/exec?command=a",
                  [] { return std::make_unique<Simple_Exec>([](Exec_Stream& s) { s.send(1, "out"); }); });
  EXPECT_EQ(peer.upgrade("/exec?command=a", "v4.channel.k8s.io").status, 101);
  EXPECT_EQ(peer.frame().payload, "\1out");
  EXPECT_EQ(api.verify(), "");
}

TEST_F(Scripted_Api_Test, refuses_an_upgrade_for_which_an_answer_is_expected) {
  api.expect("GET", "/exec", json_answer(400, "{}"));
  EXPECT_EQ(peer.upgrade("/exec", "v4.channel.k8s.io").status, 400);
  EXPECT_EQ(api.verify(), "");
}

}  // namespace
