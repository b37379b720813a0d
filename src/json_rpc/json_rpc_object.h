#pragma once

#include <string>

#include "ace/Recursive_Thread_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/**
 * A message of JSON-RPC 2.0, parsed or on its way out.
 *
 * Threads: none of the messages locks; one is changed by one thread at a time.
 */
class TESSARIN_API JSON_RPC_Object {
 public:
  enum Kind { REQUEST, NOTIFY, RESPONSE, RESPONSE_ERROR, YAJL_REQUEST };

  virtual ~JSON_RPC_Object();

  Kind kind() const { return kind_; }
  bool is_request() const { return kind_ == REQUEST; }

  /// The text of the member "jsonrpc".
  static const char* version() { return "2.0"; }

  /// The whole message as it stands on the wire.
  json_spirit::Object to_object() const;

 protected:
  explicit JSON_RPC_Object(Kind kind) : kind_(kind) {}

 private:
  /// Adds the members other than "jsonrpc".
  virtual void write_members(json_spirit::Object& members) const = 0;

  const Kind kind_;
};

typedef ACE_Refcounted_Auto_Ptr<JSON_RPC_Object, ACE_Recursive_Thread_Mutex> JSON_RPC_Object_var;

/// What all requests have: a method and the id that the answer repeats.
class TESSARIN_API JSON_RPC_Request_Base : public JSON_RPC_Object {
 public:
  const std::string& method() const { return method_; }
  void method(const std::string& method) { method_ = method; }

  /// A string, a number or null. Null by default.
  const json_spirit::Value& id() const { return id_; }
  void id(const json_spirit::Value& id) { id_ = id; }

 protected:
  explicit JSON_RPC_Request_Base(Kind kind) : JSON_RPC_Object(kind) {}
  void write_members(json_spirit::Object& members) const override;

 private:
  std::string method_;
  json_spirit::Value id_;
};

/// A request with its parameters as a document. A default-constructed one has no method, and null for id and params.
class TESSARIN_API JSON_RPC_Request : public JSON_RPC_Request_Base {
 public:
  JSON_RPC_Request() : JSON_RPC_Request_Base(REQUEST) {}

  /// @a object as a request; null if it is null or of another kind, a notification included.
  static JSON_RPC_Request* narrow(JSON_RPC_Object* object);

  /// Null when the message had none, otherwise of whatever type the requester sent.
  json_spirit::Value& params() { return params_; }
  const json_spirit::Value& params() const { return params_; }

 protected:
  explicit JSON_RPC_Request(Kind kind) : JSON_RPC_Request_Base(kind) {}
  void write_members(json_spirit::Object& members) const override;

 private:
  json_spirit::Value params_;
};

/// A request that wants no answer. Its id stays null.
class TESSARIN_API JSON_RPC_Notify : public JSON_RPC_Request {
 public:
  JSON_RPC_Notify() : JSON_RPC_Request(NOTIFY) {}

 private:
  void write_members(json_spirit::Object& members) const override;
};

/// A request whose parameters went to the params handler of its method while they were read, and so holds none.
class TESSARIN_API JSON_RPC_YAJL_Request : public JSON_RPC_Request_Base {
 public:
  JSON_RPC_YAJL_Request() : JSON_RPC_Request_Base(YAJL_REQUEST) {}
};

/// The good answer to a request.
class TESSARIN_API JSON_RPC_Response : public JSON_RPC_Object {
 public:
  /// @param request  whose id is copied; with null the id is null.
  explicit JSON_RPC_Response(const JSON_RPC_Request_Base* request);

  const json_spirit::Value& id() const { return id_; }

  /// What the handler fills in; null at first.
  json_spirit::Value& result() { return result_; }
  const json_spirit::Value& result() const { return result_; }

 private:
  void write_members(json_spirit::Object& members) const override;

  json_spirit::Value id_;
  json_spirit::Value result_;
};

/// The answer that tells a failure.
class TESSARIN_API JSON_RPC_Response_Error : public JSON_RPC_Object {
 public:
  /// @param message  null stands for an empty text.
  /// @param data     null: the answer has no member "data".
  JSON_RPC_Response_Error(int code, const json_spirit::Value& id, const char* message, const json_spirit::Value& data);

  int code() const { return code_; }
  const json_spirit::Value& id() const { return id_; }
  const std::string& message() const { return message_; }
  const json_spirit::Value& data() const { return data_; }

 private:
  void write_members(json_spirit::Object& members) const override;

  int code_;
  json_spirit::Value id_;
  std::string message_;
  json_spirit::Value data_;
};

/// The text of a message, for the wire and for log lines: a temporary made to be printed.
class TESSARIN_API JSON_RPC_Object_Dump {
 public:
  /// 0 is compact and exact.
  typedef unsigned int Flags;
  /// Indented, secret strings masked.
  static constexpr Flags FG_PRETTY = 1;

  JSON_RPC_Object_Dump(const JSON_RPC_Object& object, Flags flags);

  const char* c_str() const { return text_.c_str(); }
  const std::string& str() const { return text_; }

 private:
  std::string text_;
};
