#include "kolt/redact.h"

#include <algorithm>

namespace {

constexpr std::string_view mask = "******";

constexpr std::string_view header_names[] = {"x-access-key", "authorization", "proxy-authorization",
                                             "cookie",       "set-cookie",    "x-amz-security-token"};
constexpr std::string_view member_names[] = {"access_key",
                                             "key",
                                             "iv",
                                             "secret_key",
                                             "secret_access_key",
                                             "session_token",
                                             "tenant_access_key",
                                             "password",
                                             "token",
                                             "x-access-key",
                                             "authorization",
                                             "proxy-authorization",
                                             "cookie",
                                             "set-cookie",
                                             "x-amz-security-token"};

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equal(std::string_view text, std::string_view lower_name) {
  return std::equal(text.begin(), text.end(), lower_name.begin(), lower_name.end(),
                    [](char a, char b) { return lower(a) == b; });
}

template <std::size_t N>
bool is_one_of(std::string_view text, const std::string_view (&lower_names)[N]) {
  return std::any_of(std::begin(lower_names), std::end(lower_names),
                     [&](std::string_view name) { return equal(text, name); });
}

bool is_name_char(char c) {
  return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') || c == '_' || c == '-';
}

bool is_line_end(char c) {
  return c == '\r' || c == '\n';
}
bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

class Redactor {
 public:
  explicit Redactor(std::string_view text) : text_(text) { out_.reserve(text.size()); }

  std::string run() {
    for (std::size_t at = 0; at < text_.size();) {
      std::size_t next = 0;
      if (text_[at] == ':')
        next = behind_colon(at);
      else if (text_[at] == 'B' || text_[at] == 'b')
        next = behind_bearer(at);
      at = std::max(at + 1, next);
    }
    out_ += text_.substr(copied_);
    return std::move(out_);
  }

 private:
  // Each of these masks a value, if there is one, and returns the position behind it, or 0.

  std::size_t behind_colon(std::size_t colon) {
    std::size_t end = colon;
    while (end > 0 && (is_blank(text_[end - 1]) || is_line_end(text_[end - 1]))) --end;
    if (end > 0 && text_[end - 1] == '"') return behind_member(end - 1, colon);
    const std::size_t begin = name_begin(end);
    if (!is_one_of(text_.substr(begin, end - begin), header_names)) return 0;
    return hide_line(skip_blanks(colon + 1));
  }

  // JSON that is quoted inside a JSON string has a backslash before each of its quotes, and three at the next level.
  // All quotes of one member have as many.
  std::size_t behind_member(std::size_t name_quote, std::size_t colon) {
    const std::size_t slashes = slashes_before(name_quote, 0);
    const std::size_t end = name_quote - slashes;
    const std::size_t begin = name_begin(end);
    if (begin == 0 || text_[begin - 1] != '"' || slashes_before(begin - 1, 0) != slashes) return 0;
    if (!is_one_of(text_.substr(begin, end - begin), member_names)) return 0;

    const std::size_t value = skip_space(colon + 1);
    std::size_t quote = value;
    while (quote < text_.size() && text_[quote] == '\\') ++quote;
    if (quote >= text_.size() || text_[quote] != '"') return behind_bare_member(value, slashes);
    if (slashes_before(quote, 0) != slashes) return 0;
    return hide(quote + 1, value_end(quote + 1, slashes));
  }

  // A value that is no text, but may be a secret that was sent as a number or in a list.
  std::size_t behind_bare_member(std::size_t value, std::size_t slashes) {
    if (value < text_.size() && (text_[value] == '[' || text_[value] == '{'))
      return hide(value + 1, bracket_end(value + 1, slashes));
    std::size_t end = std::min(text_.find_first_of(",}]\"\\\r\n", value), text_.size());
    while (end > value && is_blank(text_[end - 1])) --end;
    return hide(value, end);
  }

  std::size_t behind_bearer(std::size_t at) {
    constexpr std::string_view word = "bearer";
    if (!equal(text_.substr(at, word.size()), word) || (at > 0 && is_name_char(text_[at - 1]))) return 0;
    const std::size_t begin = skip_blanks(at + word.size());
    if (begin == at + word.size()) return 0;
    const std::size_t end = std::min(text_.find_first_of(" \t\r\n\"\\',;()<>", begin), text_.size());
    return hide(begin, end);
  }

  // Where the value ends that begins at begin: at its closing quote, or where the line is cut off.
  std::size_t value_end(std::size_t begin, std::size_t slashes) const {
    for (std::size_t at = begin; at < text_.size(); ++at) {
      if (is_line_end(text_[at])) return at;
      // A quote or a backslash of the value itself is escaped once more than the quotes around it.
      if (text_[at] == '"' && slashes_before(at, begin) % (2 * (slashes + 1)) == slashes) return at - slashes;
    }
    return text_.size();
  }

  // Where the list or object ends whose inside begins at begin: at its closing bracket, at the end of the JSON text
  // that it is quoted in, or where all is cut off.
  std::size_t bracket_end(std::size_t begin, std::size_t slashes) const {
    std::size_t depth = 1;
    for (std::size_t at = begin; at < text_.size(); ++at) {
      if (text_[at] == '[' || text_[at] == '{') ++depth;
      if ((text_[at] == ']' || text_[at] == '}') && --depth == 0) return at;
      if (text_[at] != '"') continue;
      if (slashes_before(at, begin) < slashes) return at;
      at = value_end(at + 1, slashes);
      while (at < text_.size() && text_[at] == '\\') ++at;
    }
    return text_.size();
  }

  std::size_t hide_line(std::size_t begin) {
    std::size_t end = begin;
    while (end < text_.size() && !is_line_end(text_[end])) ++end;
    return hide(begin, end);
  }

  std::size_t hide(std::size_t begin, std::size_t end) {
    if (begin >= end) return 0;
    out_ += text_.substr(copied_, begin - copied_);
    out_ += mask;
    copied_ = end;
    return end;
  }

  std::size_t slashes_before(std::size_t at, std::size_t begin) const {
    std::size_t count = 0;
    while (at - count > begin && text_[at - count - 1] == '\\') ++count;
    return count;
  }

  std::size_t name_begin(std::size_t end) const {
    while (end > 0 && is_name_char(text_[end - 1])) --end;
    return end;
  }

  std::size_t skip_blanks(std::size_t at) const {
    while (at < text_.size() && is_blank(text_[at])) ++at;
    return at;
  }

  std::size_t skip_space(std::size_t at) const {
    while (at < text_.size() && (is_blank(text_[at]) || is_line_end(text_[at]))) ++at;
    return at;
  }

  const std::string_view text_;
  std::size_t copied_ = 0;  // what stands before it is in out_
  std::string out_;
};

}  // namespace

std::string redact_secrets(std::string_view log_text) noexcept {
  try {
    return Redactor(log_text).run();
  } catch (const std::exception&) {
    return std::string();
  }
}
