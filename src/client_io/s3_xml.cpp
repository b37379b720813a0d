#include "client_io/s3_xml.h"

#include <expat.h>

#include <memory>

namespace client_io {

namespace {

constexpr size_t s3_xml_max_depth = 32;
// A page of a listing has 1,000 names, with a dozen elements each.
constexpr size_t s3_xml_max_elements = 100'000;

struct S3_Xml_Reader {
  XML_Parser parser;
  S3_Element top;                   // its only child will be the root
  std::vector<S3_Element*> open{};  // a child is closed before the next one moves its brothers
  size_t elements = 0;

  static void begin(void* self, const char* name, const char**) {
    auto& reader = *static_cast<S3_Xml_Reader*>(self);
    if (reader.open.size() >= s3_xml_max_depth || ++reader.elements > s3_xml_max_elements) {
      XML_StopParser(reader.parser, XML_FALSE);
      return;
    }
    S3_Element& parent = reader.open.empty() ? reader.top : *reader.open.back();
    parent.children.push_back({name, {}, {}});
    reader.open.push_back(&parent.children.back());
  }
  static void end(void* self, const char*) { static_cast<S3_Xml_Reader*>(self)->open.pop_back(); }
  static void text(void* self, const char* text, int size) {
    auto& reader = *static_cast<S3_Xml_Reader*>(self);
    if (!reader.open.empty()) reader.open.back()->text.append(text, static_cast<size_t>(size));
  }
  // No reply has one; what could be done with its entities is not wanted.
  static void doctype(void* self, const char*, const char*, const char*, int) {
    XML_StopParser(static_cast<S3_Xml_Reader*>(self)->parser, XML_FALSE);
  }
};

}  // namespace

const std::string& S3_Element::operator[](std::string_view child) const {
  static const std::string none;
  for (const S3_Element& element : children)
    if (element.name == child) return element.text;
  return none;
}

bool parse_s3_xml(std::string_view text, S3_Element& root) {
  root = {};
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) return false;
  S3_Xml_Reader reader{parser.get(), {}};
  XML_SetUserData(parser.get(), &reader);
  XML_SetElementHandler(parser.get(), &S3_Xml_Reader::begin, &S3_Xml_Reader::end);
  XML_SetCharacterDataHandler(parser.get(), &S3_Xml_Reader::text);
  XML_SetStartDoctypeDeclHandler(parser.get(), &S3_Xml_Reader::doctype);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK) return false;
  root = std::move(reader.top.children.front());
  return true;
}

std::string s3_xml_escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&')
      escaped += "&amp;";
    else if (c == '<')
      escaped += "&lt;";
    else if (c == '>')
      escaped += "&gt;";
    else
      escaped += c;
  }
  return escaped;
}

}  // namespace client_io
