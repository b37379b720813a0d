#include "support/kube_sim/answer_text.h"

#include <boost/beast/http/status.hpp>
#include <boost/beast/zlib/deflate_stream.hpp>
#include <boost/crc.hpp>
#include <ctime>

namespace kube_sim {

namespace {

constexpr size_t chunk_size = 16 * 1024;
constexpr size_t compress_from = 128 * 1024;

std::string little_endian(uint32_t number) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xff);
  return bytes;
}

std::string gzip(const std::string& text) {
  namespace zlib = boost::beast::zlib;
  zlib::deflate_stream deflate;
  std::string packed(deflate.upper_bound(text.size()) + 64, '\0');
  zlib::z_params params{};
  params.next_in = text.data();
  params.avail_in = text.size();
  params.next_out = packed.data();
  params.avail_out = packed.size();
  boost::beast::error_code error;
  deflate.write(params, zlib::Flush::finish, error);
  packed.resize(params.total_out);
  boost::crc_32_type crc;
  crc.process_bytes(text.data(), text.size());
  const std::string head("\x1f\x8b\x08\0\0\0\0\0\0\xff", 10);
  return head + packed + little_endian(crc.checksum()) + little_endian(static_cast<uint32_t>(text.size()));
}

std::string date() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[64];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return text;
}

std::string hex(size_t number) {
  char text[32];
  std::snprintf(text, sizeof text, "%zx", number);
  return text;
}

}  // namespace

Answer compressed_for(const Request& request, Answer answer) {
  if (request.method != "GET" || answer.body.size() < compress_from) return answer;
  if (request.header("accept-encoding").find("gzip") == std::string::npos) return answer;
  answer.body = gzip(answer.body);
  answer.headers.emplace_back("Content-Encoding", "gzip");
  answer.headers.emplace_back("Vary", "Accept-Encoding");
  return answer;
}

std::string head_text(const Answer& answer, bool close) {
  const auto reason = boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(answer.status));
  std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " " + std::string(reason) + "\r\n";
  for (const auto& [name, value] : answer.headers) text += name + ": " + value + "\r\n";
  if (!answer.content_type.empty()) text += "Content-Type: " + answer.content_type + "\r\n";
  text += "Date: " + date() + "\r\n";
  text += answer.chunked ? "Transfer-Encoding: chunked\r\n"
                         : "Content-Length: " + std::to_string(answer.body.size()) + "\r\n";
  if (close) text += "Connection: close\r\n";
  return text + "\r\n";
}

std::string chunk(std::string_view bytes) {
  return hex(bytes.size()) + "\r\n" + std::string(bytes) + "\r\n";
}

std::string body_text(const Answer& answer, std::optional<size_t> cut_at) {
  const std::string_view body = answer.body;
  if (!answer.chunked) return std::string(body.substr(0, cut_at.value_or(body.npos)));
  std::string text;
  for (size_t from = 0; from < body.size(); from += chunk_size) {
    const std::string_view part = body.substr(from, chunk_size);
    if (cut_at && *cut_at < from + part.size())
      return text + hex(part.size()) + "\r\n" + std::string(part.substr(0, *cut_at - from));
    text += chunk(part);
  }
  if (!cut_at) text += last_chunk;
  return text;
}

}  // namespace kube_sim
