#include "support/kube_sim/test/tls_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace kube_sim_test {

namespace {

constexpr timeval patience{20, 0};

void trust(SSL_CTX* context, const std::string& ca) {
  BIO* memory = BIO_new_mem_buf(ca.data(), static_cast<int>(ca.size()));
  X509* cert = PEM_read_bio_X509(memory, nullptr, nullptr, nullptr);
  if (cert != nullptr) X509_STORE_add_cert(SSL_CTX_get_cert_store(context), cert);
  X509_free(cert);
  BIO_free(memory);
}

std::map<std::string, std::string> headers_of(const std::string& head) {
  std::map<std::string, std::string> headers;
  for (size_t from = head.find("\r\n") + 2; from < head.size();) {
    const size_t end = head.find("\r\n", from);
    const size_t colon = head.find(": ", from);
    if (colon >= end) break;
    std::string name = head.substr(from, colon - from);
    std::transform(name.begin(), name.end(), name.begin(), ::tolower);
    headers[name] = head.substr(colon + 2, end - colon - 2);
    from = end + 2;
  }
  return headers;
}

}  // namespace

Tls_Peer::Tls_Peer(unsigned short port, const std::string& ca, const std::string& name)
    : context_(SSL_CTX_new(TLS_client_method()), SSL_CTX_free), ssl_(nullptr, SSL_free) {
  std::signal(SIGPIPE, SIG_IGN);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return;
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  trust(context_.get(), ca);
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
  ssl_.reset(SSL_new(context_.get()));
  X509_VERIFY_PARAM* param = SSL_get0_param(ssl_.get());
  if (X509_VERIFY_PARAM_set1_ip_asc(param, name.c_str()) != 1) X509_VERIFY_PARAM_set1_host(param, name.c_str(), 0);
  SSL_set_fd(ssl_.get(), socket_);
  connected_ = SSL_connect(ssl_.get()) == 1;
}

Tls_Peer::~Tls_Peer() {
  close(socket_);
}

void Tls_Peer::send(std::string_view bytes) {
  SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size()));
}

void Tls_Peer::get(const std::string& target, const std::string& more) {
  send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + more + "\r\n");
}

bool Tls_Peer::fill() {
  char bytes[64 * 1024];
  int count;
  do {
    ERR_clear_error();
    errno = 0;
    count = SSL_read(ssl_.get(), bytes, sizeof bytes);
  } while (count <= 0 && errno == EINTR);
  if (count > 0) {
    buffer_.append(bytes, count);
    return true;
  }
  const bool reset = SSL_get_error(ssl_.get(), count) == SSL_ERROR_SYSCALL && errno == ECONNRESET;
  state_ = reset ? State::RESET : State::CLOSED;
  return false;
}

std::string Tls_Peer::read_to(const std::string& mark) {
  size_t found;
  while ((found = buffer_.find(mark)) == std::string::npos && fill()) continue;
  return read(found == std::string::npos ? buffer_.size() : found + mark.size());
}

std::string Tls_Peer::read(size_t length) {
  while (buffer_.size() < length && fill()) continue;
  const std::string taken = buffer_.substr(0, length);
  buffer_.erase(0, taken.size());
  return taken;
}

std::string Tls_Peer::read_all() {
  while (fill()) continue;
  return read(buffer_.size());
}

State Tls_Peer::state(std::chrono::milliseconds wait) {
  pollfd state{socket_, POLLIN, 0};
  while (state_ == State::OPEN && poll(&state, 1, static_cast<int>(wait.count())) > 0) fill();
  return state_;
}

Reply Tls_Peer::reply() {
  Reply reply;
  reply.head = read_to("\r\n\r\n");
  if (!reply.head.ends_with("\r\n\r\n")) return reply;
  reply.status = std::stoi(reply.head.substr(9, 3));
  reply.headers = headers_of(reply.head);
  if (reply.headers.count("transfer-encoding") == 0) {
    const size_t length = reply.headers.count("content-length") == 0 ? 0 : std::stoul(reply.headers["content-length"]);
    reply.body = read(length);
    reply.whole = reply.body.size() == length;
    return reply;
  }
  for (;;) {
    const std::string line = read_to("\r\n");
    if (!line.ends_with("\r\n")) return reply;
    const size_t length = std::stoul(line, nullptr, 16);
    const std::string part = read(length + 2);
    reply.body += part.substr(0, length);
    if (part.size() != length + 2) return reply;
    if (length == 0) break;
  }
  reply.whole = true;
  return reply;
}

Reply Tls_Peer::upgrade(const std::string& target, const std::string& protocols) {
  std::string more =
      "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
      "dGhlIHNhbXBsZSBub25jZQ==\r\n";
  if (!protocols.empty()) more += "Sec-WebSocket-Protocol: " + protocols + "\r\n";
  return reply_to(target, more);
}

Frame Tls_Peer::frame() {
  const std::string head = read(2);
  if (head.size() < 2) return {};
  size_t length = static_cast<unsigned char>(head[1]) & 0x7f;
  if (length >= 126) {
    const std::string bytes = read(length == 126 ? 2 : 8);
    length = 0;
    for (const unsigned char byte : bytes) length = length << 8 | byte;
  }
  Frame frame{head[0] & 0x0f, read(length)};
  if (frame.payload.size() != length) frame.opcode = -1;
  return frame;
}

void Tls_Peer::send_frame(int opcode, const std::string& payload) {
  const std::string mask("\x11\x22\x33\x44", 4);
  std::string bytes{static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | payload.size())};
  bytes += mask;
  for (size_t i = 0; i < payload.size(); ++i) bytes += static_cast<char>(payload[i] ^ mask[i % 4]);
  send(bytes);
}

}  // namespace kube_sim_test
