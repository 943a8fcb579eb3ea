#include "library/actions/modification/delete_attachment.h"

#include <cstring>

#include "library/framework/guard.h"
#include "library/framework/marked_entities.h"
#include "library/framework/resource.h"
#include "library/platform/is_adapter.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/res_bundle.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;
using Tokens = Kavi::TokenMap<ScanToken>;
using Entities = std::vector<OvMsgEntity*>;

/// What the scanner says about the message.
struct Verdict {
  std::string virusName;
  std::string wholeMailScan;
  std::string deleteAll;
};

bool isSet(const std::string& marker) { return marker.starts_with('1'); }

bool hasValue(OvMsgEntity& entity, const char* field, const char* value) {
  const OvMsgHeader* const header = entity.header(field);
  const char* const text = header != nullptr ? header->value() : nullptr;
  return text != nullptr && std::strcmp(text, value) == 0;
}

// Adds the localised text under `id` to the value of %VIRUSACTION%.
void addVirusAction(Tokens& tokens, const char* id, const char* defaultText) {
  std::string text;
  Kavi::OvCachedResbundle("IDG_VIRUS_FILTER").getString(id, text);
  if (text.empty()) {
    text = defaultText;
  }
  const std::string& actions = tokens.valueOrEmpty(ScanToken::VirusAction);
  tokens.set(ScanToken::VirusAction, actions.empty() ? text : actions + ";" + text);
}

bool deleteWholeMessage(OvMsgMailMessage* msg, bool& flag, Tokens& tokens, OvIsAdapter& adapter) {
  addVirusAction(tokens, "IDS_VACTION_DELETE_WHOLE_MAIL", "Delete whole mail");
  unsigned int error = 0;
  if (adapter.deleteMessage(error, msg) != 0) {
    ActionUtils::L1("Failed to delete a message during whole mail scan, error %u.", error);
    return false;
  }
  ActionUtils::L2("Whole mail scan deletes the message because virus found");
  tokens.set(ScanToken::MessageRemains, "0");
  tokens.erase(ScanToken::MarkedForDeletionRaw);
  tokens.erase(ScanToken::MarkedForDeletion);
  flag = true;
  return true;
}

Entities markedEntities(const Tokens& tokens) {
  Entities entities;
  const auto marked =
      library::readMarkedEntities(tokens.valueOrEmpty(ScanToken::MarkedForDeletion));
  for (const library::MarkedEntity& mark : marked.entities) {
    entities.push_back(mark.entity);
  }
  return entities;
}

Entities allAttachments(OvMsgMailMessage* msg) {
  Entities entities;
  for (OvMsgEntity* entity = msg != nullptr ? msg->firstEntity() : nullptr; entity != nullptr;
       entity = entity->nextEntity()) {
    if (library::_isMsgAttachment(entity) || library::_isAttachment(entity)) {
      entities.push_back(entity);
    }
  }
  return entities;
}

/// Removes entities from one message, one after the other.
class Removal {
 public:
  Removal(OvMsgMailMessage* msg, bool virusFound)
      : msg_(msg), root_(msg != nullptr ? msg->firstEntity() : nullptr), virusFound_(virusFound) {}

  /// \return false when the removal as a whole ends here as failed.
  bool remove(OvMsgEntity* entity);
  /// Whether the last entity could be removed.
  bool ok() const { return ok_; }

 private:
  bool clearRoot();
  bool isSpared(OvMsgEntity* entity) const;
  void removeWithParents(OvMsgEntity* entity);

  OvMsgMailMessage* msg_;
  OvMsgEntity* root_;
  bool virusFound_;
  bool ok_ = true;
};

bool Removal::remove(OvMsgEntity* entity) {
  if (entity == nullptr) {
    ActionUtils::L1("Invalid cast to OvMsgEntity (id=%u).", 0U);
    return true;
  }
  if (entity == root_ && virusFound_) {
    return clearRoot();
  }
  if (!isSpared(entity)) {
    if (OvMsgFileName* const file = entity->fileName()) {
      const char* const name = file->name();
      ActionUtils::L3("[DeleteAttachment] Delete attachment: %s", name != nullptr ? name : "");
    }
    removeWithParents(entity);
  }
  return true;
}

bool Removal::clearRoot() {
  ActionUtils::L3("[DeleteAttachment]The deleted entity is root entity,just clear content");
  const library::Resource content = library::makeResource(" ");
  if (content == nullptr) {
    ActionUtils::L1("[DeleteAttachment]create resource locator failed");
    return false;
  }
  const int error = root_->setContent(content.get(), "text/plain", "iso-8859-1", "7bit");
  if (error != OVMSGERR::Ok) {
    ActionUtils::L1("[DeleteAttachment] SetContent failed : %d ('%s')", error,
                    OVMSGERR::I2A(error));
    return false;
  }
  return true;
}

// An entity that is no longer there, and the body of a message without a virus. What is not there
// must not be followed.
bool Removal::isSpared(OvMsgEntity* entity) const {
  return !msgu::existEntity(msg_, entity) || (!virusFound_ && msgu::isBody(msg_, entity));
}

void Removal::removeWithParents(OvMsgEntity* entity) {
  OvMsgEntity* const parent = entity->parentEntity();
  // One that failed takes the next along, even when that was removed; intended.
  if (msgu::removeEntityAndDummyParent(entity, "") && ok_) {
    return;
  }
  if (entity != root_) {
    ActionUtils::L3("[DeleteAttachment] Delete attachment failed, try to delete the parent entity");
    ok_ = msgu::removeEntityAndDummyParent(parent, "");
  } else {
    ok_ = msgu::removeRootEntity(root_, "utf-8");
    ActionUtils::L3("[DeleteAttachment] Delete attachment is root entity, delete the root entity");
  }
  if (!ok_) {
    const unsigned int handle = library::handleForLog(entity);
    ActionUtils::L2("Failed to delete the MIME Entity (0x%08X, id=%u).", handle, handle);
  }
}

bool removeEntities(OvMsgMailMessage* msg, const Entities& entities, bool virusFound) {
  Removal removal(msg, virusFound);
  for (OvMsgEntity* entity : entities) {
    if (!removal.remove(entity)) {
      return false;
    }
  }
  return removal.ok();
}

void forgetMarks(Tokens& tokens) {
  tokens.erase(ScanToken::MarkedForDeletion);
  if (isSet(tokens.valueOrEmpty(ScanToken::ForgetRawMarks))) {
    tokens.erase(ScanToken::MarkedForDeletionRaw);
  }
}

}  // namespace

bool library::_isAttachment(OvMsgEntity* entity) {
  if (entity == nullptr) {
    return false;
  }
  const OvMsgFileName* const file = entity->fileName();
  return (file != nullptr && file->name() != nullptr) ||
         hasValue(*entity, "Content-Disposition", "attachment");
}

bool library::_isMsgAttachment(OvMsgEntity* entity) {
  if (entity == nullptr) {
    return false;
  }
  const OvMsgEntityKind kind = entity->kind();
  return kind == OvMsgEntityKind::OpaqueMessage || kind == OvMsgEntityKind::Message ||
         hasValue(*entity, "Content-Type", "message/rfc822");
}

bool ActDeleteAttachment::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) {
  return true;
}

bool ActDeleteAttachment::construct(const char* setting, unsigned int /*length*/) {
  if (setting == nullptr) {
    return false;
  }
  deleteAll = *setting == 'T';
  return true;
}

std::string ActDeleteAttachment::serialize() { return deleteAll ? "T" : "F"; }

bool ActDeleteAttachment::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                                     bool& flag, Kavi::TokenMap<ScanToken>& tokens,
                                     OvIsAdapter& adapter,
                                     const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActDeleteAttachment::takeAction", false, [&] {
    const Verdict verdict{tokens.valueOrEmpty(ScanToken::VirusName),
                          tokens.valueOrEmpty(ScanToken::WholeMailScan),
                          tokens.valueOrEmpty(ScanToken::DeleteAll)};
    ActionUtils::L2("[ActDeleteAttachment::takeAction] vp = %s,wms = %s,daa = %s",
                    verdict.virusName.c_str(), verdict.wholeMailScan.c_str(),
                    verdict.deleteAll.c_str());
    const bool virusFound = !verdict.virusName.empty();
    if (isSet(verdict.wholeMailScan) && virusFound) {
      return deleteWholeMessage(msg, flag, tokens, adapter);
    }
    if (isSet(verdict.deleteAll)) {
      deleteAll = true;  // for later messages, too
    }
    const Entities entities = deleteAll ? allAttachments(msg) : markedEntities(tokens);
    forgetMarks(tokens);
    if (entities.empty()) {
      ActionUtils::L2("No marked MIME Entities for deletion.");
      return true;
    }
    if (virusFound) {
      addVirusAction(tokens, deleteAll ? "IDS_VACTION_DELETE_ALL" : "IDS_VACTION_DELETE",
                     deleteAll ? "Delete all attachments" : "Delete matching attachment");
    }
    return removeEntities(msg, entities, virusFound);
  });
}

KaviAction::ActionType ActDeleteAttachment::getType() const { return DeleteAttachment; }

bool ActDeleteAttachment::requiresOriginalMsg() { return false; }

bool ActDeleteAttachment::hasNamedObjects() { return false; }

bool ActDeleteAttachment::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                            std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiDeleteAttachment::construct(const char* /*setting*/, unsigned int /*length*/) {
  return true;
}

std::string uiDeleteAttachment::serialize() { return {}; }

KaviAction::ActionType uiDeleteAttachment::getType() const { return DeleteAttachment; }

bool uiDeleteAttachment::requiresOriginalMsg() { return false; }

bool uiDeleteAttachment::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                                    bool& /*flag*/, Kavi::TokenMap<ScanToken>& /*tokens*/,
                                    OvIsAdapter& /*adapter*/,
                                    const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

bool uiDeleteAttachment::hasNamedObjects() { return false; }

bool uiDeleteAttachment::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                           std::vector<unsigned int>& /*ids*/) {
  return true;
}
