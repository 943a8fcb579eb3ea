#include "tests/unit/host/message/support/identity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "host/message/message.h"
#include "library/platform/msgu.h"

namespace message_test {

using host::message::Buffer;
using host::message::Message;

namespace {

/// The bytes that were put into \p before to make \p after; nothing when it was more than that.
std::optional<std::string> insertion(std::string_view before, std::string_view after) {
  if (after.size() < before.size()) return std::nullopt;
  const auto differ = std::mismatch(before.begin(), before.end(), after.begin());
  const auto head = static_cast<std::size_t>(differ.first - before.begin());
  const std::string_view rest = before.substr(head);
  if (!after.ends_with(rest)) return std::nullopt;
  return std::string(after.substr(head, after.size() - before.size()));
}

std::string withoutLineBreaks(std::string text) {
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
  return text;
}

}  // namespace

void expectIdentity(const std::string& bytes, const std::string& name) {
  auto message = Message::parse(Buffer::copyOf(bytes));
  ASSERT_TRUE(message->toString() == bytes) << name;
  EXPECT_FALSE(message->changed()) << name;
  OvMsgEntity* root = message->firstEntity();
  if (root == nullptr) return;
  ASSERT_TRUE(msgu::setHeader(root, "X-Flag", "yes", nullptr)) << name;
  const std::string changed = message->toString();
  EXPECT_TRUE(message->changed()) << name;
  EXPECT_EQ(message->renderedSize(), changed.size()) << name;
  const auto inserted = insertion(bytes, changed);
  ASSERT_TRUE(inserted) << name;
  // The common bytes around an insertion may be found one rotation off: "es\nX-Flag: y".
  std::string text = withoutLineBreaks(*inserted);
  std::string expected = "X-Flag: yes";
  std::sort(text.begin(), text.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(text, expected) << name;
  const std::string_view breaks = bytes.find('\n') == std::string::npos ||
                                          changed.find("X-Flag: yes\r\n") != std::string::npos ||
                                          changed.find("\r\nX-Flag: yes") != std::string::npos
                                      ? "\r\n"
                                      : "\n";
  EXPECT_EQ(inserted->size(), std::string_view("X-Flag: yes").size() + breaks.size()) << name;
  EXPECT_NE(changed.find("X-Flag: yes"), std::string::npos) << name;
  auto again = Message::parse(Buffer::copyOf(changed));
  ASSERT_NE(again->firstEntity(), nullptr) << name;
  std::string value;
  EXPECT_TRUE(msgu::getHeader(again->firstEntity(), "X-Flag", value)) << name;
  EXPECT_EQ(value, "yes") << name;
  ASSERT_TRUE(root->removeHeader("X-Flag")) << name;
  EXPECT_TRUE(message->toString() == bytes) << name;
  EXPECT_FALSE(message->changed()) << name;
}

}  // namespace message_test
