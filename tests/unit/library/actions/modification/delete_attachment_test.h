// A message with attachments, and the action that deletes them.
#pragma once

#include <cinttypes>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "library/actions/modification/delete_attachment.h"
#include "library/framework/marked_entities.h"
#include "tests/fakes/resource_locator.h"
#include "tests/unit/library/library_test.h"

/// A message of a body, two attachments and a nested message with an attachment of its own.
class DeleteAttachmentTest : public LibraryTest {
 protected:
  DeleteAttachmentTest() {
    fakes::ResourceLocators::instance().clear();
    root->facts().kind = OvMsgEntityKind::Multipart;
    body->facts().isBody = true;
    attach(first, "first.doc");
    attach(second, "second.doc");
    attach(inner, "inner.doc");
  }
  ~DeleteAttachmentTest() override { EXPECT_EQ(fakes::ResourceLocators::instance().alive(), 0); }

  static void attach(fakes::Entity* entity, const char* name) {
    entity->facts().file.emplace().text = name;
  }
  void mark(const std::vector<fakes::Entity*>& entities) {
    std::string list;
    unsigned int id = 1;
    for (const fakes::Entity* entity : entities) {
      list += list.empty() ? "" : ";";
      char item[64];
      std::snprintf(item, sizeof item, "%u %" PRIxPTR, id++,
                    reinterpret_cast<std::uintptr_t>(static_cast<const OvMsgEntity*>(entity)));
      list += item;
    }
    tokens.set(Kavi::ScanToken::MarkedForDeletion, list);
  }
  void foundVirus() { tokens.set(Kavi::ScanToken::VirusName, "Virus"); }
  bool take() {
    flag = before;
    const bool result = LibraryTest::take(action, &msg, flag);
    return result;
  }
  Texts removals() { return std::exchange(root->calls(), {}); }
  /// The lines behind the first, which says what the scanner found.
  fakes::LogLines lines() {
    fakes::LogLines all = log.takeLines();
    EXPECT_FALSE(all.empty());
    EXPECT_TRUE(all.empty() || all[0].text.starts_with("[ActDeleteAttachment::takeAction] vp = "));
    all.erase(all.begin());
    return all;
  }
  const std::string* value(Kavi::ScanToken token) { return tokens.find(token); }
  std::string failure(const fakes::Entity* entity) {
    const unsigned int handle = library::handleForLog(entity);
    char line[100];
    std::snprintf(line, sizeof line, "Failed to delete the MIME Entity (0x%08X, id=%u).", handle,
                  handle);
    return line;
  }

  ActDeleteAttachment action;
  fakes::Message msg;
  fakes::Entity* root = msg.root();
  fakes::Entity* body = root->addPart("body");
  fakes::Entity* first = root->addPart("first");
  fakes::Entity* box = root->addPart("box", OvMsgEntityKind::Multipart);
  fakes::Entity* second = box->addPart("second");
  fakes::Entity* nested = root->addPart("nested", OvMsgEntityKind::Message);
  fakes::Entity* inner = nested->addPart("inner");
  bool before = false;
  bool flag = false;
};

inline const fakes::LogLine kNoneMarked{2, "No marked MIME Entities for deletion."};
