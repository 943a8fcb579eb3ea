// The settings of the actions that change recipients.
#include <map>
#include <type_traits>

#include "library/actions/disposition/readdress.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/actions/disposition/blob_record.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;

template <class Settings>
class RecipientSettingsTest : public LibraryTest {};

using SettingsClasses = testing::Types<uiReaddress, uiBcc>;
TYPED_TEST_SUITE(RecipientSettingsTest, SettingsClasses);

TYPED_TEST(RecipientSettingsTest, HoldTheRecipientsAsGiven) {
  TypeParam settings;
  EXPECT_EQ(settings.getRcpt(), "");
  settings.setRcpt(" a@x ;b@x");
  EXPECT_EQ(settings.getRcpt(), " a@x ;b@x");
  EXPECT_EQ(settings.serialize(), record({{"rcpt", " a@x ;b@x"}}));
  settings.setRcpt(nullptr);
  EXPECT_EQ(settings.getRcpt(), "");
}

TYPED_TEST(RecipientSettingsTest, ReadARecordWithRecipients) {
  const struct {
    const char* what;
    std::map<std::string, std::string> fields;
    bool result;
    const char* rcpt;
  } kCases[] = {
      {"recipients", {{"rcpt", "a@x;b@x"}}, true, "a@x;b@x"},
      {"empty recipients", {{"rcpt", ""}}, true, ""},
      {"other fields beside", {{"rcpt", "a@x"}, {"more", "1"}}, true, "a@x"},
      {"no recipients", {{"more", "1"}}, false, "before"},
      {"no fields", {}, false, "before"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    for (unsigned int length : {0u, 1u, 1000u}) {
      TypeParam settings;
      settings.setRcpt("before");
      EXPECT_EQ(settings.construct(record(test.fields).c_str(), length), test.result);
      EXPECT_EQ(settings.getRcpt(), test.rcpt);
    }
  }
}

TYPED_TEST(RecipientSettingsTest, RefuseWhatIsNoRecord) {
  TypeParam settings;
  settings.setRcpt("before");
  for (const char* text : {static_cast<const char*>(nullptr), "", "a@x"}) {
    EXPECT_FALSE(settings.construct(text, 3));
  }
  EXPECT_EQ(settings.getRcpt(), "before");
  EXPECT_TRUE(this->log.takeLines().empty());
}

TYPED_TEST(RecipientSettingsTest, SerializeToNothingWhenTheFieldCannotBeStored) {
  TypeParam settings;
  const FaultPlan plan(FaultKind::PlatformFailure, 1);
  EXPECT_EQ(settings.serialize(), "");
  EXPECT_TRUE(plan.fired());
}

template <class Action>
class RecipientActionTest : public LibraryTest {};

using ActionClasses = testing::Types<ActReaddress, ActBcc>;
TYPED_TEST_SUITE(RecipientActionTest, ActionClasses);

TYPED_TEST(RecipientActionTest, ReadBackWhatTheyWrote) {
  TypeParam action;
  const std::string text = record({{"rcpt", " a@x ;b@x"}});
  ASSERT_TRUE(action.construct(text.c_str(), 0));
  EXPECT_EQ(action.recipients, " a@x ;b@x");
  EXPECT_EQ(action.serialize(), text);
}

TYPED_TEST(RecipientActionTest, KeepTheirRecipientsWhenASettingIsRefused) {
  TypeParam action;
  action.recipients = "before";
  EXPECT_FALSE(action.construct("no record, and much longer than thirty-two characters", 0));
  EXPECT_FALSE(action.construct(nullptr, 4));
  EXPECT_EQ(action.recipients, "before");
  EXPECT_EQ(
      this->log.takeLines(),
      (LogLines{{1,
                 "Failed to construct Action Readdress/Bcc with setting: "
                 "'no record, and much longer than ' (max 32 chars)"},
                {1, "Failed to construct Action Readdress/Bcc with setting: '' (max 32 chars)"}}));
}

TYPED_TEST(RecipientActionTest, AppendAsTheirClassSays) {
  EXPECT_EQ(TypeParam().appendMode, (std::is_same_v<TypeParam, ActBcc>));
}

TYPED_TEST(RecipientActionTest, ReadNothingAtTheStart) {
  fakes::Settings settings;
  EXPECT_TRUE(TypeParam::init(settings, this->log));
  EXPECT_TRUE(settings.lookups().empty());
  EXPECT_TRUE(this->log.takeLines().empty());
}

}  // namespace
