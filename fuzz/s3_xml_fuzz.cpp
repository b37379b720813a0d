// Replies of an S3 service: what is taken for well-formed is a tree of bounded depth, and reads the same once it was
// written again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "client_io/s3_xml.h"

namespace {

using client_io::S3_Element;

constexpr unsigned max_depth = 32;

// False where a text holds what only an entity can bring back.
bool write(const S3_Element& element, unsigned depth, std::string& to) {
  if (depth > max_depth || element.name.empty()) std::abort();
  if (element.text.find('\r') != std::string::npos) return false;
  to += "<" + element.name + ">";
  for (const S3_Element& child : element.children) {
    if (element[child.name].size() > 1 << 30) std::abort();
    if (!write(child, depth + 1, to)) return false;
  }
  to += client_io::s3_xml_escaped(element.text) + "</" + element.name + ">";
  return true;
}

bool equal(const S3_Element& a, const S3_Element& b) {
  if (a.name != b.name || a.text != b.text || a.children.size() != b.children.size()) return false;
  for (size_t i = 0; i < a.children.size(); ++i)
    if (!equal(a.children[i], b.children[i])) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  S3_Element root;
  if (!client_io::parse_s3_xml({reinterpret_cast<const char*>(data), size}, root)) {
    if (!root.name.empty() || !root.children.empty()) std::abort();
    return 0;
  }
  std::string text;
  if (!write(root, 1, text)) return 0;
  S3_Element again;
  // A name with a prefix or in another encoding may need more of the document than is kept.
  if (client_io::parse_s3_xml(text, again) && !equal(root, again)) std::abort();
  return 0;
}
