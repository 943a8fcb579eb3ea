#include "library/actions/modification/tag_subject.h"

#include <cstring>
#include <utility>

#include "library/actions/modification/subject_tagger.h"
#include "library/framework/guard.h"
#include "library/framework/setting_readers.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/tokens/action_utils.h"

namespace {

constexpr char kMessageModule[] = "MessageModule";
constexpr std::size_t kMinSetting = 2;

void readFlag(Kavi::GlobalSetting& settings, const char* key, bool& flag) {
  int value = 0;
  if (library::readInt(settings, key, kMessageModule, value)) {
    flag = value != 0;
  }
}

}  // namespace

bool ActTagSubject::s_tagDirectly = false;
bool ActTagSubject::s_tagNotEncoding = false;

bool ActTagSubject::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  readFlag(settings, "TagDirectly", s_tagDirectly);
  readFlag(settings, "TagNotEncoding", s_tagNotEncoding);
  return true;
}

bool ActTagSubject::construct(const char* setting, unsigned int length) {
  return library::guarded("ActTagSubject::construct", false, [&] {
    uiTagSubject settings;
    return settings.construct(setting, length) &&
           settings.getTagSubjectAction(tagSignedToo, tagText) == 0;
  });
}

std::string ActTagSubject::serialize() {
  return library::guarded("ActTagSubject::serialize", std::string(), [&] {
    uiTagSubject settings;
    return settings.setTagSubjectAction(tagSignedToo, tagText.c_str()) == 0 ? settings.serialize()
                                                                            : std::string();
  });
}

bool ActTagSubject::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                               bool& flag, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                               OvIsAdapter& /*adapter*/,
                               const NamedObjMgrForScanner& /*namedObjects*/) {
  flag = false;
  return library::guarded("ActTagSubject::takeAction", false, [&] {
    if (msg == nullptr) {
      return false;
    }
    if (!tagSignedToo && (msg->isPgpSigned() || msg->isSmimeSigned())) {
      return true;
    }
    library::SubjectTag tag;
    if (!ActionUtils::replaceTokens(tokens, tagText, *msg, tag.text)) {
      return false;
    }
    const char* const charset = msgu::getCharset(msg);
    tag.fallbackCharset =
        charset != nullptr && *charset != '\0' ? charset : ActionUtils::getLocalCharset();
    tag.directly = s_tagDirectly;
    tag.notEncoding = s_tagNotEncoding;
    return library::SubjectTagger(std::move(tag), tokens).run(*msg);
  });
}

KaviAction::ActionType ActTagSubject::getType() const { return TagSubject; }

bool ActTagSubject::requiresOriginalMsg() { return false; }

bool ActTagSubject::hasNamedObjects() { return false; }

bool ActTagSubject::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                      std::vector<unsigned int>& /*ids*/) {
  return true;
}

int ActTagSubject::setTagSubjectAction(bool tagSigned, const char* tag) {
  return library::guarded("ActTagSubject::setTagSubjectAction", -1, [&] {
    tagText = tag != nullptr ? tag : "";
    tagSignedToo = tagSigned;
    return 0;
  });
}

int ActTagSubject::getTagSubjectAction(bool& tagSigned, std::string& tag) {
  return library::guarded("ActTagSubject::getTagSubjectAction", -1, [&] {
    tag = tagText;
    tagSigned = tagSignedToo;
    return 0;
  });
}

bool uiTagSubject::construct(const char* setting, unsigned int length) {
  return library::guarded("uiTagSubject::construct", false, [&] {
    const std::size_t size = setting != nullptr ? strnlen(setting, length) : 0;
    if (size < kMinSetting) {
      return false;
    }
    tagText.assign(setting + 1, size - 1);
    tagSignedToo = *setting == 'T';
    return true;
  });
}

std::string uiTagSubject::serialize() {
  return library::guarded("uiTagSubject::serialize", std::string(),
                          [&] { return (tagSignedToo ? "T" : "F") + tagText; });
}

bool uiTagSubject::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                              bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                              OvIsAdapter& /*adapter*/,
                              const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiTagSubject::getType() const { return TagSubject; }

bool uiTagSubject::requiresOriginalMsg() { return false; }

int uiTagSubject::setTagSubjectAction(bool tagSigned, const char* tag) {
  return library::guarded("uiTagSubject::setTagSubjectAction", -1, [&] {
    tagText = tag != nullptr ? tag : "";
    tagSignedToo = tagSigned;
    return 0;
  });
}

int uiTagSubject::getTagSubjectAction(bool& tagSigned, std::string& tag) {
  return library::guarded("uiTagSubject::getTagSubjectAction", -1, [&] {
    tag = tagText;
    tagSigned = tagSignedToo;
    return 0;
  });
}
