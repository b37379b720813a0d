#include "http/websocket_client.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <memory>

#include "ace/Log_Msg.h"
#include "ace/Time_Value.h"
#include "http/request_fault.h"
#include "kolt/printable.h"

namespace websocket_client {

namespace {

constexpr std::size_t max_message = 32 * 1024 * 1024;
/// Of the heads of a message's frames, however many there are.
constexpr long long max_overhead = 1024 * 1024;
constexpr long long overhead_share = 16;
constexpr std::size_t control_frame_head = 2;  // of a server, which masks nothing
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

/// The one handler of what run() starts.
struct Client::Done {
  std::shared_ptr<Result> result;

  template <typename... Unused>
  void operator()(const error_code& error, const Unused&...) const {
    *result = error;
  }
  /// Of a coroutine: only the want of memory makes it throw.
  void operator()(const std::exception_ptr& failure, const error_code& error) const {
    *result = failure ? make_error_code(boost::system::errc::not_enough_memory) : error;
  }
};

template <typename Start>
error_code Client::run(Clock::time_point deadline, Start start) {
  const auto result = std::make_shared<Result>();  // outlives a wait that is given up
  try {
    start(Done{result});
  } catch (const boost::system::system_error& error) {  // the resolver needs a thread
    return error.code();
  }
  io_.restart();
  while (!*result && Clock::now() < deadline) io_.run_one_until(deadline);
  if (*result) return **result;
  drop();
  return beast::error::timeout;
}

void Client::drop() {
  error_code unused;
  tcp_.close(unused);
  if (stream_) stream_->close();
  // What was under way ends here, before anything of it is made anew.
  io_.restart();
  io_.poll();
  state_ = HTTP_SOCK_STATE_CLOSED;
}

int Client::fail(const char* what, const std::string& why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to %C %C:%d: %C.\n"), what, target_.host.c_str(),
             static_cast<int>(target_.port), printable(why).c_str()));
  drop();
  return -1;
}

int Client::connect() {
  if (state_ != HTTP_SOCK_STATE_CLOSED) return fail("connect a second time to", "it is connected");
  state_ = HTTP_SOCK_STATE_CONNECTING;
  const Clock::time_point deadline = limit();
  if (target_.tls) {
    error_code error;
    context_.emplace(tls_context(error));
    if (error) return fail("trust any issuer for", error.message());
  }
  if (const error_code error = connect_tcp(deadline)) return fail("connect to", error.message());
  if (make_stream(deadline) == -1) return -1;
  state_ = HTTP_SOCK_STATE_CONNECTED;
  return 0;
}

error_code Client::connect_tcp(Clock::time_point deadline) {
  net::ip::tcp::resolver resolver(io_);
  const auto found = std::make_shared<net::ip::tcp::resolver::results_type>();
  error_code error = run(deadline, [&](Done done) {
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

error_code Client::connect_tcp(const net::ip::tcp::endpoint& endpoint, Clock::time_point deadline) {
  error_code error;
  tcp_.close(error);
  tcp_.open(endpoint.protocol(), error);
  if (!error && !target_.local_address.empty()) {
    const auto local = net::ip::make_address(target_.local_address, error);
    if (!error) tcp_.bind({local, 0}, error);
  }
  if (error) return error;
  error = run(deadline, [&](Done done) { tcp_.async_connect(endpoint, done); });
  if (error) return error;
  tcp_.set_option(net::ip::tcp::no_delay(true), error);
  tcp_.set_option(net::socket_base::keep_alive(true), error);
  return {};
}

int Client::make_stream(Clock::time_point deadline) {
  closed_ = false;
  end_.reset();
  pinging_ = false;
  socket_.reset();
  stream_.emplace(std::move(tcp_), target_.tls ? context_->native_handle() : nullptr, closing_time);
  socket_.emplace(*stream_);
  if (!target_.tls) return 0;
  expect_name(stream_->tls(), target_.host);
  const error_code error =
      run(deadline, [&](Done done) { net::co_spawn(io_, stream_->handshake(beast::role_type::client), done); });
  return error ? fail("make a TLS connection to", tls_reason(stream_->tls(), error)) : 0;
}

int Client::handshake() {
  if (state_ != HTTP_SOCK_STATE_CONNECTED) return fail("open a WebSocket to", "it is not connected");
  if (const char* fault = request_fault(request_)) return fail("open a WebSocket to", fault);
  state_ = HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKING;
  prepare_handshake();
  const std::string authority = target_.host + ':' + std::to_string(target_.port);
  const error_code error =
      run(limit(), [&](Done done) { socket_->async_handshake(response_, authority, request_.uri(), done); });
  if (error == websocket::error::upgrade_declined) return log_refusal();
  if (error) return fail("open a WebSocket to", error.message());
  if (!takes_protocol()) return fail("open a WebSocket to", "the server does not take the sub-protocol");
  state_ = HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED;
  next_ping_ = Clock::now() + ping_period();
  stream_->meter().restart();
  return 0;
}

void Client::prepare_handshake() {
  response_ = {};
  socket_->read_message_max(max_message);
  socket_->set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
    for (const HTTP_Headers::Field& field : request_.headers()) request.insert(field.name, field.value);
  }));
  socket_->control_callback([this](websocket::frame_type type, beast::string_view payload) {
    stream_->meter().discount(control_frame_head + payload.size());
    if (type == websocket::frame_type::close) closed_ = true;
  });
}

bool Client::takes_protocol() const {
  const char* asked = request_.headers().get(HTTP_HEAD_SEC_WEBSOCKET_PROTOCOL, true);
  return response_[beast::http::field::sec_websocket_protocol] == (asked ? asked : "");
}

int Client::log_refusal() {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to open a WebSocket to %C:%d: status %d: %C\n"), target_.host.c_str(),
             static_cast<int>(target_.port), static_cast<int>(response_.result_int()),
             beginning(response_.body()).c_str()));
  drop();
  return -1;
}

ssize_t Client::receive(const char*& data, std::size_t& length, unsigned char& opcode, const ACE_Time_Value* timeout) {
  if (state_ != HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) return fail("receive from", "there is no WebSocket");
  const Clock::time_point begin = Clock::now();
  const Clock::time_point deadline = timeout ? begin + span_of(*timeout) : Clock::time_point::max();
  message_.clear();
  do {
    const auto done = std::make_shared<Result>();
    socket_->async_read(message_, Done{done});
    io_.restart();
    if (!wait_for_message(*done, begin, deadline)) return -1;
    if (const error_code error = done->value_or(net::error::timed_out)) return end_of_messages(error);
    stream_->meter().restart();
  } while (message_.size() == 0);

  data = static_cast<const char*>(message_.data().data());
  length = message_.size();
  opcode = socket_->got_text() ? 1 : 2;
  return static_cast<ssize_t>(length);
}

bool Client::wait_for_message(const Result& done, Clock::time_point begin, Clock::time_point deadline) {
  while (!done) {
    const Clock::time_point now = Clock::now();
    // The end has begun: what is left is to wait until the server closes the connection.
    if (!socket_->is_open() && !end_) end_ = now + closing_time;
    if (end_ && now >= *end_) return true;
    if (now >= deadline) return fail("receive from", "no message in time") == 0;
    if (idle_.count() > 0 && now >= std::max(begin, stream_->meter().last_read()) + idle_)
      return fail("receive from", "the connection is dead") == 0;
    const auto payload = static_cast<long long>(message_.size());
    if (stream_->meter().bytes() - payload > max_overhead + payload / overhead_share)
      return fail("receive from", "a message in too many fragments") == 0;
    ping_if_due();
    io_.run_one_until(std::min({deadline, next_ping_, end_.value_or(deadline)}));
  }
  return true;
}

/// Often enough that a silent connection which lives is never taken for dead.
Clock::duration Client::ping_period() const {
  if (idle_.count() == 0) return usual_ping_period;
  return std::min<Clock::duration>(usual_ping_period, Clock::duration(idle_) / 3);
}

void Client::ping_if_due() {
  const Clock::time_point now = Clock::now();
  if (now < next_ping_) return;
  next_ping_ = now + ping_period();
  if (pinging_ || end_) return;
  pinging_ = true;
  socket_->async_ping({}, [this](const error_code&) { pinging_ = false; });
}

ssize_t Client::end_of_messages(const error_code& error) {
  if (error != websocket::error::closed && !closed_) return fail("receive from", error.message());
  drop();
  return 0;
}

void Client::close() {
  if (state_ == HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) {
    state_ = HTTP_SOCK_STATE_WEBSOCKET_CLOSING;
    run(Clock::now() + closing_time, [this](Done done) { socket_->async_close(websocket::close_code::normal, done); });
  }
  drop();
}

}  // namespace websocket_client
