#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kolt/export.h"

namespace client_io {

/// An element of a reply. Attributes and namespaces mean nothing here and are dropped.
struct TESSARIN_API S3_Element {
  std::string name;
  std::string text;  ///< its own, not that of its children
  std::vector<S3_Element> children;

  /// The text of the first child of that name; empty if there is none.
  const std::string& operator[](std::string_view child) const;
};

/// Reads a document. False, with @a root empty, where it is not well-formed, holds a document type, is nested deeper
/// than 32 levels or has more than 100,000 elements.
[[nodiscard]] TESSARIN_API bool parse_s3_xml(std::string_view text, S3_Element& root);

/// A text as it stands between two tags.
TESSARIN_API std::string s3_xml_escaped(std::string_view text);

}  // namespace client_io
