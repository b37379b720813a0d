#include "websvcs/job_progress.h"

#include <memory>

#include "json_rpc/json_rpc_dispatcher.h"
#include "json_spirit/extract.h"

namespace {

/// Keeps the answer, which comes before the dispatcher returns.
class Listening_Channel : public JSON_RPC_Channel {
 public:
  explicit Listening_Channel(std::shared_ptr<json_spirit::Value> answer) : answer_(std::move(answer)) {}

  int send(JSON_RPC_Object_var object) override {
    const auto* const response = dynamic_cast<const JSON_RPC_Response*>(object.get());
    if (response) *answer_ = response->result();
    return 0;
  }

 private:
  const std::shared_ptr<json_spirit::Value> answer_;
};

}  // namespace

bool ask_progress(const std::string& job_id, Job_Progress& progress) {
  JSON_RPC_Request* const request = new JSON_RPC_Request;
  const JSON_RPC_Object_var message(request);
  request->method("k8s.process");
  request->id(1);
  request->params().to_new_object()["job_id"] = job_id;
  const auto answer = std::make_shared<json_spirit::Value>();
  JSON_RPC_Dispatcher::instance()->dispatch(JSON_RPC_Channel_var(new Listening_Channel(answer)), message);
  if (answer->type() != json_spirit::obj_type) return false;
  Job_Progress read;
  json_spirit::extract(answer->get_obj())("processed", read.processed)("total", read.total)("speed", read.speed);
  progress = read;
  return true;
}
