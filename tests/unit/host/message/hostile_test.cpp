// Headers made to cost time or stack: every question about them is answered in linear time.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "host/message/mime_values.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Entity;

constexpr std::size_t kSize = 1 << 20;

std::string repeated(const std::string& piece) {
  std::string text;
  while (text.size() < kSize) text += piece;
  return text;
}

std::string numbered(const std::string& before, const std::string& behind) {
  std::string text;
  for (int i = 0; text.size() < kSize; ++i) text += before + std::to_string(i) + behind;
  return text;
}

// What grows with the square of the size takes minutes here; the bound is no measure of speed.
TEST(HostileHeaders, AreReadInLinearTime) {
  const std::string values[] = {
      repeated("a:"),
      repeated("("),
      repeated("()"),
      repeated("<"),
      repeated("a<"),
      repeated("a,"),
      repeated("a "),
      repeated("\""),
      repeated("\\"),
      repeated("g:a@b;,"),
      repeated("@"),
      repeated("=?"),
      repeated("=?a?q?"),
      repeated("=?utf-8?B?w6k=?= "),
      repeated("=?utf-8?B?w6k=?= =?iso-2022-jp?B?GyRCJUYbKEI=?= "),
      repeated("\xE3\x83\x86"),
      "text/plain; " + repeated("a=b; "),
      "multipart/mixed; " + numbered("p", "=v; "),
      "text/plain; " + numbered("n*", "=v; "),
      "text/plain; " + numbered("n", "*0*=utf-8''v; "),
      "text/plain; name=\"" + repeated("=?utf-8?B?w6k=?= ") + "\"",
  };
  for (const std::string& value : values) {
    const auto start = std::chrono::steady_clock::now();
    auto message = mail("Subject: " + value + "\nTo: " + value + "\nContent-Type: " + value +
                        "\nContent-Disposition: " + value + "\n\nbody\n");
    Entity* root = message->firstEntity();
    ASSERT_NE(root, nullptr);
    int words = 0;
    std::string subject;
    EXPECT_NE(root->header("subject")->decodedValue(words), nullptr);
    EXPECT_TRUE(msgu::getSubject(message.get(), "shift_jis", nullptr, subject));
    static_cast<void>(root->header("to")->address());
    static_cast<void>(host::message::mime::addresses(value, 65536));
    static_cast<void>(root->fileName());
    EXPECT_NE(root->contentType(), "");
    static_cast<void>(root->header("content-type")->setParameter("x", "y"));
    EXPECT_EQ(root->header("subject")->setValue(value.c_str(), "utf-8"), 0);
    EXPECT_EQ(root->header("to")->setValue(value.c_str(), "utf-8"), 0);
    EXPECT_GT(message->renderedSize(), kSize);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::seconds(30)) << value.substr(0, 40);
  }
}

}  // namespace
}  // namespace message_test
