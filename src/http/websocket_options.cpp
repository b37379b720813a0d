#include "http/websocket_options.h"

WebSocket_Options* WebSocket_Options::instance() {
  static WebSocket_Options options;
  return &options;
}
