#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/process_exec.h"
#include "support/kube_sim/recorded_exec.h"
#include "support/kube_sim/scripted_exec.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"
#include "support/temp_dir.h"

using namespace kube_sim;
using namespace kube_sim_test;
using std::chrono::milliseconds;
using test_support::read_file;
using test_support::Temp_Dir;

namespace {

constexpr char v4[] = "v4.channel.k8s.io";

/// What a client saw of a command.
struct Seen {
  std::vector<std::string> payloads;
  std::string out, err, status;
  int last_opcode = -1;
};

struct Exec_Test : testing::Test {
  Temp_Dir dir;
  Simple_Api api;
  Front front{api};
  Tls_Peer peer{front.port(), front.ca()};

  void script(const Exec_Script& script) {
    api.on_exec = [script] { return std::make_unique<Scripted_Exec>(script, std::vector<std::string>{"ls", "-l"}); };
  }
  void shell(const std::string& text, bool with_input = false) { command({"/bin/sh", "-c", text}, with_input); }
  void command(std::vector<std::string> words, bool with_input = false) {
    api.on_exec = [this, words, with_input] { return std::make_unique<Process_Exec>(words, dir / "pod", with_input); };
  }
  Seen read() { return read(peer); }
  static Seen read(Tls_Peer& client) {
    Seen seen;
    Frame frame;
    while ((frame = client.frame()).opcode == 2 || frame.opcode == 1) {
      seen.payloads.push_back(frame.payload);
      if (frame.payload[0] == 1) seen.out += frame.payload.substr(1);
      if (frame.payload[0] == 2) seen.err += frame.payload.substr(1);
      if (frame.payload[0] == 3) seen.status += frame.payload.substr(1);
    }
    seen.last_opcode = frame.opcode;
    return seen;
  }
  Seen run(const std::string& protocol = v4) {
    EXPECT_EQ(peer.upgrade("/exec", protocol).status, 101);
    return read();
  }
};

constexpr char success[] = R"({"metadata":{},"status":"Success"})";

TEST_F(Exec_Test, a_script_begins_with_an_empty_frame_and_ends_with_close) {
  script(Exec_Script().output("a\n").exit(0));
  const Seen seen = run();
  EXPECT_THAT(seen.payloads, testing::ElementsAre("\1", "\1a\n", std::string("\3") + success));
  EXPECT_EQ(seen.last_opcode, 8);
}

TEST_F(Exec_Test, a_script_cuts_output_into_frames) {
  script(Exec_Script().output("abcde", 2).error_output("xyz", 2));
  EXPECT_THAT(run().payloads, testing::ElementsAre("\1", "\1ab", "\1cd", "\1e", "\2xy", "\2z"));
}

TEST_F(Exec_Test, a_script_tells_an_exit_code) {
  script(Exec_Script().exit(3));
  json_spirit::Value status, expected;
  ASSERT_TRUE(json_spirit::loads_json(run().status.c_str(), status));
  ASSERT_TRUE(json_spirit::loads_json(
      R"({"metadata":{},"status":"Failure","reason":"NonZeroExitCode","details":{"causes":[{"reason":"ExitCode","message":"3"}]},)"
      R"("message":"command terminated with non-zero exit code: error executing command [ls -l], exit code 3"})",
      expected));
  EXPECT_EQ(status, expected);
}

TEST_F(Exec_Test, a_script_may_send_nothing_at_all) {
  script(Exec_Script().without_first_frame().drop());
  const Seen seen = run();
  EXPECT_TRUE(seen.payloads.empty());
  EXPECT_EQ(seen.last_opcode, -1);
}

TEST_F(Exec_Test, a_script_drops_before_the_status) {
  script(Exec_Script().output("a").drop());
  const Seen seen = run();
  EXPECT_EQ(seen.out, "a");
  EXPECT_EQ(seen.last_opcode, -1);
}

TEST_F(Exec_Test, a_script_sends_a_status_that_is_no_json) {
  script(Exec_Script().frame(3, "no JSON"));
  EXPECT_EQ(run().status, "no JSON");
}

TEST_F(Exec_Test, a_script_sends_ten_megabytes) {
  script(Exec_Script().output(std::string(10'000'000, 'x')).exit(0));
  const Seen seen = run();
  EXPECT_EQ(seen.out.size(), 10'000'000u);
  EXPECT_EQ(seen.status, success);
}

TEST_F(Exec_Test, a_script_pauses_pings_and_waits_for_input) {
  script(Exec_Script().pause(milliseconds(50)).ping().await_input().close(1011, "over"));
  EXPECT_EQ(peer.upgrade("/exec", v4).status, 101);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(peer.frame().payload, "\1");
  EXPECT_EQ(peer.frame().opcode, 9);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(40));
  peer.send_frame(2, std::string("\0x", 2));
  EXPECT_EQ(peer.frame().payload, "\x03\xf3over");
}

TEST_F(Exec_Test, a_script_that_hangs_ends_with_the_front) {
  auto own = std::make_unique<Front>(api);
  script(Exec_Script().hang());
  Tls_Peer client(own->port(), own->ca());
  client.upgrade("/exec", v4);
  EXPECT_EQ(client.frame().payload, "\1");
  own.reset();
  EXPECT_EQ(client.frame().opcode, -1);
}

TEST_F(Exec_Test, without_a_protocol_there_is_no_status) {
  script(Exec_Script().output("a").exit(3));
  EXPECT_THAT(run("").payloads, testing::ElementsAre("\1", "\1a"));
}

TEST_F(Exec_Test, the_first_protocol_tells_a_failure_as_text) {
  script(Exec_Script().exit(3));
  EXPECT_EQ(run("channel.k8s.io").status,
            "command terminated with non-zero exit code: error executing command [ls -l], exit code 3");
}

TEST_F(Exec_Test, a_command_really_runs_in_its_directory) {
  shell("echo hello; pwd; echo oops >&2; echo made > file");
  const Seen seen = run();
  EXPECT_EQ(seen.payloads.at(0), "\1");
  EXPECT_EQ(seen.out, "hello\n" + (dir / "pod") + "\n");
  EXPECT_EQ(seen.err, "oops\n");
  EXPECT_EQ(seen.status, success);
  EXPECT_EQ(read_file(dir / "pod/file"), "made\n");
}

TEST_F(Exec_Test, a_command_that_fails_tells_its_exit_code) {
  shell("exit 3");
  EXPECT_THAT(run().status, testing::AllOf(testing::HasSubstr("[/bin/sh -c exit 3], exit code 3"),
                                           testing::HasSubstr(R"({"message":"3","reason":"ExitCode"})")));
}

TEST_F(Exec_Test, a_command_that_is_killed_tells_137) {
  shell("kill -9 $$");
  EXPECT_THAT(run().status, testing::HasSubstr("exit code 137"));
}

TEST_F(Exec_Test, a_program_that_is_not_there_is_told_as_status) {
  command({"/no/such/program"});
  const Seen seen = run();
  EXPECT_THAT(seen.status, testing::HasSubstr("InternalError"));
  EXPECT_THAT(seen.status, testing::HasSubstr("No such file or directory"));
}

TEST_F(Exec_Test, no_command_is_told_as_status) {
  command({});
  EXPECT_THAT(run().status, testing::HasSubstr("args must not be empty"));
}

TEST_F(Exec_Test, large_output_comes_whole_in_frames_of_at_most_32768_bytes) {
  shell("head -c 3000000 /dev/zero");
  const Seen seen = run();
  EXPECT_EQ(seen.out.size(), 3'000'000u);
  for (const std::string& payload : seen.payloads) EXPECT_LE(payload.size(), 32769u);
}

TEST_F(Exec_Test, a_command_reads_what_the_client_sends) {
  shell("read x; echo got $x", true);
  peer.upgrade("/exec", v4);
  peer.send_frame(2, std::string("\0first\n", 7));
  EXPECT_EQ(read().out, "got first\n");
}

TEST_F(Exec_Test, a_command_without_input_reads_nothing) {
  shell("cat; echo end");
  EXPECT_EQ(run().out, "end\n");
}

TEST_F(Exec_Test, the_input_ends_by_a_frame_of_the_fifth_protocol) {
  shell("cat; echo end", true);
  for (int i = 0; i < 10; ++i) {
    Tls_Peer client(front.port(), front.ca());
    client.upgrade("/exec", "v5.channel.k8s.io");
    client.send_frame(2, std::string("\0a", 2));
    client.send_frame(2, std::string("\xff\0", 2));
    EXPECT_EQ(read(client).out, "aend\n");
  }
}

TEST_F(Exec_Test, a_command_is_killed_with_its_children_when_the_client_goes_away) {
  shell("sleep 1000 & echo $!; wait");
  auto client = std::make_unique<Tls_Peer>(front.port(), front.ca());
  client->upgrade("/exec", v4);
  client->frame();
  const pid_t child = std::stoi(client->frame().payload.substr(1));
  EXPECT_EQ(kill(child, 0), 0);
  client.reset();
  // The child of the killed shell may stay as a zombie, for whoever inherits it.
  const auto gone = [&] {
    const std::string stat = "/proc/" + std::to_string(child) + "/stat";
    return !std::filesystem::exists(stat) || read_file(stat).find(") Z ") != std::string::npos;
  };
  for (int i = 0; i < 2000 && !gone(); ++i) std::this_thread::sleep_for(milliseconds(5));
  EXPECT_TRUE(gone());
}

struct Recorded_Exec_Test : Exec_Test {
  std::string refused(const std::string& name, Answer& answer) {
    return recorded_exec(TEST_DATA_DIR "/kube-api/exec-handshake.json", name, answer) ? "no" : "yes";
  }
  Seen play(const std::string& file, const std::string& name, const std::string& protocol = v4) {
    api.on_exec = [file, name] {
      Answer ignored;
      return recorded_exec(TEST_DATA_DIR "/kube-api/" + file, name, ignored);
    };
    return run(protocol);
  }
};

TEST_F(Recorded_Exec_Test, frames_come_as_they_were) {
  const Seen seen = play("exec-frames.json", "exit code 3 with output on both streams");
  EXPECT_THAT(seen.payloads, testing::ElementsAre("\1", "\1a\n", "\2b\n", testing::StartsWith("\3{")));
  EXPECT_THAT(seen.status, testing::HasSubstr("NonZeroExitCode"));
  EXPECT_EQ(seen.last_opcode, 8);
}

TEST_F(Recorded_Exec_Test, all_byte_values_arrive) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(play("exec-frames.json", "binary output, all 256 byte values").out, all);
}

TEST_F(Recorded_Exec_Test, text_frames_come_as_they_were) {
  const Seen seen = play("exec-handshake.json", "sub-protocol base64.channel.k8s.io", "base64.channel.k8s.io");
  EXPECT_EQ(seen.payloads.at(1), "1aGVsbG8K");
}

TEST_F(Recorded_Exec_Test, a_large_recording_is_whole) {
  EXPECT_EQ(play("exec-frames-large.json", "20000 numbered lines on stdout, about 109 kB").out.size(), 108'894u);
}

TEST_F(Recorded_Exec_Test, a_refused_handshake_is_refused_again) {
  Answer answer;
  EXPECT_EQ(refused("pod that does not exist", answer), "yes");
  EXPECT_EQ(answer.status, 404);
  EXPECT_THAT(answer.body, testing::HasSubstr(R"(pods \"nothing\" not found)"));
  EXPECT_EQ(refused("pod that has ended", answer), "yes");
  EXPECT_EQ(answer.status, 500);
  EXPECT_EQ(answer.body, "container not found (\"main\")");
  EXPECT_EQ(answer.content_type, "text/plain; charset=utf-8");
}

TEST_F(Recorded_Exec_Test, an_unknown_recording_throws) {
  Answer answer;
  EXPECT_ANY_THROW(refused("nothing like this", answer));
}

}  // namespace
