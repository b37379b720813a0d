#pragma once

#include <typeinfo>

#include "json_spirit/dump.h"
#include "k8s/api/k8s_cluster.h"
#include "kolt/string_sprintf.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/recorded.h"
#include "support/scripted_session.h"

namespace test_support {

/// A test of a resource class: a scripted server, a clock that makes waits pass at once, and the log.
class Resource_Fixture : public testing::Test {
 protected:
  ~Resource_Fixture() override { K8S_Cluster::close_instance(); }

  /// What the lines at LM_EMERGENCY tell, without line number and stack trace: "k8s/api/k8s_pv.cpp, client_ is NULL:".
  std::vector<std::string> emergencies() const {
    std::vector<std::string> result;
    for (const std::string& text : log.texts(LM_EMERGENCY)) {
      std::string line = text.substr(0, text.find('\n'));
      const std::string start = "Unexpected error in ";
      EXPECT_EQ(line.compare(0, start.size(), start), 0) << line;
      line.erase(0, start.size());
      const std::size_t path = line.find("k8s/");  // a compiler cache may have given the compiler relative paths
      if (path != line.npos) line.erase(0, path);
      const std::size_t colon = line.find(':');
      line.erase(colon, line.find(',', colon) - colon);
      result.push_back(line);
    }
    return result;
  }
  std::vector<std::string> errors() const { return log.texts(LM_ERROR); }
  /// Neither an error nor worse.
  bool nothing_logged() const { return errors().empty() && emergencies().empty() && log.texts(LM_WARNING).empty(); }

  std::vector<std::string> requests() const { return server.requests(); }
  std::size_t sleeps() const { return clock.sleeps().size(); }
  long slept_sec() const {
    std::chrono::milliseconds sum(0);
    for (const auto span : clock.sleeps()) sum += span;
    return std::chrono::duration_cast<std::chrono::seconds>(sum).count();
  }

  Fake_Clock clock;
  Log_Capture log;
  Scripted_Server server;
};

/// What a failed get() of @a T logs; an empty @a reply is none.
template <typename T>
std::string get_failure(const std::string& name, const std::string& reply, int status) {
  const json_spirit::Value val = reply.empty() ? json_spirit::Value() : json(reply);
  return string_sprintf("Failed to get type %s name %s info\n%s\n type %d status %d\n", typeid(T).name(), name.c_str(),
                        json_spirit::JSON_Dump(val, true).c_str(), val.type(), status);
}

template <typename T>
std::string list_failure(const std::string& reply, int status) {
  const json_spirit::Value val = reply.empty() ? json_spirit::Value() : json(reply);
  return string_sprintf("Failed to list type %s value\n%s\n type %d status %d\n", typeid(T).name(),
                        json_spirit::JSON_Dump(val, true).c_str(), val.type(), status);
}

template <typename T>
std::string create_failure(const json_spirit::Value& sent, int status) {
  return string_sprintf("Failed to create type %s info\n%s\n type %d status %d\n", typeid(T).name(),
                        json_spirit::JSON_Dump(sent, true).c_str(), sent.type(), status);
}

inline const char not_found[] = R"({"kind":"Status","status":"Failure","reason":"NotFound","code":404})";
inline const char forbidden[] = R"({"kind":"Status","status":"Failure","reason":"Forbidden","code":403})";

}  // namespace test_support
