#include "ctl/commands.h"

#include <unistd.h>

#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ctl/agent.h"
#include "ctl/cluster_commands.h"
#include "ctl/dashboard.h"
#include "ctl/given_pool.h"
#include "ctl/human.h"
#include "ctl/interrupt.h"
#include "ctl/job.h"
#include "ctl/job_params.h"
#include "ctl/print.h"
#include "ctl/progress_view.h"
#include "ctl/secret.h"
#include "ctl/set_place.h"
#include "ctl/sets/pool_sets.h"
#include "ctl/sets/sets_commands.h"
#include "ctl/table.h"
#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "kolt/printable.h"

namespace ctl {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

std::string new_uuid() {
  std::ifstream in("/proc/sys/kernel/random/uuid");
  std::string uuid;
  if (!std::getline(in, uuid)) throw Failure(exit_usage, "The system gives no random id.");
  return uuid;
}

/// What an answer's object says, an empty object for anything else.
Object object_of(Value answer) {
  return answer.type() == json_spirit::obj_type ? std::move(answer.get_obj()) : Object();
}

void print_errors(std::ostream& err, const Job& job) {
  for (const std::string& error : job.errors) err << error << '\n';
  if (job.errors_left_out != 0) err << "and " << job.errors_left_out << " more errors, in the agent's log\n";
}

/// Starts a job, follows it to its end and tells how it ended. @a about goes into the JSON document.
Exit_Code run_job(const Options& options, Agent& agent, const char* method, const Object& params, Object about,
                  std::ostream& out, std::ostream& err) {
  const Interrupt interrupt;
  const Value answer = agent.call(method, params);
  if (answer.type() != json_spirit::str_type || answer.get_str().empty())
    throw Failure(exit_refused, "The agent took no job.");
  const std::string id = answer.get_str();

  Job job;
  {
    Progress_View view(err, options.json ? Progress_View::silent : Progress_View::mode_for_stderr());
    view.say("Job " + id);
    job = watch_job(agent, id, view, interrupt);
  }
  if (options.json) {
    about["job"] = job.document;
    print_json(out, about);
  } else if (job.state == "completed") {
    out << "Completed in " << human_duration(job.seconds()) << ": " << human_size(job.size);
    if (job.storage_size != 0) out << ", " << human_size(job.storage_size) << " stored";
    out << '\n';
  }
  print_errors(err, job);
  if (job.state != "completed") err << "The job is " << job.state << ".\n";
  return job.exit_code();
}

Object about_sets(const Set_Place& place, const std::vector<Volume>& volumes, uint32_t seq) {
  Array names;
  for (const Volume& volume : volumes) names.emplace_back(volume.name);
  Object about;
  json_spirit::insert(about)("pool", shown_url(place.pool.url))("host_uuid", place.host)("resource", place.resource)(
      "seq", seq)("names", names);
  return about;
}

Exit_Code backup(const Options& options, std::ostream& out, std::ostream& err) {
  const std::vector<Volume> volumes = backup_volumes(options);
  Agent agent(options.agent, trust_of(options));
  const Set_Place place = place_of_job(options, agent);
  const uint32_t seq = options.seq ? *options.seq : next_seq(place, volumes);
  const Exit_Code code = run_job(options, agent, "k8s.backup", backup_params(options, place, volumes, seq, new_uuid()),
                                 about_sets(place, volumes, seq), out, err);
  if (code != exit_ok || options.json) return code;
  for (const Volume& volume : volumes) out << "Set " << volume.name << ", number " << seq << '\n';
  return code;
}

Exit_Code restore(const Options& options, std::ostream& out, std::ostream& err) {
  const std::vector<Volume> volumes = restore_volumes(options);
  Agent agent(options.agent, trust_of(options));
  const Set_Place place = place_of_job(options, agent);
  const uint64_t size = size_of_sets(place, volumes, *options.seq, options.incarnation);
  return run_job(options, agent, "k8s.restore", restore_params(options, place, volumes, size),
                 about_sets(place, volumes, *options.seq), out, err);
}

Exit_Code jobs(const Options& options, std::ostream& out, std::ostream&) {
  Agent agent(options.agent, trust_of(options));
  Array documents;
  Table table({"JOB", "KIND", "STATE", "CREATED", ">TIME", ">SIZE", ">STORED", "FIRST ERROR"});
  for (const Job& job : list_jobs(agent, options.limit)) {
    documents.emplace_back(job.document);
    const bool has_size = job.state == "completed";
    table.add({job.id, job.kind, job.state, human_time(job.created / 1000),
               job.started != 0 ? human_duration(job.seconds()) : "", has_size ? human_size(job.size) : "",
               job.storage_size != 0 ? human_size(job.storage_size) : "",
               job.errors.empty() ? "" : printable(job.errors.front())});
  }
  if (options.json) {
    Object document;
    document["tasks"] = std::move(documents);
    print_json(out, document);
  } else {
    table.print(out);
  }
  return exit_ok;
}

void print_job(std::ostream& out, const Job& job, const Progress& progress) {
  out << "Job       " << job.id << "\nKind      " << job.kind << "\nState     " << job.state << "\nCreated   "
      << human_time(job.created / 1000) << "\nStarted   " << human_time(job.started / 1000) << "\nFinished  "
      << human_time(job.finished / 1000) << '\n';
  if (job.started != 0) out << "Time      " << human_duration(job.seconds()) << '\n';
  if (!job.ended()) out << "Progress  " << progress_text(progress) << '\n';
  if (job.state == "completed") out << "Size      " << human_size(job.size) << '\n';
  if (job.storage_size != 0) out << "Stored    " << human_size(job.storage_size) << '\n';
}

Exit_Code status(const Options& options, std::ostream& out, std::ostream& err) {
  Agent agent(options.agent, trust_of(options));
  Job job = find_job(agent, options.job);
  if (options.watch && !job.ended()) {
    const Interrupt interrupt;
    Progress_View view(err, options.json ? Progress_View::silent : Progress_View::mode_for_stderr());
    job = watch_job(agent, job.id, view, interrupt);
  }
  const Progress progress = job_progress(agent, job.id);
  if (options.json) {
    Object document = job.document;
    json_spirit::insert(document)("processed", progress.processed)("total", progress.total)("speed", progress.speed);
    print_json(out, document);
  } else {
    print_job(out, job, progress);
  }
  print_errors(err, job);
  return job.exit_code();
}

Exit_Code cancel(const Options& options, std::ostream& out, std::ostream&) {
  Agent agent(options.agent, trust_of(options));
  Array ids;
  for (const Job& job : list_jobs(agent, 0))
    if (job.state == "running") ids.emplace_back(job.id);
  agent.call("k8s.cancel_job", Object());
  if (options.json) {
    Object document;
    document["canceling"] = ids;
    print_json(out, document);
    return exit_ok;
  }
  for (const std::string& id : ids | json_spirit::get_str) out << "Canceling job " << id << '\n';
  if (ids.empty()) out << "No job is running.\n";
  return exit_ok;
}

Exit_Code size(const Options& options, std::ostream& out, std::ostream&) {
  Agent agent(options.agent, trust_of(options));
  Object params;
  params["path"] = backup_volumes(options).front().pattern;
  const Object answer = object_of(agent.call("k8s.get_pvc_size", params, std::chrono::seconds(0)));
  unsigned long bytes = 0;
  if (!json_spirit::object_get(answer, "size", bytes)) throw Failure(exit_refused, "The agent's answer holds no size.");
  if (options.json)
    print_json(out, answer);
  else
    out << human_size(bytes) << '\n';
  return exit_ok;
}

Exit_Code info(const Options& options, std::ostream& out, std::ostream&) {
  Agent agent(options.agent, trust_of(options));
  const Object info = object_of(agent.call("agent.info", Object()));
  if (options.json) {
    print_json(out, info);
    return exit_ok;
  }
  for (const auto& [key, value] : info)
    out << key << ": "
        << (value.type() == json_spirit::str_type ? value.get_str() : json_spirit::JSON_Dump(value, false).str())
        << '\n';
  return exit_ok;
}

Exit_Code secret_encrypt(const Options& options, std::ostream& out, std::ostream&) {
  const std::string secret = encrypt_secret(options.public_key, STDIN_FILENO);
  if (options.json) {
    Object document;
    document["secret"] = secret;
    print_json(out, document);
  } else {
    out << secret << '\n';
  }
  return exit_ok;
}

Exit_Code dashboard(const Options& options, std::ostream& out, std::ostream&) {
  return run_dashboard(options, out);
}

}  // namespace

Exit_Code run_command(const Options& options, std::ostream& out, std::ostream& err) {
  if (options.cluster.asked) return cluster_commands().at(options.command)(options, out, err);
  if (options.sets.asked) return sets_commands().at(options.command)(options, out, err);
  static const std::map<std::string, Command> commands = {
      {"backup", backup},      {"restore", restore}, {"jobs", jobs}, {"status", status},
      {"cancel", cancel},      {"size", size},       {"info", info}, {"secret encrypt", secret_encrypt},
      {"dashboard", dashboard}};
  return commands.at(options.command)(options, out, err);
}

}  // namespace ctl
