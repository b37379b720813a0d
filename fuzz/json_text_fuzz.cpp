// Any bytes: what the reader accepts, the writer writes so that the reader makes the same of it; what it refuses leaves
// no trace. Cut in two, it is read the same.
#include <cstdint>
#include <cstdlib>

#include "json_spirit/dump.h"
#include "json_spirit/json_reader.h"

using json_spirit::JSON_Dump;
using json_spirit::Value;

namespace {

void require(bool fact) {
  if (!fact) std::abort();
}

void require_same_after_dump(const Value& value, bool pretty) {
  const JSON_Dump dump(value, pretty);
  Value again;
  require(json_spirit::loads_json(std::string_view(dump.str()), again));
  require(again == value);
  require(JSON_Dump(again, pretty).str() == dump.str());
}

/// The middle piece has a length that the input chooses, so that cuts fall anywhere.
void require_same_in_pieces(std::string_view text, bool accepted, const Value& value) {
  const std::size_t cut = text.empty() ? 0 : static_cast<unsigned char>(text.back()) % (text.size() + 1);
  Value again;
  json_spirit::Text_Reader reader(again);
  const bool read = reader.write(text.substr(0, cut)) && reader.write(text.substr(cut, 1)) &&
                    reader.write(text.substr(cut).substr(text.size() > cut)) && reader.finish();
  require(read == accepted);
  if (read) require(again == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Value value("untouched");
  const bool accepted = json_spirit::loads_json(text, value);
  require_same_in_pieces(text, accepted, value);
  if (accepted) {
    require_same_after_dump(value, false);
    require_same_after_dump(value, true);
    require(value.compare_only_value(Value(value)));
  } else {
    require(value == Value("untouched"));
  }
  // The bytes as a string: whatever they are, the text of it is JSON.
  Value again;
  require(json_spirit::loads_json(std::string_view(JSON_Dump(json_spirit::String_type(text), false).str()), again));
  require(again.type() == json_spirit::str_type);
  return 0;
}
