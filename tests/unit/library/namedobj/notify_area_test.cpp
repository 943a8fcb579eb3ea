#include "library/namedobj/notify_area.h"

#include <random>

#include "tests/unit/library/library_test.h"

namespace {

/// A record that differs from what every text below says.
uiNotifyArea before() {
  uiNotifyArea record;
  for (std::string* text : {&record.name, &record.sender, &record.recipients, &record.subject,
                            &record.body, &record.trapMessage}) {
    *text = "before";
  }
  record.type = 99;
  return record;
}

bool construct(uiNotifyArea& record, const std::string& text) {
  return record.construct(text.c_str(), static_cast<unsigned int>(text.size()));
}

/// Every field as text: what the tests compare.
std::string shown(const uiNotifyArea& record) {
  std::string text;
  for (const std::string* field : {&record.name, &record.sender, &record.recipients,
                                   &record.subject, &record.body, &record.trapMessage}) {
    text += *field + "|";
  }
  for (const bool flag :
       {record.notifySender, record.notifyRecipients, record.sendTrap, record.derived}) {
    text += flag ? "1" : "0";
  }
  text += "|" + std::to_string(record.type) + "|";
  text += record.attachMessage ? "1" : "0";
  return text + (record.attachModifiedMessage ? "1" : "0");
}

const std::string kTexts = "1:n:1:s:1:r:1:u:1:b:1:t:";
const std::string kNoTexts = "0::0::0::0::0::0::";

TEST(NotifyAreaTest, IsEmptyWhenNew) {
  uiNotifyArea record;
  EXPECT_EQ(shown(record), "||||||0000|0|00");
  EXPECT_EQ(record.getType(), 1u);
  EXPECT_EQ(record.serialize(), "0::0::0::0::0::0::0:0:0:0:0:0:0:");
}

TEST(NotifyAreaTest, ReadsEveryField) {
  uiNotifyArea record;
  EXPECT_TRUE(construct(record, kTexts + "1:0:1:0:27:0:1:"));
  EXPECT_EQ(shown(record), "n|s|r|u|b|t|1011|27|01");
  EXPECT_TRUE(construct(record, kTexts + "0:1:0:1:1:1:0:"));
  EXPECT_EQ(shown(record), "n|s|r|u|b|t|0100|1|10");
}

TEST(NotifyAreaTest, DerivesItsFlagFromTheType) {
  for (const unsigned int type : {0u, 1u, 2u, 26u}) {
    uiNotifyArea record;
    EXPECT_TRUE(construct(record, kNoTexts + "0:0:0:1:" + std::to_string(type) + ":0:0:"));
    EXPECT_FALSE(record.derived) << type;
    EXPECT_EQ(record.type, type);
  }
  for (const unsigned int type : {3u, 25u, 27u, 4294967295u}) {
    uiNotifyArea record;
    EXPECT_TRUE(construct(record, kNoTexts + "0:0:0:0:" + std::to_string(type) + ":0:0:"));
    EXPECT_TRUE(record.derived) << type;
    EXPECT_EQ(record.type, type);
  }
}

struct FaultCase {
  const char* what;
  std::string text;
  const char* left;
};

const FaultCase kFaults[] = {
    {"empty", "", "before|before|before|before|before|before|0000|99|00"},
    {"no closing separator", "1:nX", "before|before|before|before|before|before|0000|99|00"},
    {"length beyond the text", "9:n:", "before|before|before|before|before|before|0000|99|00"},
    {"ends behind field 1", "1:n:", "n|before|before|before|before|before|0000|99|00"},
    {"ends behind field 2", "1:n:1:s:", "n|s|before|before|before|before|0000|99|00"},
    {"field 4 malformed", "1:n:1:s:1:r:2:u:", "n|s|r|before|before|before|0000|99|00"},
    {"ends behind field 6", kTexts, "n|s|r|u|b|t|0000|99|00"},
    {"ends behind field 7", kTexts + "1:", "n|s|r|u|b|t|1000|99|00"},
    {"ends behind field 8", kTexts + "1:1:", "n|s|r|u|b|t|1100|99|00"},
    {"ends behind field 9", kTexts + "1:1:1:", "n|s|r|u|b|t|1110|99|00"},
    {"ends behind field 10", kTexts + "0:0:0:1:", "n|s|r|u|b|t|0001|99|00"},
    {"ends behind field 11", kTexts + "0:0:0:1:2:", "n|s|r|u|b|t|0001|2|00"},
    {"ends behind field 12", kTexts + "0:0:0:1:2:1:", "n|s|r|u|b|t|0001|2|10"},
};

TEST(NotifyAreaTest, KeepsTheFieldsBeforeAFault) {
  for (const FaultCase& test : kFaults) {
    SCOPED_TRACE(test.what);
    uiNotifyArea record = before();
    EXPECT_FALSE(construct(record, test.text));
    EXPECT_EQ(shown(record), test.left);
  }
  uiNotifyArea record = before();
  EXPECT_FALSE(record.construct(nullptr, 10));
  EXPECT_EQ(shown(record), kFaults[0].left);
}

TEST(NotifyAreaTest, EndsWhereItsLengthEnds) {
  const std::string text = kTexts + "1:1:1:1:27:1:1:";
  uiNotifyArea record = before();
  EXPECT_FALSE(record.construct(text.c_str(), static_cast<unsigned int>(text.size() - 4)));
  EXPECT_EQ(shown(record), "n|s|r|u|b|t|1111|27|00");
  EXPECT_TRUE(record.construct(text.c_str(), static_cast<unsigned int>(text.size() - 1)))
      << "the last separator may be missing";
}

TEST(NotifyAreaTest, TakesAnyNumberButZeroForTrue) {
  uiNotifyArea record;
  EXPECT_TRUE(construct(record, kNoTexts + "7:-1:4294967296:0:0:00:x:"));
  EXPECT_EQ(shown(record), "||||||1110|0|00");
  EXPECT_EQ(record.serialize(), kNoTexts + "1:1:1:0:0:0:0:");
}

TEST(NotifyAreaTest, TakesAnySeparatorAndIgnoresWhatFollows) {
  uiNotifyArea record;
  EXPECT_TRUE(construct(record, "1xn:1 s:1-r:1/u:1.b:1,t:1x0y1z0-3 1;0.and more"));
  EXPECT_EQ(shown(record), "n|s|r|u|b|t|1011|3|10");
}

TEST(NotifyAreaTest, ReadsTextsByTheirLength) {
  uiNotifyArea record;
  record.name = "a:b";
  record.sender = ":";
  record.recipients = "x@y;z@w";
  record.subject = "%SUBJECT%";
  record.body = "line\r\nline:\n12:";
  record.trapMessage = "\xE6\x97\xA5";
  record.attachMessage = true;
  const std::string text = record.serialize();
  uiNotifyArea other;
  EXPECT_TRUE(construct(other, text));
  EXPECT_EQ(shown(other), shown(record));
  EXPECT_EQ(other.serialize(), text);
}

TEST(NotifyAreaTest, ComesBackAsItWasWritten) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 500; ++round) {
    uiNotifyArea record;
    for (std::string* text : {&record.name, &record.sender, &record.recipients, &record.subject,
                              &record.body, &record.trapMessage}) {
      for (std::size_t length = random() % 20; length > 0; --length) {
        *text += static_cast<char>(1 + random() % 255);
      }
    }
    record.notifySender = random() % 2 != 0;
    record.sendTrap = random() % 2 != 0;
    record.attachModifiedMessage = random() % 2 != 0;
    record.type = static_cast<unsigned int>(random());
    record.derived = record.type >= 3 && record.type != 26;
    uiNotifyArea other;
    ASSERT_TRUE(construct(other, record.serialize()));
    ASSERT_EQ(shown(other), shown(record));
  }
}

}  // namespace
