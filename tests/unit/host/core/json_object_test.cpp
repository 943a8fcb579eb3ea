#include "host/core/json_object.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

namespace {

using host::core::JsonObject;

TEST(JsonObject, WritesFieldsInOrderOnOneLine) {
  JsonObject inner;
  inner.text("a", "b");
  JsonObject object;
  object.text("text", "x").textOrNull("none", nullptr).textOrNull("some", "y").number("n", -7);
  object.null("null").texts("list", {"1", "2"}).texts("empty", {}).object("inner", inner);
  object.object("nothing", JsonObject());
  EXPECT_EQ(object.line(),
            R"({"text":"x","none":null,"some":"y","n":-7,"null":null,"list":["1","2"],)"
            R"("empty":[],"inner":{"a":"b"},"nothing":{}})");
  EXPECT_EQ(JsonObject().line(), "{}");
}

TEST(JsonObject, CarriesEveryByteAsJson) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  JsonObject object;
  object.text("t", every).texts("l", {every, "\"\\件名"});
  object.number("most", std::numeric_limits<std::int64_t>::max());
  const auto parsed = nlohmann::json::parse(object.line());
  EXPECT_EQ(object.line().find('\n'), std::string::npos);
  EXPECT_EQ(parsed["l"][1], "\"\\件名");
  EXPECT_EQ(parsed["t"].get<std::string>().substr(0, 8), "\\x00\\x01");
  EXPECT_EQ(parsed["most"], std::numeric_limits<std::int64_t>::max());
}

}  // namespace
