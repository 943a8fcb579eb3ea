#include "library/notification/feedback.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "library/framework/guard.h"
#include "library/framework/marked_entities.h"
#include "library/framework/message_handles.h"
#include "library/platform/config_file_on_disk.h"
#include "library/platform/global_setting.h"
#include "library/platform/is_adapter.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/ov_msg_session_info.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;

constexpr char kVersionFile[] = "/config/scanner.info";
constexpr char kFeedbackAddress[] = KAVI_FEEDBACK_ADDRESS;
constexpr char kGeneralSubject[] = "KAVI Lurebox Feedback";
constexpr std::size_t kMaxSubject = 1023;
constexpr const char* kVersionKeys[] = {
    "virus_engine_version",    "virus_pattern_version",     "fastlane_agent_pattern_version",
    "spyware_pattern_version", "packwatch_pattern_version", "packwatch_exception_version"};
constexpr std::size_t kVersionCount = sizeof kVersionKeys / sizeof *kVersionKeys;

// Reads the list of marked entities. A ";" alone is a list without any.
bool readMarks(const std::string* list, library::MarkedEntities& marks) {
  if (list == nullptr || list->empty()) {
    return false;
  }
  if (std::strcmp(list->c_str(), ";") == 0) {
    return true;
  }
  marks = library::readMarkedEntities(*list);
  return marks.complete;
}

bool setEnvelope(OvMsgMailMessage* message) {
  if (!msgu::setRcpt(message, kFeedbackAddress, false)) {
    ActionUtils::L1(
        "Failed to set recipient address(es) into notification message, length %u byte(s).",
        static_cast<unsigned int>(sizeof kFeedbackAddress - 1));
    return false;
  }
  const library::Session session(message->sessionInfo());
  if (session == nullptr) {
    ActionUtils::L1("Invalid session information in notification message.");
    return false;
  }
  session->setSender("KAVI");
  return true;
}

void setHeaders(OvMsgEntity* root, const std::string& subject) {
  msgu::setHeader(root, "Subject", subject.substr(0, kMaxSubject).c_str(), nullptr);
  msgu::setHeader(root, "Content-Transfer-Encoding", "7bit", nullptr);
  msgu::setHeader(root, "TO", kFeedbackAddress, nullptr);
}

}  // namespace

std::string ActPackwatch::s_notify_path;
std::string ActPackwatch::s_pattern_info = kGeneralSubject;

const char* ActPackwatch::feedbackAddress() { return kFeedbackAddress; }

bool ActPackwatch::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActPackwatch::init", false, [&] {
    std::string home;
    if (settings.getString("queue_notify", s_notify_path, "general", 0) != 0 ||
        settings.getString("kavi_home", home, "general", 0) != 0) {
      return false;
    }
    readVersions(home + kVersionFile);
    return true;
  });
}

void ActPackwatch::readVersions(const std::string& path) {
  const Kavi::ConfigFileOnDisk file(path.c_str());
  if (!file.isLoaded()) {
    s_pattern_info = kGeneralSubject;  // not what an earlier start has read
    ActionUtils::L2("load pattern info failed,file:%s", path.c_str());
    return;
  }
  std::string versions[kVersionCount];
  for (std::size_t index = 0; index < kVersionCount; ++index) {
    file.getparam("update", kVersionKeys[index], versions[index]);
  }
  char subject[kMaxSubject + 1];
  static_cast<void>(std::snprintf(
      subject, sizeof subject,
      "KAVI Lurebox Feedback:  engine: %s, viruspat: %s, agentpat: %s, spywarepat: %s, "
      "heurpat: %s, heurexc: %s",
      versions[0].c_str(), versions[1].c_str(), versions[2].c_str(), versions[3].c_str(),
      versions[4].c_str(), versions[5].c_str()));
  s_pattern_info = subject;
  ActionUtils::L2("load pattern info success:%s", s_pattern_info.c_str());
}

bool ActPackwatch::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                              bool& /*flag*/, Kavi::TokenMap<ScanToken>& tokens,
                              OvIsAdapter& adapter, const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActPackwatch::takeAction", false, [&] {
    library::MarkedEntities marks;
    if (!readMarks(tokens.find(ScanToken::MarkedForFeedback), marks)) {
      ActionUtils::L2("No marked MIME Entities for packwatch.");
      return true;
    }
    bool sentAll = true;
    for (const auto& [id, entity] : marks.entities) {
      if (entity == nullptr) {  // what the reader of the list refuses
        ActionUtils::L1("Invalid cast to OvMsgEntity (id=%u).", id);
      } else if (msgu::existEntity(msg, entity) && !_do_Lurebox_Feedback(entity, adapter)) {
        ActionUtils::L2("Failed to packwatch the MIME Entity (0x%08X, id=%u).",
                        library::handleForLog(entity), id);
        sentAll = false;
      }
    }
    return sentAll;
  });
}

bool ActPackwatch::_do_Lurebox_Feedback(OvMsgEntity* entity, OvIsAdapter& adapter) {
  return library::guarded("ActPackwatch::_do_Lurebox_Feedback", false, [&] {
    const library::OwnMessage message(OvMsg_CreateMailMessage());
    if (message == nullptr) {
      ActionUtils::L1("Failed to create Message object instance.");
      return false;
    }
    OvMsgEntity* const root = msgu::getRootEntity(message.get());
    if (root == nullptr) {
      ActionUtils::L1("Cannot retrieve root Entity from the composing notification message.");
      return false;
    }
    if (!setEnvelope(message.get())) {
      return false;
    }
    setHeaders(root, s_pattern_info);
    const int error = root->insertChild(entity, -1);
    if (error != 0) {
      ActionUtils::L1("Insert child entity failed:%d", error);
      return false;
    }
    unsigned int unasked = 0;
    adapter.deliverMessage(unasked, message.get());
    return true;
  });
}

bool ActPackwatch::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string ActPackwatch::serialize() { return std::string(); }

KaviAction::ActionType ActPackwatch::getType() const { return Packwatch; }

bool ActPackwatch::requiresOriginalMsg() { return false; }

bool ActPackwatch::hasNamedObjects() { return false; }

bool ActPackwatch::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                     std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiPackwatch::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string uiPackwatch::serialize() { return std::string(); }

bool uiPackwatch::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                             bool& /*flag*/, Kavi::TokenMap<ScanToken>& /*tokens*/,
                             OvIsAdapter& /*adapter*/,
                             const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiPackwatch::getType() const { return Packwatch; }

bool uiPackwatch::requiresOriginalMsg() { return false; }

bool uiPackwatch::hasNamedObjects() { return false; }

bool uiPackwatch::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                    std::vector<unsigned int>& /*ids*/) {
  return true;
}
