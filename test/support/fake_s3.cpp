#include "support/fake_s3.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <sstream>

#include "kolt/base64_encoder.h"

namespace test_support {

namespace {

constexpr char bucket_path[] = "/bucket";

std::string digest(const EVP_MD* kind, const std::string& bytes) {
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_Digest(bytes.data(), bytes.size(), hash, &size, kind, nullptr);
  return std::string(reinterpret_cast<const char*>(hash), size);
}

std::string hmac(const std::string& key, const std::string& text) {
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(text.data()),
       text.size(), hash, &size);
  return std::string(reinterpret_cast<const char*>(hash), size);
}

std::string hex(const std::string& bytes) {
  std::ostringstream text;
  for (const unsigned char byte : bytes) text << "0123456789abcdef"[byte >> 4] << "0123456789abcdef"[byte & 15];
  return text.str();
}

std::string time_now() {
  const time_t now = time(nullptr);
  struct tm parts;
  char text[32];
  gmtime_r(&now, &parts);
  return std::string(text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000Z", &parts));
}

std::string decoded(const std::string& text) {
  std::string out;
  for (size_t at = 0; at < text.size(); ++at) {
    out += text[at] == '%' ? static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16)) : text[at];
    if (text[at] == '%') at += 2;
  }
  return out;
}

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

S3_Call call_of(const Wire_Message& message) {
  S3_Call call;
  call.message = message;
  const std::vector<std::string> words = split(message.first_line, ' ');
  call.method = words.at(0);
  const size_t mark = words.at(1).find('?');
  call.path = decoded(words.at(1).substr(0, mark));
  if (mark != std::string::npos) call.query = words.at(1).substr(mark + 1);
  for (const std::string& pair : split(call.query, '&')) {
    const size_t equal = pair.find('=');
    call.parameters[decoded(pair.substr(0, equal))] = equal == pair.npos ? "" : decoded(pair.substr(equal + 1));
  }
  return call;
}

std::string part_behind(const std::string& text, const std::string& mark) {
  const size_t at = text.find(mark);
  if (at == text.npos) return {};
  const size_t begin = at + mark.size();
  return text.substr(begin, text.find(',', begin) - begin);
}

// Computed from what came over the wire.
std::string expected_signature(const S3_Call& call) {
  const Wire_Message& message = call.message;
  const std::string raw_path = split(split(message.first_line, ' ').at(1), '?').at(0);
  std::vector<std::string> query = split(call.query, '&');
  std::sort(query.begin(), query.end());
  std::string text = call.method + "\n" + raw_path + "\n";
  for (size_t i = 0; i < query.size(); ++i) text += (i == 0 ? "" : "&") + query[i];
  text += "\n";
  const std::string names = part_behind(message.header("authorization"), "SignedHeaders=");
  for (const std::string& name : split(names, ';')) text += name + ":" + message.header(name) + "\n";
  text += "\n" + names + "\n" + message.header("x-amz-content-sha256");
  const std::string time = message.header("x-amz-date");
  const std::string day = time.substr(0, 8);
  const std::string to_sign =
      "AWS4-HMAC-SHA256\n" + time + "\n" + day + "/us-east-1/s3/aws4_request\n" + hex(digest(EVP_sha256(), text));
  return hex(hmac(hmac(hmac(hmac(hmac("AWS4secret", day), "us-east-1"), "s3"), "aws4_request"), to_sign));
}

std::string refusal(const S3_Call& call) {
  const Wire_Message& message = call.message;
  const std::string md5 = message.header("content-md5");
  if (message.header("authorization").find("Credential=access/") == std::string::npos) return "InvalidAccessKeyId";
  if (part_behind(message.header("authorization"), "Signature=") != expected_signature(call))
    return "SignatureDoesNotMatch";
  for (const char* name : {"host", "range", "if-match", "if-none-match", "x-amz-security-token"})
    if (!message.header(name).empty() && (";" + part_behind(message.header("authorization"), "SignedHeaders=") + ";")
                                                 .find(std::string(";") + name + ";") == std::string::npos)
      return "AccessDenied";
  if (message.header("x-amz-content-sha256") != hex(digest(EVP_sha256(), message.body)))
    return "XAmzContentSHA256Mismatch";
  if (!md5.empty() && md5 != base64_encode(digest(EVP_md5(), message.body))) return "BadDigest";
  return {};
}

std::map<std::string, std::string> kept_headers(const S3_Call& call) {
  std::map<std::string, std::string> kept;
  for (const auto& [name, value] : call.message.headers)
    if (name.starts_with("x-amz-meta-") || name == "x-amz-server-side-encryption") kept[name] = value;
  return kept;
}

Fake_S3::Object object_of(const std::string& bytes, const std::map<std::string, std::string>& kept) {
  return {bytes, '"' + hex(digest(EVP_md5(), bytes)) + '"', kept};
}

std::string url_encoded(const std::string& text) {
  std::string out;
  for (const unsigned char c : text) {
    if (isalnum(c) || strchr("-._/*", c) != nullptr)
      out += static_cast<char>(c);
    else
      out += c == ' ' ? "+" : "%" + hex(std::string(1, static_cast<char>(c)));
  }
  return out;
}

std::string tag(const std::string& name, const std::string& text) {
  return "<" + name + ">" + text + "</" + name + ">";
}

}  // namespace

S3_Reply s3_error(int status, const std::string& code) {
  return {status, {}, "<?xml version=\"1.0\"?><Error><Code>" + code + "</Code><Message>of a test</Message></Error>"};
}

Fake_S3::Fake_S3() : server_([this](int fd) { serve(fd); }) {}

void Fake_S3::script(Script script) {
  const std::lock_guard<std::mutex> guard(lock_);
  script_ = std::move(script);
}

void Fake_S3::page_size(size_t names) {
  const std::lock_guard<std::mutex> guard(lock_);
  page_size_ = names;
}

std::vector<S3_Call> Fake_S3::calls() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return calls_;
}

size_t Fake_S3::count(const std::string& method, const std::string& query) const {
  const std::vector<S3_Call> all = calls();
  return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const S3_Call& call) {
    return call.method == method && call.query.starts_with(query);
  }));
}

std::map<std::string, Fake_S3::Object> Fake_S3::objects() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return objects_;
}

std::map<std::string, Fake_S3::Upload> Fake_S3::uploads() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return uploads_;
}

void Fake_S3::put(const std::string& name, const std::string& bytes) {
  const std::lock_guard<std::mutex> guard(lock_);
  objects_[name] = object_of(bytes, {});
}

void Fake_S3::begin_upload(const std::string& name, const std::string& id, const std::string& initiated) {
  const std::lock_guard<std::mutex> guard(lock_);
  uploads_[id] = {name, {}, {}, initiated};
}

void Fake_S3::serve(int fd) {
  std::string ahead;
  for (Wire_Message message; read_message(fd, ahead, message);) {
    const S3_Call call = call_of(message);
    S3_Reply reply = answer(call);
    if (call.method == "HEAD") reply.body.clear();
    std::string text = "HTTP/1.1 " + std::to_string(reply.status) + " Word\r\n";
    for (const auto& [name, value] : reply.headers) text += name + ": " + value + "\r\n";
    if (!reply.no_body) text += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    if (!write_all(fd, text + "\r\n" + reply.body) || message.header("connection") == "close") return;
  }
}

S3_Reply Fake_S3::answer(const S3_Call& call) {
  Script script;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    calls_.push_back(call);
    script = script_;
  }
  if (script)
    if (const auto scripted = script(call)) return *scripted;
  const std::lock_guard<std::mutex> guard(lock_);
  const std::string code = refusal(call);
  if (!code.empty()) return s3_error(code == "BadDigest" || code.starts_with("X") ? 400 : 403, code);
  if (call.path == bucket_path || call.path == std::string(bucket_path) + "/") return answer_bucket(call);
  if (!call.path.starts_with(std::string(bucket_path) + "/")) return s3_error(404, "NoSuchBucket");
  const std::string name = call.path.substr(sizeof bucket_path);
  return call.parameters.count("uploadId") != 0 || call.parameters.count("uploads") != 0 ? answer_upload(call, name)
                                                                                         : answer_object(call, name);
}

S3_Reply Fake_S3::answer_bucket(const S3_Call& call) {
  if (call.method == "GET" && call.parameters.count("uploads") != 0) return list_uploads(call);
  if (call.method == "GET" && call.parameters.count("list-type") != 0) return list_objects(call);
  return s3_error(405, "MethodNotAllowed");
}

S3_Reply Fake_S3::answer_object(const S3_Call& call, const std::string& name) {
  if (call.method == "PUT") return put_object(call, name, call.message.body);
  if (call.method == "DELETE") {
    objects_.erase(name);
    return {204};
  }
  const auto found = objects_.find(name);
  if (found == objects_.end()) return s3_error(404, "NoSuchKey");
  return answer_get(call, found->second);
}

S3_Reply Fake_S3::answer_get(const S3_Call& call, const Object& object) {
  const std::string condition = call.message.header("if-match");
  if (!condition.empty() && condition != object.etag) return s3_error(412, "PreconditionFailed");
  S3_Reply reply{200, object.kept, object.bytes};
  reply.headers["ETag"] = object.etag;
  if (call.method == "HEAD") {
    reply.headers["Content-Length"] = std::to_string(object.bytes.size());
    reply.no_body = true;
    return reply;
  }
  const std::string range = call.message.header("range");
  if (range.empty()) return reply;
  const size_t begin = std::stoull(range.substr(6));
  const size_t end = std::min<size_t>(std::stoull(range.substr(range.find('-') + 1)) + 1, object.bytes.size());
  if (begin >= object.bytes.size()) return s3_error(416, "InvalidRange");
  reply.status = 206;
  reply.body = object.bytes.substr(begin, end - begin);
  reply.headers["Content-Range"] =
      "bytes " + std::to_string(begin) + "-" + std::to_string(end - 1) + "/" + std::to_string(object.bytes.size());
  return reply;
}

S3_Reply Fake_S3::put_object(const S3_Call& call, const std::string& name, const std::string& bytes) {
  if (call.message.header("if-none-match") == "*" && objects_.count(name) != 0)
    return s3_error(412, "PreconditionFailed");
  objects_[name] = object_of(bytes, kept_headers(call));
  return {200, {{"ETag", objects_[name].etag}}};
}

S3_Reply Fake_S3::answer_upload(const S3_Call& call, const std::string& name) {
  if (call.parameters.count("uploads") != 0) {
    const std::string id = "id-" + std::to_string(++next_id_);
    uploads_[id] = {name, {}, kept_headers(call), time_now()};
    return {200, {}, tag("InitiateMultipartUploadResult", tag("UploadId", id))};
  }
  const auto found = uploads_.find(call.parameters.at("uploadId"));
  if (found == uploads_.end()) return s3_error(404, "NoSuchUpload");
  if (call.method == "DELETE") {
    uploads_.erase(found);
    return {204};
  }
  if (call.method == "PUT") {
    Object& part = found->second.parts[std::stoi(call.parameters.at("partNumber"))];
    part = object_of(call.message.body, {});
    return {200, {{"ETag", part.etag}}};
  }
  if (call.message.header("if-none-match") == "*" && objects_.count(name) != 0)
    return s3_error(412, "PreconditionFailed");
  std::string whole;
  std::string hashes;
  for (const auto& [number, part] : found->second.parts) {
    if (call.message.body.find(tag("PartNumber", std::to_string(number)) + tag("ETag", part.etag)) == std::string::npos)
      return s3_error(400, "InvalidPart");
    whole += part.bytes;
    hashes += digest(EVP_md5(), part.bytes);
  }
  Object object = object_of(whole, found->second.kept);
  object.etag = '"' + hex(digest(EVP_md5(), hashes)) + "-" + std::to_string(found->second.parts.size()) + '"';
  objects_[name] = object;
  uploads_.erase(found);
  return {200, {}, tag("CompleteMultipartUploadResult", tag("ETag", object.etag))};
}

S3_Reply Fake_S3::list_objects(const S3_Call& call) {
  const auto value = [&](const char* name) {
    const auto found = call.parameters.find(name);
    return found == call.parameters.end() ? std::string() : found->second;
  };
  std::string body = tag("EncodingType", "url");
  std::string last;
  size_t count = 0;
  for (const auto& [name, object] : objects_) {
    if (!name.starts_with(value("prefix")) || name <= value("continuation-token")) continue;
    if (count++ == page_size_)
      return {200, {}, tag("ListBucketResult", body + tag("IsTruncated", "true") + tag("NextContinuationToken", last))};
    body += tag("Contents", tag("Key", url_encoded(name)) + tag("Size", std::to_string(object.bytes.size())));
    last = name;
  }
  return {200, {}, tag("ListBucketResult", body + tag("IsTruncated", "false"))};
}

S3_Reply Fake_S3::list_uploads(const S3_Call& call) {
  const auto value = [&](const char* name) {
    const auto found = call.parameters.find(name);
    return found == call.parameters.end() ? std::string() : found->second;
  };
  std::map<std::pair<std::string, std::string>, int> sorted;
  for (const auto& [id, upload] : uploads_)
    if (upload.name.starts_with(value("prefix"))) sorted[{upload.name, id}];
  std::string body = tag("EncodingType", "url");
  size_t count = 0;
  std::pair<std::string, std::string> last;
  for (const auto& [place, unused] : sorted) {
    if (place <= std::pair(value("key-marker"), value("upload-id-marker"))) continue;
    if (count++ == page_size_)
      return {200,
              {},
              tag("ListMultipartUploadsResult", body + tag("IsTruncated", "true") +
                                                    tag("NextKeyMarker", url_encoded(last.first)) +
                                                    tag("NextUploadIdMarker", last.second))};
    body += tag("Upload", tag("Key", url_encoded(place.first)) + tag("UploadId", place.second) +
                              tag("Initiated", uploads_[place.second].initiated));
    last = place;
  }
  return {200, {}, tag("ListMultipartUploadsResult", body + tag("IsTruncated", "false"))};
}

}  // namespace test_support
