#pragma once

#include <string>
#include <vector>

#include "http/http_request.h"
#include "http/http_response.h"
#include "http/json_http_session.h"
#include "k8s/api/k8s_session.h"

/**
 * Asks the API server whose bearer token it is: TokenReview of authentication.k8s.io/v1. A caller waits for the answer,
 * so that the time-outs are short and only what never reached the server is sent again, once.
 *
 * What it needs: the right to create "tokenreviews", as the cluster role "system:auth-delegator" gives it.
 * Threads: one at a time.
 */
class K8S_Token_Review : public K8S_Session {
 public:
  enum class Verdict {
    ACCEPTED,  ///< the token is good now, and made for one of the audiences
    REFUSED,   ///< it is not
    UNKNOWN    ///< the server could not be asked, or did not say; one line at LM_ERROR
  };

  /// @param audiences  what a token has to be made for, one of them; empty: the API server itself.
  explicit K8S_Token_Review(const std::vector<std::string>& audiences);

  /// To be called first. @retval false  the environment does not tell the server, see set_host_port().
  bool init() override;
  void set_request_token() override;

  /// @param user  receives the name of the one who has an accepted token, otherwise it is untouched:
  /// "system:serviceaccount:NAMESPACE:NAME" of a service account.
  Verdict review(const std::string& token, std::string& user);

 private:
  Verdict verdict_of(json_spirit::Value& answer, std::string& user) const;

  const std::vector<std::string> audiences_;
  JSON_HTTP_Session session_;
  HTTP_Response response_;
  HTTP_Request request_;
};
