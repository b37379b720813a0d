#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/socket_server.h"

namespace test_support {

/// A request as the service reads it.
struct S3_Call {
  std::string method;
  std::string path;   ///< decoded: "/bucket/name" or "/bucket"
  std::string query;  ///< as it was sent
  std::map<std::string, std::string> parameters;
  Wire_Message message;
};

struct S3_Reply {
  int status = 200;
  std::map<std::string, std::string> headers{};
  std::string body{};
  bool no_body = false;  ///< of HEAD: the length stands in the headers
};

/**
 * A small S3 service in memory, path style, for what a test has to see or to twist: it checks signatures and hashes,
 * keeps conditions, lists uploads in pages, and shows all that it was asked.
 *
 * Access key "access", secret "secret", region "us-east-1", bucket "bucket". Threads: any.
 */
class Fake_S3 {
 public:
  struct Object {
    std::string bytes;
    std::string etag;
    std::map<std::string, std::string> kept;  ///< headers that come back with it
  };
  struct Upload {
    std::string name;
    std::map<int, Object> parts;
    std::map<std::string, std::string> kept;
    std::string initiated;  ///< when it was begun
  };
  /// Answers in the place of the service, or leaves it to it.
  typedef std::function<std::optional<S3_Reply>(const S3_Call&)> Script;

  Fake_S3();

  std::string endpoint() const { return "http://127.0.0.1:" + std::to_string(server_.port()); }
  int port() const { return server_.port(); }

  void script(Script script);
  /// Names per page of a listing.
  void page_size(size_t names);
  std::vector<S3_Call> calls() const;
  /// Those with this method whose query begins so.
  size_t count(const std::string& method, const std::string& query = "") const;
  std::map<std::string, Object> objects() const;
  std::map<std::string, Upload> uploads() const;
  void put(const std::string& name, const std::string& bytes);
  /// @param initiated  as listings tell it.
  void begin_upload(const std::string& name, const std::string& id,
                    const std::string& initiated = "2020-02-28T23:59:59.000Z");

 private:
  void serve(int fd);
  S3_Reply answer(const S3_Call& call);
  S3_Reply answer_bucket(const S3_Call& call);
  S3_Reply answer_object(const S3_Call& call, const std::string& name);
  S3_Reply answer_get(const S3_Call& call, const Object& object);
  S3_Reply put_object(const S3_Call& call, const std::string& name, const std::string& bytes);
  S3_Reply answer_upload(const S3_Call& call, const std::string& name);
  S3_Reply list_objects(const S3_Call& call);
  S3_Reply list_uploads(const S3_Call& call);

  mutable std::mutex lock_;
  Script script_;  // guarded by lock_, as all that follows
  size_t page_size_ = 1000;
  std::vector<S3_Call> calls_;
  std::map<std::string, Object> objects_;
  std::map<std::string, Upload> uploads_;  // by id
  int next_id_ = 0;
  Socket_Server server_;
};

/// An answer with an error document.
S3_Reply s3_error(int status, const std::string& code);

}  // namespace test_support
