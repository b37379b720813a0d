#pragma once

#include <ctime>
#include <string>

#include <sys/types.h>

#include "ace/Time_Value.h"
#include "json_spirit/json_spirit_value.h"

class K8S_Session_Factory;

/**
 * The connection from inside a pod to the API server: where the server is, the service account's token, kept fresh, and
 * the verbs that a transport may have.
 *
 * A verb that a transport does not implement does nothing and tells success; callers know which transport they made.
 * A verb tells only whether an exchange took place: the status of the reply is the caller's to look at.
 *
 * Life: K8S_Session_Factory::create() gives it ready for its verbs; there is no second init().
 * Threads: one at a time.
 */
class K8S_Session {
 public:
  virtual ~K8S_Session();

  /// @param url  path and query, as they are sent.
  /// @param val  the reply's document.
  virtual bool get(const std::string& url, json_spirit::Value& val);
  /// @param body     the reply's text is put behind what it holds.
  /// @param timeout  for each piece of the reply; null: the transport's own.
  virtual bool get(const std::string& url, std::string& body, const ACE_Time_Value* timeout);
  virtual bool delete_(const std::string& url);
  virtual bool post(const std::string& url, const json_spirit::Value& val);
  virtual bool patch(const std::string& url, const json_spirit::Value& val, const char* content_type);

  /// Of the last exchange.
  virtual int response_status();

  /// Makes the transport's connection object; nothing is connected yet.
  virtual bool init() = 0;
  /// Puts the token on the transport's next request.
  virtual void set_request_token() = 0;

  explicit operator bool() const { return good_; }

 protected:
  K8S_Session() = default;

  /// Reads the service account's token, the first line of its file.
  /// @return false if the file can't be opened, with one line at LM_ERROR: the token stays as it was.
  bool set_token();
  /// The token counts as fresh for K8S_TOKEN_EXPIRED_INTERVAL seconds from now on.
  void set_expire_time();
  /// Where the API server is, from the environment.
  /// @return false if a variable is not set, with one line at LM_ERROR, or if the port is no number, without.
  bool set_host_port();
  /// The first step of every verb: reads the token again where it is due, and puts it on a fresh request. A token that
  /// can't be read is logged, and the old one is used for another interval.
  void reset_request();

  bool good_ = true;
  std::string token_;  ///< the value of the header "Authorization"
  std::string host_;
  u_short port_ = 0;
  time_t expire_at_ = 0;  ///< the moment, in seconds since 1970, after which the token is read again

 private:
  friend class K8S_Session_Factory;
};
