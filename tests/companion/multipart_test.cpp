#include "companion/http/multipart.h"

#include <gtest/gtest.h>

namespace kestrin::server {
namespace {

constexpr const char* type = "multipart/form-data; boundary=B-1";

std::string field(const std::string& name, const std::string& value) {
  return "--B-1\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

TEST(Multipart, ReadsFieldsAndAFileOfAnyBytes) {
  const std::string audio("\r\n--B-\0\xff\r\n\r\n--B-2 not the end\r", 31);
  const std::string body =
      field("sample_rate", "16000") + field("empty", "") +
      "--B-1\r\nContent-Type: audio/wav\r\n"
      "content-disposition: form-data; filename=\"a; name=\\\"x\\\".wav\"; name=file\r\n\r\n" +
      audio + "\r\n--B-1--\r\n";
  const auto parts = parseMultipart(type, body);
  ASSERT_TRUE(parts) << parts.error().description;
  EXPECT_EQ(partNamed(*parts, "sample_rate")->content, "16000");
  EXPECT_EQ(partNamed(*parts, "empty")->content, "");
  EXPECT_EQ(partNamed(*parts, "file")->content, audio);
  EXPECT_EQ(partNamed(*parts, "file")->fileName, "a; name=\"x\".wav");
  EXPECT_EQ(partNamed(*parts, "other"), nullptr);
  EXPECT_TRUE(parseMultipart("Multipart/Form-Data; charset=x; boundary=\"B-1\"", body));
}

TEST(Multipart, AFormCutAnywhereIsAnError) {
  const std::string whole = field("a", "1") + field("file", "abc") + "--B-1--";
  ASSERT_TRUE(parseMultipart(type, whole));
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(parseMultipart(type, whole.substr(0, length))) << length;
  }
}

TEST(Multipart, RefusesOtherTypesNamelessPartsAndFloods) {
  const std::string end = "--B-1--\r\n";
  EXPECT_FALSE(parseMultipart("application/json", field("a", "1") + end));
  EXPECT_FALSE(parseMultipart("multipart/form-data", field("a", "1") + end));
  EXPECT_FALSE(parseMultipart("multipart/form-data; boundary=", field("a", "1") + end));
  EXPECT_FALSE(parseMultipart(type, "--B-1\r\nContent-Type: text/plain\r\n\r\nx\r\n" + end));
  EXPECT_FALSE(parseMultipart(type, "--B-1\r\n\r\nx\r\n" + end));
  EXPECT_FALSE(parseMultipart(type, "--B-1x" + field("a", "1") + end));
  std::string flood;
  for (int i = 0; i < 65; ++i) flood += field("a", "1");
  EXPECT_FALSE(parseMultipart(type, flood + end));
}

}  // namespace
}  // namespace kestrin::server
