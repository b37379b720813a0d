#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"

namespace client_io {
struct S3_Settings;
class S3_Session;
}  // namespace client_io

/**
 * The driver of "s3://": objects of a bucket, below a prefix.
 *
 * An object of up to 8 MiB is one PUT, a larger one a multipart upload in parts that are sent side by side while more
 * is written, each kept until the service has it: 8 MiB per writer, and up to Options::resumption_buffer_size, but 8 to
 * 24 MiB, beside that, of 64 MiB that all writers of the process share. Parts of objects beyond 10 GiB grow, and all
 * that with them. It becomes visible with the last request. Bodies are sent with SHA-256 and MD5, and their ETag is
 * checked.
 *
 * commit() without Options::overwrite looks whether the key exists and then makes the object on the condition that it
 * does not. Where the service ignores that condition, two writers that commit one key at the same moment may both
 * succeed, and the later one stands.
 *
 * A reader asks for the bytes of the object as it was opened (If-Match, and the ETag of the answer). An object of up to
 * 64 KiB is read when it is opened; a larger one that is replaced later fails to be read, with ESTALE.
 *
 * What is left of a writer after a cancel goes with the writer, which may take some seconds if the service is silent.
 * That is found out once for all clients of the service: list(), remove() and sweep() of clients canceled before fail
 * with ECANCELED then.
 *
 * list() fails with ENOENT, and a line, where there is no bucket, and with EIO where the service lists other keys than
 * were asked for. sweep() aborts uploads of other processes that were
 * begun more than a day ago, by the service's clock: whether their writers live nobody tells. It does nothing where the
 * service cannot list uploads.
 *
 * Requests that may do better later are sent again within Options::max_seconds_retry, see s3_session.h. A name of an
 * object (the pool's prefix, the root and the key) has at most 1024 bytes, of which a byte of a key beyond ASCII takes
 * two: a longer one fails with ENAMETOOLONG.
 *
 * Beside the contract's, errno may be EACCES (credentials, permissions, a server that is not trusted), ENAMETOOLONG,
 * EREMOTE (the bucket is in another region), ENOSYS, ETIMEDOUT, ECONNREFUSED, EHOSTUNREACH.
 */
class TESSARIN_API S3_Client_IO : public Client_IO_Base {
 public:
  explicit S3_Client_IO(const client_io::S3_Settings& settings);
  ~S3_Client_IO() override;

  std::unique_ptr<Writer> create(const std::string& key) override;
  std::unique_ptr<Reader> open(const std::string& key) override;
  bool list(const std::string& prefix, const List_Callback& each) override;
  bool remove(const std::string& key) override;
  bool sweep(const std::string& prefix) override;
  void cancel() override;

 private:
  const std::unique_ptr<client_io::S3_Session> session_;
};
