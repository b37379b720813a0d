#pragma once

#include "http/json_http_session.h"
#include "k8s/api/k8s_session.h"

/// A way to the API server for what nobody waits for: it gives up within seconds. One thread at a time.
class Event_Session : public K8S_Session {
 public:
  Event_Session();

  bool init() override;
  void set_request_token() override;
  bool post(const std::string& url, const json_spirit::Value& document) override;
  int response_status() override { return response_.status(); }

 private:
  JSON_HTTP_Session session_;
  HTTP_Request request_;
  HTTP_Response response_;
};
