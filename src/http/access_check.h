#pragma once

#include <memory>
#include <string>

#include "http/http_service.h"
#include "kolt/export.h"

/// Who may use an HTTP_Server, told by the bearer token that a caller shows with each request. Called by several of the
/// server's threads at once, which serve nobody else meanwhile: it must not wait, and must not throw.
class TESSARIN_API Access_Check {
 public:
  virtual ~Access_Check();

  /**
   * @param verdict  takes the status later, once, by any thread, with an empty body.
   * @return the status: 200 lets the request in; 401 (no such token), 403 (known, but may not call) and 503 (cannot be
   * told now) refuse it. 0: @a verdict will be told; the caller waits for HTTP_Server_Limits::access and gets 503 then.
   */
  virtual unsigned check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) = 0;
};

/// Lets in who shows one token.
class TESSARIN_API Token_Check : public Access_Check {
 public:
  /// @param token  not empty.
  explicit Token_Check(const std::string& token) : token_(token) {}
  unsigned check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) override;

 private:
  const std::string token_;
};
