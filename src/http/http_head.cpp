#include "http/http_head.h"

const char* http_head_string(int head, int /* form */) {
  switch (head) {
    case HTTP_HEAD_X_ACCESS_KEY:
      return "X-Access-Key";
    default:
      return nullptr;
  }
}
