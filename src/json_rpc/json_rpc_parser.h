#pragma once

#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/**
 * Makes a JSON_RPC_Request or, where there is no member "id", a JSON_RPC_Notify of a parsed document.
 *
 * `params` may be of any type: what it has to be is the handler's to say. Members that the protocol does not know are
 * passed over.
 *
 * @param document  its `params` are moved out.
 * @return null if it is no valid request: no object, "jsonrpc" other than "2.0", no string "method", or an id that is
 *         neither string nor number nor null.
 */
TESSARIN_API JSON_RPC_Object_var parse_json_rpc_request(json_spirit::Value&& document);
