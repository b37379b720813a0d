#include "json_spirit/json_pointer.h"

#include <charconv>
#include <cstring>

#include "ace/Log_Msg.h"

namespace json_spirit {

namespace {

const char* token_end(const char* token) {
  return ::strchrnul(token, '/');
}

/// The index that a token stands for: decimal digits without leading zeros.
bool parse_index(const char* token, std::size_t& index) {
  const char* end = token_end(token);
  if (*token == '0' && end - token > 1) return false;
  const auto [at, fault] = std::from_chars(token, end, index);
  return fault == std::errc() && at == end;
}

bool is_past_end(const char* token) {
  return *token == '-' && token_end(token) == token + 1;
}

/// The index of an element to be written: one that exists, or the one after the last.
bool parse_free_index(const Array& array, const char* token, std::size_t& index) {
  if (is_past_end(token)) {
    index = array.size();
    return true;
  }
  return parse_index(token, index) && index <= array.size();
}

}  // namespace

JSON_Pointer::JSON_Pointer(const char* path, bool copy, bool log) : log_(log) {
  this->path(path, copy);
}

void JSON_Pointer::path(const char* path, bool copy) {
  path_ = path ? path : "";
  if (!copy) return;
  const std::size_t size = std::strlen(path_) + 1;
  std::unique_ptr<char[]> own(new char[size]);  // path may be the text that buf_ holds
  std::memcpy(own.get(), path_, size);
  buf_ = std::move(own);
  path_ = buf_.get();
}

const Value* JSON_Pointer::find(const Value& root) const {
  return find_rest(&root, path_);
}

const Value* JSON_Pointer::find(const Object& root) const {
  return *path_ == '/' ? find_rest(get_object(root, path_ + 1), token_end(path_ + 1)) : find_rest(nullptr, path_);
}

const Value* JSON_Pointer::find(const Array& root) const {
  return *path_ == '/' ? find_rest(get_array(root, path_ + 1), token_end(path_ + 1)) : find_rest(nullptr, path_);
}

const Value* JSON_Pointer::find_rest(const Value* from, const char* rest) const {
  for (; from && *rest == '/'; rest = token_end(rest + 1)) {
    if (from->type() == obj_type)
      from = get_object(from->get_obj(), rest + 1);
    else if (from->type() == array_type)
      from = get_array(from->get_array(), rest + 1);
    else
      from = nullptr;
  }
  if (from && *rest == '\0') return from;
  log_ill_formed();
  return nullptr;
}

const Value* JSON_Pointer::get_object(const Object& object, const char* token) const {
  return decode(token) ? object_get_value(object, path_buf_) : nullptr;
}

Value* JSON_Pointer::get_object(Object& object, const char* token) const {
  return decode(token) ? object_get_value(object, path_buf_) : nullptr;
}

const Value* JSON_Pointer::get_array(const Array& array, const char* token) const {
  std::size_t index;
  return parse_index(token, index) && index < array.size() ? &array[index] : nullptr;
}

Value* JSON_Pointer::get_array(Array& array, const char* token) const {
  return const_cast<Value*>(get_array(std::as_const(array), token));
}

bool JSON_Pointer::set(Value& root, Value value) const {
  if (!well_formed()) {
    log_ill_formed();
    return false;
  }
  const char* last = std::strrchr(path_, '/');
  if (!last) return assign_root(root, std::move(value));
  Value* parent = locate(root, last);
  return parent && assign_segment(*parent, last + 1, std::move(value));
}

/// The value that the path leads to up to @a last, made where it is missing. Once one is made no later step can fail,
/// so a failure leaves no trace.
Value* JSON_Pointer::locate(Value& root, const char* last) const {
  Value* at = &root;
  for (const char* slash = path_; slash != last; slash = token_end(slash + 1)) {
    Value* next = at->type() == obj_type     ? get_object(at->get_obj(), slash + 1)
                  : at->type() == array_type ? get_array(at->get_array(), slash + 1)
                                             : nullptr;
    if (!next) {
      if (!assign_segment(*at, slash + 1, Object())) return nullptr;
      next = at->type() == obj_type ? get_object(at->get_obj(), slash + 1) : &at->get_array().back();
    }
    at = next;
  }
  return at;
}

bool JSON_Pointer::assign_segment(Value& parent, const char* token, Value&& value) const {
  if (parent.type() == array_type) return assign_array(parent.get_array(), token, std::move(value));
  if (parent.type() == obj_type) return assign_object(parent.get_obj(), token, std::move(value));
  return parent.is_null() && assign_object(parent.to_new_object(), token, std::move(value));
}

bool JSON_Pointer::assign_object(Object& parent, const char* token, Value&& value) const {
  decode(token);
  parent[path_buf_] = std::move(value);
  return true;
}

bool JSON_Pointer::assign_array(Array& parent, const char* token, Value&& value) const {
  std::size_t index;
  if (!parse_free_index(parent, token, index)) return false;
  if (index == parent.size())
    parent.push_back(std::move(value));
  else
    parent[index] = std::move(value);
  return true;
}

bool JSON_Pointer::assign_root(Value& root, Value&& value) const {
  root = std::move(value);
  return true;
}

/// Puts the key that @a token stands for into path_buf_; false if it holds a tilde without its digit.
bool JSON_Pointer::decode(const char* token) const {
  const char* end = token_end(token);
  path_buf_.assign(token, end);
  for (std::size_t at = 0; (at = path_buf_.find('~', at)) != String_type::npos; ++at) {
    const char digit = at + 1 < path_buf_.size() ? path_buf_[at + 1] : '\0';
    if (digit != '0' && digit != '1') return false;
    path_buf_.replace(at, 2, 1, digit == '0' ? '~' : '/');
  }
  return true;
}

bool JSON_Pointer::well_formed() const {
  if (*path_ == '\0') return true;
  if (*path_ != '/') return false;
  for (const char* at = path_; (at = std::strchr(at, '~')); at += 2)
    if (at[1] != '0' && at[1] != '1') return false;
  return true;
}

void JSON_Pointer::log_ill_formed() const {
  if (log_ && !well_formed()) ACE_ERROR((LM_ERROR, ACE_TEXT("JSON Pointer path '%C' is ill-formed.\n"), path_));
}

}  // namespace json_spirit
