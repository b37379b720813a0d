#include "ctl/exec.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <vector>

#include "ctl/cluster_view.h"
#include "ctl/exec_session.h"
#include "ctl/print.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_pod.h"
#include "kolt/http_util.h"
#include "kolt/natoi.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr int greatest_exit_status = 255;

std::vector<std::string> names_at(const Value& pod, const char* path) {
  const Array* containers = nullptr;
  json_spirit::pextract(pod)(path, containers);
  std::vector<std::string> names;
  if (containers)
    for (const Value& container : *containers) names.push_back(text_at(container, "/name"));
  return names;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// Ends the command, with a text that helps, where the server would only refuse it.
void check_target(const Cluster_Options& options, const Value& pod) {
  const std::string phase = text_at(pod, "/status/phase"), the_pod = "The pod '" + options.name + "' ";
  if (phase != "Running") throw Failure(exit_usage, the_pod + "is not running, but " + phase + ".");
  std::vector<std::string> names = names_at(pod, "/spec/containers");
  if (options.container.empty() && names.size() > 1)
    throw Failure(exit_usage, the_pod + "has several containers; -c must name one of them: " + joined(names) + ".");
  for (const char* const path : {"/spec/initContainers", "/spec/ephemeralContainers"})
    for (std::string& name : names_at(pod, path)) names.push_back(std::move(name));
  if (!options.container.empty() && std::find(names.begin(), names.end(), options.container) == names.end())
    throw Failure(exit_usage, the_pod + "has no container '" + options.container + "'. It has: " + joined(names) + ".");
}

std::string exec_url(const Cluster_Options& options) {
  std::string url = "/api/v1/namespaces/" + namespace_or_default(options) + "/pods/" + options.name + "/exec?";
  HTTP_Query_String_Builder_string query(std::back_inserter(url), false);
  query("stdout", "True")("stderr", "True");
  if (!options.container.empty()) query("container", options.container.c_str());
  // Not by the builder: it writes a space as '+', which only forms mean as a space.
  for (const std::string& word : options.words) {
    url += "&command=";
    http_encode_string(word.c_str(), HUT_FLAG_JS_ENCODE_URI_COMPONENT, url);
  }
  return url;
}

/// How the command ended.
struct End {
  Exit_Code code = exit_job_failed;
  bool known = false;   ///< the code is the command's own
  std::string message;  ///< what to tell of it; empty: it succeeded
};

End end_of(const Value& status) {
  if (text_at(status, "/status") == "Success") return {exit_ok, true, ""};
  const Array* causes = nullptr;
  json_spirit::pextract(status)("/details/causes", causes);
  if (causes)
    for (const Value& cause : *causes) {
      const int code = text_at(cause, "/reason") == "ExitCode" ? natoi<int>(text_at(cause, "/message").c_str()) : 0;
      if (code > 0 && code <= greatest_exit_status)
        return {static_cast<Exit_Code>(code), true, "The command ended with exit code " + std::to_string(code) + "."};
    }
  const std::string message = text_at(status, "/message");
  return {exit_job_failed, false,
          message.empty() ? "The command was not run to its end. --verbose tells why." : message};
}

}  // namespace

Exit_Code exec(const Options& options, std::ostream& out, std::ostream& err) {
  Cluster_View view(options.cluster);
  K8S_Pod pods(view.client(), namespace_or_default(options.cluster));
  Value pod, status;
  if (!pods.get(options.cluster.name, pod, true)) view.fail("The pod '" + options.cluster.name + "' cannot be read");
  check_target(options.cluster, pod);
  std::ostringstream kept_out, kept_err;
  Exec_Session session;
  static_cast<void>(
      session.run(exec_url(options.cluster), options.json ? kept_out : out, options.json ? kept_err : err, status));
  const End end = end_of(status);
  if (options.json)
    print_json(out, Object{{"exit_code", end.known ? Value(static_cast<std::int64_t>(end.code)) : Value()},
                           {"stdout", kept_out.str()},
                           {"stderr", kept_err.str()},
                           {"message", end.message}});
  if (!end.message.empty()) err << "tessarinctl: " << end.message << std::endl;
  return end.code;
}

}  // namespace ctl
