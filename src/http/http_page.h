#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What a GET is answered with.
struct HTTP_Content {
  unsigned status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
  std::vector<std::pair<std::string, std::string>> fields = {};  ///< further header fields
};

/**
 * A page that HTTP_Server serves beside its service's path, to GET and HEAD.
 *
 * A server's answer says "Cache-Control: no-store" and "X-Content-Type-Options: nosniff" with every page.
 */
struct HTTP_Page {
  /// What the page needs to know of the one who asks.
  struct Caller {
    bool trusted;  ///< may use the channel: came by the unix socket, or has shown what the listener demands
  };

  enum Access {
    ACCESS_TRUSTED,  ///< as the channel: others get 401
    ACCESS_OPEN      ///< for everyone that reaches the listener; tells those who are not trusted nothing of value
  };

  Access access = ACCESS_TRUSTED;
  /// Called by several of the server's threads at once, which serve nobody else meanwhile: it must not wait for long,
  /// and must not throw.
  std::function<HTTP_Content(const Caller&)> content;
};
