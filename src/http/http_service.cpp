#include "http/http_service.h"

HTTP_Exchange::~HTTP_Exchange() = default;
WebSocket_Sender::~WebSocket_Sender() = default;
WebSocket_Receiver::~WebSocket_Receiver() = default;
HTTP_Service::~HTTP_Service() = default;
