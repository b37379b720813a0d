#include "http/websocket_client.h"

#include <algorithm>
#include <boost/beast/websocket/ssl.hpp>
#include <memory>

#include "ace/Log_Msg.h"
#include "ace/Time_Value.h"
#include "http/request_fault.h"
#include "kolt/printable.h"

namespace websocket_client {

namespace {

constexpr std::size_t max_message = 32 * 1024 * 1024;
/// Of the frames and TLS records of a message, however many there are.
constexpr long long max_overhead = 1024 * 1024;
constexpr long long overhead_share = 16;
constexpr std::size_t control_frame_overhead = 128;
constexpr std::size_t head_bytes = 512;
constexpr std::chrono::seconds usual_ping_period(30);
constexpr std::chrono::seconds closing_time(2);

/// A time-out may be larger than what a clock can add; a year is long enough for all of them.
Clock::duration span_of(const ACE_Time_Value& timeout) {
  constexpr time_t year = 365 * 24 * 3600;
  return std::chrono::seconds(std::min(timeout.sec(), year)) + std::chrono::microseconds(timeout.usec());
}

std::string beginning(const std::string& text) {
  return printable(std::string_view(text).substr(0, head_bytes));
}

}  // namespace

template <typename Stream>
template <typename Start>
error_code Client<Stream>::run(Clock::time_point deadline, Start start) {
  const auto result = std::make_shared<Result>();  // outlives a wait that is given up
  start([result](const error_code& error, auto&&...) { *result = error; });
  io_.restart();
  while (!*result && Clock::now() < deadline) io_.run_one_until(deadline);
  if (*result) return **result;
  drop();
  return beast::error::timeout;
}

template <typename Stream>
void Client<Stream>::drop() {
  if (socket_) beast::get_lowest_layer(*socket_).close();
  state_ = HTTP_SOCK_STATE_CLOSED;
}

template <typename Stream>
int Client<Stream>::fail(const char* what, const std::string& why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to %C %C:%d: %C.\n"), what, target_.host.c_str(),
             static_cast<int>(target_.port), printable(why).c_str()));
  drop();
  return -1;
}

template <typename Stream>
int Client<Stream>::connect() {
  if (state_ != HTTP_SOCK_STATE_CLOSED) return fail("connect a second time to", "it is connected");
  state_ = HTTP_SOCK_STATE_CONNECTING;
  const Clock::time_point deadline = limit();
  if (!make_socket()) return -1;
  if (const error_code error = connect_tcp(deadline)) return fail("connect to", error.message());
  if constexpr (tls) {
    if (connect_tls(deadline) == -1) return -1;
  }
  state_ = HTTP_SOCK_STATE_CONNECTED;
  return 0;
}

template <typename Stream>
bool Client<Stream>::make_socket() {
  closed_ = false;
  end_.reset();
  pinging_ = false;
  if constexpr (tls) {
    error_code error;
    context_.emplace(tls_context(error));
    if (error) {
      fail("trust any issuer for", error.message());
      return false;
    }
    socket_.emplace(io_, *context_);
  } else {
    socket_.emplace(io_);
  }
  return true;
}

template <typename Stream>
error_code Client<Stream>::connect_tcp(Clock::time_point deadline) {
  net::ip::tcp::resolver resolver(io_);
  const auto found = std::make_shared<net::ip::tcp::resolver::results_type>();
  error_code error = run(deadline, [&](auto done) {
    resolver.async_resolve(bare_host(target_.host), std::to_string(target_.port),
                           [found, done](const error_code& fault, const auto& results) {
                             *found = results;
                             done(fault);
                           });
  });
  for (const auto& entry : *found) {
    error = connect_tcp(entry.endpoint(), deadline);
    if (!error || error == beast::error::timeout) break;
  }
  return error;
}

template <typename Stream>
error_code Client<Stream>::connect_tcp(const net::ip::tcp::endpoint& endpoint, Clock::time_point deadline) {
  auto& stream = beast::get_lowest_layer(*socket_);
  auto& socket = stream.socket();
  error_code error;
  socket.close(error);
  socket.open(endpoint.protocol(), error);
  if (!error && !target_.local_address.empty()) {
    const auto local = net::ip::make_address(target_.local_address, error);
    if (!error) socket.bind({local, 0}, error);
  }
  if (error) return error;
  error = run(deadline, [&](auto done) { stream.async_connect(endpoint, done); });
  if (error) return error;
  socket.set_option(net::ip::tcp::no_delay(true), error);
  socket.set_option(net::socket_base::keep_alive(true), error);
  return {};
}

template <typename Stream>
int Client<Stream>::connect_tls(Clock::time_point deadline) {
  if constexpr (tls) {
    TLS_Stream& stream = socket_->next_layer();
    expect_name(stream, target_.host);
    const error_code error =
        run(deadline, [&](auto done) { stream.async_handshake(net::ssl::stream_base::client, done); });
    if (error) return fail("make a TLS connection to", tls_reason(stream, error));
  }
  return 0;
}

template <typename Stream>
int Client<Stream>::handshake() {
  if (state_ != HTTP_SOCK_STATE_CONNECTED) return fail("open a WebSocket to", "it is not connected");
  if (const char* fault = request_fault(request_)) return fail("open a WebSocket to", fault);
  state_ = HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKING;
  prepare_handshake();
  const std::string authority = target_.host + ':' + std::to_string(target_.port);
  const error_code error =
      run(limit(), [&](auto done) { socket_->async_handshake(response_, authority, request_.uri(), done); });
  if (error == websocket::error::upgrade_declined) return log_refusal();
  if (error) return fail("open a WebSocket to", error.message());
  if (!takes_protocol()) return fail("open a WebSocket to", "the server does not take the sub-protocol");
  state_ = HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED;
  next_ping_ = Clock::now() + ping_period();
  traffic().restart();
  return 0;
}

template <typename Stream>
void Client<Stream>::prepare_handshake() {
  response_ = {};
  socket_->read_message_max(max_message);
  socket_->set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
    for (const HTTP_Headers::Field& field : request_.headers()) request.insert(field.name, field.value);
  }));
  socket_->control_callback([this](websocket::frame_type type, beast::string_view payload) {
    traffic().discount(payload.size() + control_frame_overhead);
    if (type == websocket::frame_type::close) closed_ = true;
  });
}

template <typename Stream>
bool Client<Stream>::takes_protocol() const {
  const char* asked = request_.headers().get(HTTP_HEAD_SEC_WEBSOCKET_PROTOCOL, true);
  return response_[beast::http::field::sec_websocket_protocol] == (asked ? asked : "");
}

template <typename Stream>
int Client<Stream>::log_refusal() {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open a WebSocket to %C:%d: status %d: %C\n"), target_.host.c_str(),
             static_cast<int>(target_.port), static_cast<int>(response_.result_int()),
             beginning(response_.body()).c_str()));
  drop();
  return -1;
}

template <typename Stream>
ssize_t Client<Stream>::receive(const char*& data, std::size_t& length, unsigned char& opcode,
                                const ACE_Time_Value* timeout) {
  if (state_ != HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) return fail("receive from", "there is no WebSocket");
  const Clock::time_point begin = Clock::now();
  const Clock::time_point deadline = timeout ? begin + span_of(*timeout) : Clock::time_point::max();
  message_.clear();
  do {
    const auto done = std::make_shared<Result>();
    socket_->async_read(message_, [done](const error_code& error, std::size_t) { *done = error; });
    io_.restart();
    if (!wait_for_message(*done, begin, deadline)) return -1;
    if (const error_code error = done->value_or(net::error::timed_out)) return end_of_messages(error);
    traffic().restart();
  } while (message_.size() == 0);

  data = static_cast<const char*>(message_.data().data());
  length = message_.size();
  opcode = socket_->got_text() ? 1 : 2;
  return static_cast<ssize_t>(length);
}

template <typename Stream>
bool Client<Stream>::wait_for_message(const Result& done, Clock::time_point begin, Clock::time_point deadline) {
  while (!done) {
    const Clock::time_point now = Clock::now();
    // The end has begun: what is left is to wait until the server closes the connection.
    if (!socket_->is_open() && !end_) end_ = now + closing_time;
    if (end_ && now >= *end_) return true;
    if (now >= deadline) return fail("receive from", "no message in time") == 0;
    if (idle_.count() > 0 && now >= std::max(begin, traffic().last_read()) + idle_)
      return fail("receive from", "the connection is dead") == 0;
    const auto payload = static_cast<long long>(message_.size());
    if (traffic().bytes() - payload > max_overhead + payload / overhead_share)
      return fail("receive from", "a message in too many fragments") == 0;
    ping_if_due();
    io_.run_one_until(std::min({deadline, next_ping_, end_.value_or(deadline)}));
  }
  return true;
}

/// Often enough that a silent connection which lives is never taken for dead.
template <typename Stream>
Clock::duration Client<Stream>::ping_period() const {
  if (idle_.count() == 0) return usual_ping_period;
  return std::min<Clock::duration>(usual_ping_period, Clock::duration(idle_) / 3);
}

template <typename Stream>
void Client<Stream>::ping_if_due() {
  const Clock::time_point now = Clock::now();
  if (now < next_ping_) return;
  next_ping_ = now + ping_period();
  if (pinging_ || end_) return;
  pinging_ = true;
  socket_->async_ping({}, [this](const error_code&) { pinging_ = false; });
}

template <typename Stream>
ssize_t Client<Stream>::end_of_messages(const error_code& error) {
  if (error != websocket::error::closed && !closed_) return fail("receive from", error.message());
  drop();
  return 0;
}

template <typename Stream>
void Client<Stream>::close() {
  if (state_ == HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) {
    state_ = HTTP_SOCK_STATE_WEBSOCKET_CLOSING;
    run(Clock::now() + closing_time, [this](auto done) { socket_->async_close(websocket::close_code::normal, done); });
  }
  drop();
}

template class Client<Plain_Stream>;
template class Client<TLS_Stream>;

}  // namespace websocket_client
