// Which entities go, and what happens when one stays.
#include <memory>

#include "library/platform/ov_msg_error.h"
#include "tests/unit/library/actions/modification/delete_attachment_test.h"

namespace {

using fakes::Entity;
using fakes::LogLines;
using Kavi::ScanToken;

fakes::LogLine deleting(const char* name) {
  return {3, std::string("[DeleteAttachment] Delete attachment: ") + name};
}
const fakes::LogLine kTryParent{
    3, "[DeleteAttachment] Delete attachment failed, try to delete the parent entity"};
const fakes::LogLine kRootRemoved{
    3, "[DeleteAttachment] Delete attachment is root entity, delete the root entity"};
const fakes::LogLine kRootCleared{
    3, "[DeleteAttachment]The deleted entity is root entity,just clear content"};

TEST_F(DeleteAttachmentTest, DeletesMarkedEntitiesInTheirOrder) {
  for (const bool was : {false, true}) {
    before = was;
    mark(was ? std::vector<Entity*>{inner} : std::vector<Entity*>{second, first});
    EXPECT_TRUE(take());
    EXPECT_EQ(flag, was) << "left alone";
    EXPECT_EQ(removals(), was ? Texts{"remove inner"} : (Texts{"remove second", "remove first"}));
    EXPECT_EQ(lines(), was ? (LogLines{deleting("inner.doc")})
                           : (LogLines{deleting("second.doc"), deleting("first.doc")}));
    EXPECT_EQ(value(ScanToken::MarkedForDeletion), nullptr);
  }
}

TEST_F(DeleteAttachmentTest, ListEndsAtTheFirstBadEntry) {
  mark({first});
  const std::string good = tokens.valueOrEmpty(ScanToken::MarkedForDeletion);
  mark({second});
  const std::string next = tokens.valueOrEmpty(ScanToken::MarkedForDeletion);
  tokens.set(ScanToken::MarkedForDeletion, good + ";2 0;" + next);
  EXPECT_TRUE(take());
  EXPECT_EQ(removals(), Texts{"remove first"});
}

TEST_F(DeleteAttachmentTest, SaysSoWhenNothingIsMarked) {
  for (const char* list : {"", "1 0", "nonsense", ";"}) {
    tokens.set(ScanToken::MarkedForDeletion, list);
    EXPECT_TRUE(take());
    EXPECT_EQ(lines(), LogLines{kNoneMarked}) << list;
    EXPECT_EQ(value(ScanToken::MarkedForDeletion), nullptr);
  }
  EXPECT_TRUE(take());
  EXPECT_EQ(lines(), LogLines{kNoneMarked});
  EXPECT_TRUE(LibraryTest::take(action, nullptr, flag));
}

TEST_F(DeleteAttachmentTest, ErasesTheRawListWhenTold) {
  const struct {
    const char* marker;  // null: none
    bool kept;
  } kCases[] = {{nullptr, true}, {"", true}, {"0", true}, {"1", false}, {"1x", false}};
  for (const auto& test : kCases) {
    tokens.clear();
    tokens.set(ScanToken::MarkedForDeletionRaw, "raw");
    if (test.marker != nullptr) {
      tokens.set(ScanToken::ForgetRawMarks, test.marker);
    }
    EXPECT_TRUE(take());
    EXPECT_EQ(value(ScanToken::MarkedForDeletionRaw) != nullptr, test.kept);
  }
}

TEST_F(DeleteAttachmentTest, NeverFollowsAnAddressThatIsNotInTheMessage) {
  fakes::Message other;
  auto gone = std::make_unique<Entity>("gone");
  mark({gone.get(), other.root(), first});
  gone.reset();
  EXPECT_TRUE(take());
  EXPECT_EQ(removals(), Texts{"remove first"});
  EXPECT_TRUE(other.root()->calls().empty());
  mark({body});
  EXPECT_TRUE(LibraryTest::take(action, nullptr, flag)) << "no message holds it";
}

TEST_F(DeleteAttachmentTest, SparesTheBodyWithoutAVirusOnly) {
  mark({body});
  EXPECT_TRUE(take());
  EXPECT_TRUE(removals().empty());
  foundVirus();
  mark({body});
  EXPECT_TRUE(take());
  EXPECT_EQ(removals(), Texts{"remove body"});
}

TEST_F(DeleteAttachmentTest, LogsAFileNameWithoutATextAsEmpty) {
  first->facts().file->text.reset();
  mark({first});
  EXPECT_TRUE(take());
  EXPECT_EQ(lines(), LogLines{deleting("")});
}

TEST_F(DeleteAttachmentTest, DeletesEveryAttachmentInDocumentOrder) {
  tokens.set(ScanToken::DeleteAll, "1");
  mark({body});
  EXPECT_TRUE(take());
  // The parts of the nested message go with it.
  EXPECT_EQ(removals(), (Texts{"remove first", "remove second", "remove nested"}));
  EXPECT_EQ(value(ScanToken::MarkedForDeletion), nullptr) << "erased unread";
  EXPECT_EQ(action.serialize(), "T");
}

TEST_F(DeleteAttachmentTest, GoesOnDeletingEveryAttachmentOfLaterMessages) {
  tokens.set(ScanToken::DeleteAll, "1");
  EXPECT_TRUE(take());
  removals();
  tokens.clear();
  fakes::Message later;
  attach(later.root()->addPart("later"), "later.doc");
  later.root()->addPart("body");
  EXPECT_TRUE(LibraryTest::take(action, &later, flag));
  EXPECT_EQ(later.root()->calls(), Texts{"remove later"});
}

TEST_F(DeleteAttachmentTest, IsToldToDeleteAllByItsSettings) {
  EXPECT_TRUE(action.construct("T", 1));
  EXPECT_TRUE(take());
  EXPECT_EQ(removals().size(), 3u);
}

TEST_F(DeleteAttachmentTest, FindsNothingInAMessageWithoutARoot) {
  EXPECT_TRUE(action.construct("T", 1));
  fakes::Message empty(false);
  EXPECT_TRUE(LibraryTest::take(action, &empty, flag));
  EXPECT_EQ(lines(), LogLines{kNoneMarked});
  EXPECT_TRUE(LibraryTest::take(action, nullptr, flag));
  EXPECT_EQ(lines(), LogLines{kNoneMarked});
}

TEST_F(DeleteAttachmentTest, ClearsTheRootWhenAVirusWasFound) {
  foundVirus();
  mark({root, first});
  EXPECT_TRUE(take());
  EXPECT_EQ(root->facts().content, " |text/plain|iso-8859-1|7bit");
  EXPECT_EQ(removals(), Texts{"remove first"});
  EXPECT_EQ(lines(), (LogLines{kRootCleared, deleting("first.doc")}));
  EXPECT_EQ(fakes::ResourceLocators::instance().calls(), (Texts{"create 1 1 1 1", "delete"}));
}

TEST_F(DeleteAttachmentTest, FailsAtOnceWithoutAResource) {
  foundVirus();
  mark({root, first});
  fakes::ResourceLocators::instance().refuse();
  EXPECT_FALSE(take());
  EXPECT_TRUE(removals().empty());
  EXPECT_EQ(lines(),
            (LogLines{kRootCleared, {1, "[DeleteAttachment]create resource locator failed"}}));
}

TEST_F(DeleteAttachmentTest, FailsAtOnceWhenTheContentCannotBeSet) {
  foundVirus();
  mark({root, first});
  root->facts().contentAnswer = OVMSGERR::MalformedText;
  EXPECT_FALSE(take());
  EXPECT_TRUE(removals().empty());
  EXPECT_EQ(
      lines(),
      (LogLines{kRootCleared, {1, "[DeleteAttachment] SetContent failed : 5 ('malformed text')"}}));
  EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0);
}

TEST_F(DeleteAttachmentTest, RemovesTheRootWithoutAVirus) {
  mark({root});
  EXPECT_TRUE(take());
  EXPECT_EQ(removals(), (Texts{"remove root", "removeRoot utf-8 root"}));
  EXPECT_EQ(lines(), LogLines{kRootRemoved});
}

TEST_F(DeleteAttachmentTest, FailsWhenTheRootStays) {
  root->facts().refusesRemoval = true;
  mark({root});
  EXPECT_FALSE(take());
  EXPECT_EQ(lines(), (LogLines{kRootRemoved, {2, failure(root)}}));
}

TEST_F(DeleteAttachmentTest, TriesTheParentOfWhatStays) {
  second->facts().refusesRemoval = true;
  mark({second});
  EXPECT_TRUE(take());
  EXPECT_EQ(removals(), (Texts{"remove second", "remove box"}));
  EXPECT_EQ(lines(), (LogLines{deleting("second.doc"), kTryParent}));
}

TEST_F(DeleteAttachmentTest, ReportsWhatStaysWithItsParent) {
  second->facts().refusesRemoval = true;
  box->facts().refusesRemoval = true;
  mark({second});
  EXPECT_FALSE(take());
  EXPECT_EQ(lines(), (LogLines{deleting("second.doc"), kTryParent, {2, failure(second)}}));
}

TEST_F(DeleteAttachmentTest, AFailureTakesTheNextEntityAlong) {
  first->facts().refusesRemoval = true;  // and so does its parent, the root
  mark({first, second});
  EXPECT_FALSE(take());
  // The second goes with its box, so that the box can no longer be removed.
  EXPECT_EQ(removals(), (Texts{"remove first", "remove root", "remove second", "remove box"}));
  EXPECT_EQ(lines(), (LogLines{deleting("first.doc"),
                               kTryParent,
                               {2, failure(first)},
                               deleting("second.doc"),
                               kTryParent,
                               {2, failure(second)}}));
}

TEST_F(DeleteAttachmentTest, TheParentReadBeforeTheRemovalIsTried) {
  first->facts().refusesRemoval = true;
  box->addPart("third");  // keeps the box when the second goes
  mark({first, second});
  EXPECT_TRUE(take()) << "the box could be removed: the last result counts";
  EXPECT_EQ(removals(), (Texts{"remove first", "remove root", "remove second", "remove box"}));
}

TEST_F(DeleteAttachmentTest, SkippedEntitiesKeepTheResult) {
  first->facts().refusesRemoval = true;
  mark({first, body});
  EXPECT_FALSE(take());
}

}  // namespace
