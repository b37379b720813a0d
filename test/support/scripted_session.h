#pragma once

#include <string>
#include <vector>

#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_session.h"

namespace test_support {

/// One exchange that is expected, and how it ends.
struct Step {
  std::string request;            ///< "GET /api/v1/pods"
  int status = 0;                 ///< 0: there is no exchange, the verb fails
  std::string reply = "";         ///< JSON text; what is none, such as "", leaves the reader's value null
  std::string body = "";          ///< JSON text that must be sent, compared as a document; empty: whatever is sent
  std::string content_type = "";  ///< of a PATCH
  bool again = false;             ///< may be asked any number of times in a row, but at least once
};

/**
 * The API server of a unit test: answers the requests of K8S_Client from a script.
 *
 * Each request must be the next step of the script, with its verb, URL, body and content type; one that is not fails
 * the test and is answered as a broken connection. Steps that are left when the object dies fail the test too.
 *
 * Life: outlives the clients that it hands out. Threads: one at a time.
 */
class Scripted_Server {
 public:
  Scripted_Server() = default;
  explicit Scripted_Server(std::vector<Step> steps) : steps_(std::move(steps)) {}
  ~Scripted_Server();
  Scripted_Server(const Scripted_Server&) = delete;
  Scripted_Server& operator=(const Scripted_Server&) = delete;

  /// A client whose session is this script.
  K8S_Client_var client();
  void expect(Step step) { steps_.push_back(std::move(step)); }
  void expect_all(const std::vector<Step>& steps) { steps_.insert(steps_.end(), steps.begin(), steps.end()); }

  /// The requests so far, as the steps name them.
  const std::vector<std::string>& requests() const { return requests_; }
  /// The last document that was sent.
  const json_spirit::Value& sent() const { return sent_; }

 private:
  class Session;

  bool exchange(const std::string& request, const json_spirit::Value* body, const char* content_type);

  std::vector<Step> steps_;
  std::size_t next_ = 0;
  bool asked_ = false;  // the step next_ is one to be asked again, and has been asked
  std::vector<std::string> requests_;
  json_spirit::Value sent_;
  json_spirit::Value reply_;
  int status_ = 0;
};

/// The document of a JSON text; a text that is none fails the test.
json_spirit::Value json(const std::string& text);

}  // namespace test_support
