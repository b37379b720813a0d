// A path up to the first newline, then a document: reads of every kind agree with each other, what is set is found, and
// what is moved is gone.
#include <cstdint>
#include <cstdlib>

#include "json_spirit/extract.h"

using json_spirit::JSON_Pointer;
using json_spirit::Value;

namespace {

void require(bool fact) {
  if (!fact) std::abort();
}

template <typename T>
bool readable(const JSON_Pointer& pointer, const Value& document) {
  T dest{};
  const T* at = nullptr;
  const bool found = pointer.get(document, dest);
  require(found == pointer.get(document, at));
  require(!found || *at == dest);
  return found;
}

/// At most one kind is read, and one of them if the path leads to anything but a scalar.
void read_all_kinds(const JSON_Pointer& pointer, const Value& document) {
  const int strings_and_containers = readable<json_spirit::String_type>(pointer, document) +
                                     readable<json_spirit::Object>(pointer, document) +
                                     readable<json_spirit::Array>(pointer, document);
  bool flag;
  double real;
  unsigned short integer;
  const int scalars = pointer.get(document, flag) + pointer.get(document, real) + pointer.get(document, integer);
  const Value* value = nullptr;
  const bool found = pointer.get(document, value);
  require(strings_and_containers + scalars + (found && value->is_null()) == (found ? 1 : 0));
}

void set_and_take(const JSON_Pointer& pointer, Value document) {
  const Value before = document;
  const Value* present = nullptr;
  const bool existed = pointer.get(before, present);
  const Value mark("a mark that is found again");
  if (!pointer.set(document, mark)) {
    require(!existed && document == before);
    return;
  }
  Value taken;
  if (!pointer.get(document, taken)) {  // it was put behind the last element of an array
    require(!existed && std::string_view(pointer.path()).find('-') != std::string_view::npos);
    return;
  }
  require(taken == mark);
  require(pointer.move(document, taken) && taken == mark);
  const Value* left = nullptr;
  require(pointer.get(document, left) && left->is_null());
}

void read_by_chain(const std::string& path, const Value& document) {
  const Value* found = nullptr;
  const bool exists = JSON_Pointer(path.c_str(), false, false).get(document, found);
  const Value* by_chain = nullptr;
  json_spirit::pextract(document)(path, by_chain);
  require(by_chain == found);
  const Value* by_root = nullptr;
  json_spirit::pextract(document).chroot(path)("", by_root);
  require(exists ? by_root == found : by_root == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t newline = input.find('\n');
  if (newline == std::string_view::npos) return 0;
  const std::string path(input.substr(0, newline).substr(0, input.substr(0, newline).find('\0')));
  Value document;
  if (!json_spirit::loads_json(input.substr(newline + 1), document)) return 0;
  const JSON_Pointer pointer(path.c_str(), false, false);
  read_all_kinds(pointer, document);
  set_and_take(pointer, document);
  read_by_chain(path, document);
  return 0;
}
