#include "http/http_head.h"

const char* http_head_string(int head, int /* form */) {
  switch (head) {
    case HTTP_HEAD_ACCEPT:
      return "Accept";
    case HTTP_HEAD_ACCEPT_ENCODING:
      return "Accept-Encoding";
    case HTTP_HEAD_AUTHORIZATION:
      return "Authorization";
    case HTTP_HEAD_CONNECTION:
      return "Connection";
    case HTTP_HEAD_CONTENT_LENGTH:
      return "Content-Length";
    case HTTP_HEAD_CONTENT_TYPE:
      return "Content-Type";
    case HTTP_HEAD_RETRY_AFTER:
      return "Retry-After";
    case HTTP_HEAD_SEC_WEBSOCKET_PROTOCOL:
      return "Sec-WebSocket-Protocol";
    case HTTP_HEAD_TRANSFER_ENCODING:
      return "Transfer-Encoding";
    case HTTP_HEAD_WARNING:
      return "Warning";
    case HTTP_HEAD_X_ACCESS_KEY:
      return "X-Access-Key";
    default:
      return nullptr;
  }
}
