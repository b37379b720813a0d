#include "task/task_record.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

namespace {

json_spirit::Value time_or_null(int64_t time) {
  return time != 0 ? json_spirit::Value(time) : json_spirit::Value();
}

}  // namespace

json_spirit::Object to_object(const Task_Record& record) {
  json_spirit::Array errors;
  errors.reserve(record.errors.size());
  for (const std::string& error : record.errors) errors.emplace_back(error);

  json_spirit::Object object;
  object["id"] = record.id;
  object["type"] = record.type;
  object["kind"] = record.kind;
  object["state"] = record.state;
  if (record.ended()) object["result"] = record.result;
  object["created"] = record.created;
  object["started"] = time_or_null(record.started);
  object["finished"] = time_or_null(record.finished);
  object["errors"] = std::move(errors);
  object["errors_left_out"] = record.errors_left_out;
  return object;
}

std::string new_task_id() {
  std::random_device source;
  std::array<unsigned, 4> bits;
  for (unsigned& part : bits) part = source();
  bits[1] = (bits[1] & 0xFFFF0FFFU) | 0x00004000U;  // a random UUID says so by these bits
  bits[2] = (bits[2] & 0x3FFFFFFFU) | 0x80000000U;
  char text[37];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%04x-%04x%08x", bits[0], bits[1] >> 16, bits[1] & 0xFFFFU,
                bits[2] >> 16, bits[2] & 0xFFFFU, bits[3]);
  return text;
}

int64_t now_milliseconds() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}
