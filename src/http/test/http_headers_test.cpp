#include <gtest/gtest.h>

#include <iterator>

#include "http/http_request.h"
#include "http/http_response.h"
#include "http/request_fault.h"

namespace {

TEST(Http_Headers, a_put_replaces_every_header_of_that_name) {
  HTTP_Headers headers;
  headers.put("Warning", "1", false);
  headers.put("Accept", "x", true);
  headers.put("warning", "2", false);
  headers.put("WARNING", "3", true);
  EXPECT_STREQ("3", headers.get("Warning", true));
  EXPECT_STREQ("3", headers.get("Warning", false));
  EXPECT_EQ(2, std::distance(headers.begin(), headers.end()));
}

TEST(Http_Headers, a_put_that_does_not_replace_adds_one_more) {
  HTTP_Headers headers;
  headers.put(HTTP_HEAD_WARNING, "1", false);
  headers.put(HTTP_HEAD_WARNING, "2", false);
  EXPECT_STREQ("1", headers.get(HTTP_HEAD_WARNING, true));
  EXPECT_STREQ("2", headers.get(HTTP_HEAD_WARNING, false));
}

TEST(Http_Headers, a_null_value_removes_all_of_that_name) {
  HTTP_Headers headers;
  headers.put("Warning", "1", false);
  headers.put("Warning", "2", false);
  headers.put("Accept", "x", true);
  headers.put("warning", nullptr, true);
  EXPECT_EQ(nullptr, headers.get("Warning", true));
  EXPECT_STREQ("x", headers.get("Accept", true));
}

TEST(Http_Headers, an_empty_value_is_a_header) {
  HTTP_Headers headers;
  headers.put("Authorization", "", true);
  EXPECT_STREQ("", headers.get(HTTP_HEAD_AUTHORIZATION, true));
}

TEST(Http_Headers, what_has_no_name_is_no_header) {
  HTTP_Headers headers;
  headers.put(nullptr, "x", true);
  headers.put(48, "x", true);
  EXPECT_TRUE(headers.empty());
  EXPECT_EQ(nullptr, headers.get(nullptr, true));
  EXPECT_EQ(nullptr, headers.get(48, true));
}

TEST(Http_Base, content_length_is_a_decimal_number_and_0_if_absent) {
  HTTP_Response response;
  EXPECT_EQ(0u, response.content_length());
  response.headers().put(HTTP_HEAD_CONTENT_LENGTH, "18446744073709551615", true);
  EXPECT_EQ(18446744073709551615u, response.content_length());
  response.headers().put(HTTP_HEAD_CONTENT_LENGTH, "010 bytes", true);
  EXPECT_EQ(10u, response.content_length());
  response.content_length(5000000000);
  EXPECT_STREQ("5000000000", response.headers().get("Content-Length", true));
}

TEST(Http_Base, content_type_is_the_text_as_it_stands) {
  HTTP_Request request;
  EXPECT_EQ(nullptr, request.content_type());
  request.content_type("application/merge-patch+json");
  EXPECT_STREQ("application/merge-patch+json", request.headers().get(HTTP_HEAD_CONTENT_TYPE, true));
  EXPECT_STREQ("application/merge-patch+json", request.content_type());
}

TEST(Http_Base, a_connection_is_kept_by_http_1_1_and_not_by_http_1_0_unless_the_header_says_so) {
  HTTP_Response response;
  response.minor_version(0);
  EXPECT_FALSE(response.keep_alive());
  response.minor_version(1);
  EXPECT_TRUE(response.keep_alive());
  response.headers().put("Connection", "upgrade", true);
  EXPECT_TRUE(response.keep_alive());
  response.minor_version(0);
  EXPECT_FALSE(response.keep_alive());
  response.headers().put("Connection", "upgrade, Keep-Alive", true);
  EXPECT_TRUE(response.keep_alive());
  response.minor_version(1);
  response.headers().put("Connection", "close", true);
  EXPECT_FALSE(response.keep_alive());
}

TEST(Http_Base, close_wins_over_keep_alive) {
  HTTP_Response response;
  for (const char* value : {"Keep-Alive, close", "close,Keep-Alive", " Keep-Alive ,\tclose "}) {
    response.headers().put("Connection", value, true);
    EXPECT_FALSE(response.keep_alive()) << value;
  }
}

TEST(Http_Base, only_a_whole_token_counts) {
  HTTP_Response response;
  response.headers().put("Connection", "closed, not close", true);
  EXPECT_TRUE(response.keep_alive());
  response.minor_version(0);
  response.headers().put("Connection", "Keep-Alive-Not", true);
  EXPECT_FALSE(response.keep_alive());
}

TEST(Http_Base, keep_alive_is_written_as_one_of_two_words) {
  HTTP_Response response;
  response.keep_alive(true);
  EXPECT_STREQ("Keep-Alive", response.headers().get(HTTP_HEAD_CONNECTION, true));
  response.keep_alive(false);
  EXPECT_STREQ("close", response.headers().get(HTTP_HEAD_CONNECTION, true));
}

TEST(Http_Base, chunked_is_compared_exactly) {
  HTTP_Response response;
  EXPECT_FALSE(response.chunked_transfer_encoding());
  response.headers().put(HTTP_HEAD_TRANSFER_ENCODING, "Chunked", true);
  EXPECT_FALSE(response.chunked_transfer_encoding());
  response.headers().put(HTTP_HEAD_TRANSFER_ENCODING, "gzip, chunked", true);
  EXPECT_FALSE(response.chunked_transfer_encoding());
  response.chunked_transfer_encoding(true);
  EXPECT_TRUE(response.chunked_transfer_encoding());
  EXPECT_STREQ("chunked", response.headers().get("Transfer-Encoding", true));
}

TEST(Http_Base, not_chunked_removes_the_header) {
  HTTP_Response response;
  response.chunked_transfer_encoding(true);
  response.chunked_transfer_encoding(false);
  EXPECT_EQ(nullptr, response.headers().get(HTTP_HEAD_TRANSFER_ENCODING, true));
}

TEST(Http_Request, a_reset_clears_headers_and_uri) {
  HTTP_Request request(3, "/", false);
  EXPECT_EQ("/", request.uri());
  EXPECT_EQ(HTTP_METHOD_GET, request.method());
  request.content_type("text/plain");
  request.uri("/a?b=c", true);
  EXPECT_EQ("/a?b=c", request.uri());
  request.reset();
  EXPECT_TRUE(request.headers().empty());
  EXPECT_EQ("", request.uri());
}

TEST(Http_Request, what_would_end_its_line_is_not_sent) {
  HTTP_Request request(HTTP_METHOD_GET, "/a", true);
  EXPECT_EQ(nullptr, request_fault(request));
  for (const char* uri : {"", "a", "http://elsewhere/", "/a b", "/a\r\nX: y", "/a\x7F", "/\xC3\xA9"}) {
    request.uri(uri, true);
    EXPECT_NE(nullptr, request_fault(request)) << uri;
  }
  request.uri("/a", true);
  for (const char* value : {"Bearer x\r\nHost: y", "x\n", "x\r", "\x01"}) {
    request.headers().put("Authorization", value, true);
    EXPECT_NE(nullptr, request_fault(request)) << value;
  }
  request.headers().put("Authorization", "", true);
  EXPECT_EQ(nullptr, request_fault(request));
  request.headers().put("a: b", "c", true);
  EXPECT_NE(nullptr, request_fault(request));
}

}  // namespace
