#include "host/core/action_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "host/core/resource_path.h"

namespace {

using host::core::appendTakenAction;
using host::core::parseTakenActions;

constexpr KaviAction::ActionType kAll[] = {KaviAction::Archive,
                                           KaviAction::Delete,
                                           KaviAction::Quarantine,
                                           KaviAction::Readdress,
                                           KaviAction::DeleteAttachment,
                                           KaviAction::VirusClean,
                                           KaviAction::TagSubject,
                                           KaviAction::Stamp,
                                           KaviAction::Bcc,
                                           KaviAction::Notify,
                                           KaviAction::Handoff,
                                           KaviAction::Postpone,
                                           KaviAction::Packwatch,
                                           KaviAction::InsertXHeaderTag,
                                           KaviAction::IBEDecrypt,
                                           KaviAction::IBEEncrypt,
                                           KaviAction::IBEReEncrypt};

TEST(ActionName, DiffersForEveryTypeAndIsNeverNull) {
  std::set<std::string> names;
  for (const KaviAction::ActionType type : kAll) names.insert(KaviAction::getActionName(type));
  EXPECT_EQ(names.size(), std::size(kAll));
  EXPECT_EQ(names.count("Unknown"), 0u);
  EXPECT_STREQ(KaviAction::getActionName(KaviAction::Quarantine), "Quarantine");
  for (const int code : {6, 13, 14, 15, 17, 19, 23, -1, 1000}) {
    EXPECT_STREQ(KaviAction::getActionName(static_cast<KaviAction::ActionType>(code)), "Unknown");
  }
}

TEST(TakenActions, AreWrittenAsDocumented) {
  std::string raw;
  appendTakenAction(raw, {KaviAction::Delete, ""});
  appendTakenAction(raw, {KaviAction::Postpone, "08:30"});
  appendTakenAction(raw, {KaviAction::Bcc, "a;b%\n\xC3\xA9"});
  EXPECT_EQ(raw, "1;12:08%3A30;9:a%3Bb%25%0A%C3%A9");
}

TEST(TakenActions, ComeBackWhateverTheirDetailHolds) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  std::string raw;
  appendTakenAction(raw, {KaviAction::InsertXHeaderTag, every});
  appendTakenAction(raw, {KaviAction::Archive, ""});
  EXPECT_EQ(std::strlen(raw.c_str()), raw.size());
  const auto back = parseTakenActions(raw);
  ASSERT_TRUE(back.has_value());
  ASSERT_EQ(back->size(), 2u);
  EXPECT_EQ((*back)[0].type, KaviAction::InsertXHeaderTag);
  EXPECT_EQ((*back)[0].detail, every);
  EXPECT_EQ((*back)[1].type, KaviAction::Archive);
}

TEST(TakenActions, AreNoneInAMalformedText) {
  for (const char* raw : {";", "1;", ";1", "x", "1x", "1,2", "6", "23", "-1", "1:%", "1:%4",
                          "1:%G0", "1:%+1", "1:a:b", "1:\x01", "1:\xC3\xA9", "99999999999999"}) {
    EXPECT_FALSE(parseTakenActions(raw).has_value()) << raw;
    std::string out = "before";
    EXPECT_FALSE(KaviAction::CreateActionTokenString(raw, out)) << raw;
    EXPECT_EQ(out, "before") << raw;
  }
}

TEST(ActionTokenString, IsReadableInTheProductsLanguage) {
  std::string out;
  ASSERT_TRUE(KaviAction::CreateActionTokenString("18:X-Flag;12:08%3A30;1", out));
  EXPECT_EQ(out, "Insert X-header (X-Flag), Postpone (08:30), Delete");
  host::core::setProductLocale("ja");
  ASSERT_TRUE(KaviAction::CreateActionTokenString("12:08%3A30;1", out));
  EXPECT_EQ(out, "配信の延期 (08:30)、削除");
  host::core::setProductLocale("");
}

TEST(ActionTokenString, IsEmptyForNoActions) {
  std::string out = "before";
  EXPECT_TRUE(KaviAction::CreateActionTokenString("", out));
  EXPECT_EQ(out, "");
  EXPECT_FALSE(KaviAction::CreateActionTokenString(nullptr, out));
}

TEST(ActionTokenString, KeepsDetailsOnOneLine) {
  std::string out;
  ASSERT_TRUE(KaviAction::CreateActionTokenString("9:a%0D%0Ab%00", out));
  EXPECT_EQ(out, "Blind copy (a\\r\\nb\\x00)");
}

}  // namespace
