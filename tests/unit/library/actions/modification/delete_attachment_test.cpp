#include "library/actions/modification/delete_attachment.h"

#include "tests/unit/library/actions/modification/delete_attachment_test.h"

namespace {

using fakes::Entity;
using fakes::LogLines;
using Kavi::ScanToken;

constexpr char kGroup[] = "IDG_VIRUS_FILTER";
constexpr char kLocale[] = "cached";

TEST_F(DeleteAttachmentTest, ReadsTheFirstCharacterOnly) {
  const struct {
    const char* setting;
    unsigned int length;
    const char* serialized;
  } kCases[] = {{"T", 1, "T"}, {"F", 1, "F"}, {"True", 4, "T"}, {"t", 1, "F"},
                {"", 0, "F"},  {"T", 0, "T"}, {"xT", 2, "F"},   {" T", 2, "F"}};
  EXPECT_EQ(action.serialize(), "F") << "fresh";
  for (const auto& test : kCases) {
    ActDeleteAttachment read;
    EXPECT_TRUE(read.construct(test.setting, test.length)) << test.setting;
    EXPECT_EQ(read.serialize(), test.serialized) << test.setting;
  }
  EXPECT_FALSE(action.construct(nullptr, 0));
}

TEST_F(DeleteAttachmentTest, SettingsClassHasNoSettings) {
  uiDeleteAttachment settings;
  EXPECT_TRUE(settings.construct("T", 1));
  EXPECT_TRUE(settings.construct(nullptr, 0));
  EXPECT_EQ(settings.serialize(), "");
}

TEST_F(DeleteAttachmentTest, KnowsAttachments) {
  EXPECT_FALSE(library::_isAttachment(nullptr));
  EXPECT_FALSE(library::_isAttachment(body));
  EXPECT_TRUE(library::_isAttachment(first));
  first->facts().file->text.reset();
  EXPECT_FALSE(library::_isAttachment(first)) << "a file name without a text";
  first->facts().file->text = "";
  EXPECT_TRUE(library::_isAttachment(first)) << "an empty one is one";

  const struct {
    const char* value;  // null: none
    bool result;
  } kCases[] = {{"attachment", true},
                {"attachment; size=5", false},
                {"Attachment", false},
                {"inline", false},
                {"attachments", false},
                {" attachment", false},
                {"", false},
                {nullptr, false}};
  for (const auto& test : kCases) {
    Entity entity;
    fakes::Header* const header =
        entity.addField("Content-Disposition", test.value != nullptr ? test.value : "attachment");
    header->facts().hasValue = test.value != nullptr;
    EXPECT_EQ(library::_isAttachment(&entity), test.result) << header->valueText();
  }
}

TEST_F(DeleteAttachmentTest, KnowsMessages) {
  EXPECT_FALSE(library::_isMsgAttachment(nullptr));
  const struct {
    OvMsgEntityKind kind;
    const char* type;  // null: none
    bool result;
  } kCases[] = {{OvMsgEntityKind::Message, nullptr, true},
                {OvMsgEntityKind::OpaqueMessage, "text/plain", true},
                {OvMsgEntityKind::Leaf, nullptr, false},
                {OvMsgEntityKind::Leaf, "message/rfc822", true},
                {OvMsgEntityKind::Leaf, "Message/RFC822", false},
                {OvMsgEntityKind::Leaf, "message/rfc822; x=y", false},
                {OvMsgEntityKind::Multipart, "multipart/mixed", false},
                {OvMsgEntityKind::Multipart, nullptr, false}};
  for (const auto& test : kCases) {
    Entity entity;
    entity.facts().kind = test.kind;
    if (test.type != nullptr) {
      entity.addField("content-type", test.type);
    }
    EXPECT_EQ(library::_isMsgAttachment(&entity), test.result);
  }
  Entity entity;
  entity.addField("Content-Type", "message/rfc822")->facts().hasValue = false;
  EXPECT_FALSE(library::_isMsgAttachment(&entity));
}

TEST_F(DeleteAttachmentTest, DeletesTheWholeMessage) {
  foundVirus();
  tokens.set(ScanToken::WholeMailScan, "1");
  tokens.set(ScanToken::MarkedForDeletionRaw, "raw");
  tokens.set(ScanToken::MessageRemains, "1");
  mark({first});
  EXPECT_TRUE(take());
  EXPECT_TRUE(flag);
  ASSERT_EQ(adapter.calls().size(), 1u);
  EXPECT_EQ(adapter.calls()[0].text, "delete");
  EXPECT_EQ(adapter.calls()[0].msg, &msg);
  EXPECT_EQ(adapter.errorOnEntry(), 0u);
  EXPECT_EQ(log.takeLines(),
            (LogLines{{2, "[ActDeleteAttachment::takeAction] vp = Virus,wms = 1,daa = "},
                      {2, "Whole mail scan deletes the message because virus found"}}));
  EXPECT_EQ(value(ScanToken::MarkedForDeletion), nullptr);
  EXPECT_EQ(value(ScanToken::MarkedForDeletionRaw), nullptr);
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MessageRemains), "0");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::VirusAction), "Delete whole mail");
  EXPECT_TRUE(removals().empty());
}

TEST_F(DeleteAttachmentTest, LeavesEverythingWhenTheAdapterFails) {
  foundVirus();
  tokens.set(ScanToken::WholeMailScan, "1");
  tokens.set(ScanToken::MarkedForDeletionRaw, "raw");
  mark({first});
  adapter.answer(12, 1);
  EXPECT_FALSE(take());
  EXPECT_FALSE(flag);
  EXPECT_EQ(lines(), (LogLines{{1,
                                "Failed to delete a message during whole mail scan, error "
                                "12."}}));
  EXPECT_NE(value(ScanToken::MarkedForDeletion), nullptr);
  EXPECT_NE(value(ScanToken::MarkedForDeletionRaw), nullptr);
  EXPECT_EQ(value(ScanToken::MessageRemains), nullptr);
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::VirusAction), "Delete whole mail");
}

TEST_F(DeleteAttachmentTest, AWholeMailScanWithoutAVirusDeletesTheMarkedEntities) {
  for (const bool empty : {false, true}) {
    if (empty) {
      tokens.set(ScanToken::VirusName, "");
    }
    tokens.set(ScanToken::WholeMailScan, "1");
    mark({empty ? second : first});
    EXPECT_TRUE(take());
    EXPECT_FALSE(flag);
    EXPECT_TRUE(adapter.calls().empty());
    EXPECT_EQ(removals(), Texts{empty ? "remove second" : "remove first"});
  }
}

TEST_F(DeleteAttachmentTest, OnlyAMarkerThatBeginsWithOneCounts) {
  for (const char* marker : {"", "0", "01", " 1", "2"}) {
    foundVirus();
    tokens.set(ScanToken::WholeMailScan, marker);
    tokens.set(ScanToken::DeleteAll, marker);
    EXPECT_TRUE(take());
    EXPECT_TRUE(adapter.calls().empty()) << marker;
    EXPECT_EQ(action.serialize(), "F") << marker;
  }
  tokens.set(ScanToken::WholeMailScan, "10");
  EXPECT_TRUE(take());
  EXPECT_EQ(adapter.calls().size(), 1u);
}

struct ActionTextCase {
  const char* what;
  const char* id;  // of a localised text, or null
  const char* text;
  const char* present;  // value of the token before; null: none
  bool all;
  const char* expected;
};

TEST_F(DeleteAttachmentTest, AddsItsTextToTheVirusAction) {
  const ActionTextCase kCases[] = {
      {"default", nullptr, "", nullptr, false, "Delete matching attachment"},
      {"default for all", nullptr, "", nullptr, true, "Delete all attachments"},
      {"localised", "IDS_VACTION_DELETE", "weg", nullptr, false, "weg"},
      {"localised for all", "IDS_VACTION_DELETE_ALL", "alles weg", nullptr, true, "alles weg"},
      {"localised as nothing", "IDS_VACTION_DELETE", "", nullptr, false,
       "Delete matching attachment"},
      {"behind another", nullptr, "", "Clean", false, "Clean;Delete matching attachment"},
      {"an empty value is none", nullptr, "", "", true, "Delete all attachments"},
  };
  for (const ActionTextCase& test : kCases) {
    SCOPED_TRACE(test.what);
    fakes::Resources::instance().clear();
    if (test.id != nullptr) {
      fakes::Resources::instance().set(kGroup, kLocale, test.id, test.text);
    }
    tokens.clear();
    if (test.present != nullptr) {
      tokens.set(ScanToken::VirusAction, test.present);
    }
    foundVirus();
    ActDeleteAttachment one;
    fakes::Message mail;
    attach(mail.root()->addPart("a"), "a.doc");
    if (test.all) {
      tokens.set(ScanToken::DeleteAll, "1");
    } else {
      mark({static_cast<Entity*>(mail.root()->nextEntity())});
    }
    EXPECT_TRUE(LibraryTest::take(one, &mail, flag));
    EXPECT_EQ(tokens.valueOrEmpty(ScanToken::VirusAction), test.expected);
  }
}

TEST_F(DeleteAttachmentTest, LocalisesTheTextOfTheWholeMessageToo) {
  fakes::Resources::instance().set(kGroup, kLocale, "IDS_VACTION_DELETE_WHOLE_MAIL", "ganz weg");
  foundVirus();
  tokens.set(ScanToken::WholeMailScan, "1");
  tokens.set(ScanToken::VirusAction, "Clean");
  EXPECT_TRUE(take());
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::VirusAction), "Clean;ganz weg");
}

TEST_F(DeleteAttachmentTest, AddsNoTextWithoutAVirusOrAnythingToDelete) {
  mark({first});
  EXPECT_TRUE(take());
  EXPECT_EQ(value(ScanToken::VirusAction), nullptr);
  foundVirus();
  EXPECT_TRUE(take());
  EXPECT_EQ(value(ScanToken::VirusAction), nullptr);
}

}  // namespace
