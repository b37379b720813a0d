#include "ctl/set_place.h"

#include "ctl/failure.h"
#include "ctl/given_pool.h"
#include "json_spirit/json_spirit_helper.h"

namespace ctl {

using json_spirit::Object;
using json_spirit::Value;

Set_Place place_of_job(const Options& options, Agent& agent) {
  Set_Place place{given_pool(options), options.host, options.resource};
  std::string& url = place.pool.url;
  if (!url.empty() && !place.host.empty()) return place;
  const Value answer = agent.call("agent.info", Object());
  const Object info = answer.type() == json_spirit::obj_type ? answer.get_obj() : Object();
  if (url.empty()) json_spirit::object_get(info, "pool", url);
  std::string state_dir;
  if (url.empty() && json_spirit::object_get(info, "state_dir", state_dir)) url = pool_url(state_dir + "/pool");
  if (place.host.empty()) json_spirit::object_get(info, "host_uuid", place.host);
  if (url.empty()) throw Failure(exit_usage, "The agent tells no pool: give one with --pool.");
  if (place.host.empty()) throw Failure(exit_usage, "The agent does not tell its host's id: give one with --host.");
  return place;
}

}  // namespace ctl
