#include "library/actions/modification/stamp.h"

#include <algorithm>
#include <list>

#include "library/actions/modification/long_lines.h"
#include "library/framework/guard.h"
#include "library/framework/resource.h"
#include "library/framework/setting_readers.h"
#include "library/namedobj/stamp_area.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/tokens/action_utils.h"

namespace {

constexpr char kMessageModule[] = "MessageModule";
constexpr int kMaxLineLimit = 998;  // RFC 5322 section 2.1.1
constexpr char kStoredBreak = '\x03';
constexpr int kInsertionFlags = 20;
constexpr std::size_t kCharsetReserve = 32;

// Content types of messages that a stamp would damage; an empty row ends the table.
constexpr char kUntouchedTypes[][32] = {"ms-tnef", ""};

bool g_ignore_insert_error = false;
int g_dscl_line_limit = 990;
int g_blank_line_count = 0;
bool g_prefer_utf8 = false;

void expandLineBreaks(std::string& text) {
  std::string expanded;
  expanded.reserve(text.size() + std::count(text.begin(), text.end(), kStoredBreak));
  for (const char byte : text) {
    if (byte == kStoredBreak) {
      expanded += "\r\n";
    } else {
      expanded += byte;
    }
  }
  text.swap(expanded);
}

void prependBlankLines(std::string& text) {
  std::string lines(2 * static_cast<std::size_t>(g_blank_line_count), '\n');
  for (std::size_t line = 0; line < lines.size(); line += 2) {
    lines[line] = '\r';
  }
  text.insert(0, lines);
}

bool holdsUntouchedType(OvMsgMailMessage* msg) {
  for (const auto* type = kUntouchedTypes; (*type)[0] != '\0'; ++type) {
    std::list<OvMsgEntity*> found;
    if (!msgu::findContentType(msg, *type, found, true)) {
      ActionUtils::L1("Failed to gather content type ('%s') information.", *type);
    }
    if (!found.empty()) {
      return true;
    }
  }
  return false;
}

bool isLeftAlone(OvMsgMailMessage* msg, const uiStampArea& stamp) {
  return stamp.signedTnefMode != 2 &&
         (holdsUntouchedType(msg) || msg->isSmimeSigned() || msg->isPgpSigned());
}

// The charset to write the stamp in; empty leaves the choice to the message library.
std::string chooseCharset(OvMsgMailMessage* msg) {
  std::string charset;
  charset.reserve(kCharsetReserve);
  const bool useMailCharset = ActionUtils::getUseMailCharsetFlag();
  if (useMailCharset) {
    const char* const own = msgu::getCharset(msg);
    charset = own != nullptr ? own : "";
  }
  if (charset.empty()) {
    charset = ActionUtils::getUseUTF8AsPreferForStampActionFlag()
                  ? "utf-8"
                  : ActionUtils::getDefaultDstCharset();
  }
  if (g_prefer_utf8 && !useMailCharset) {
    charset = "utf-8";
  }
  ActionUtils::L3("PreferCharset has been set to %s", charset.c_str());
  return charset;
}

bool insert(OvMsgMailMessage* msg, const uiStampArea& stamp, const std::string& text,
            const std::string& charset) {
  const library::Resource resource = library::makeResource(text);
  if (resource == nullptr) {
    ActionUtils::L1(
        "Failed to create in-memory resource locator (length %u bytes) for disclaimer insertion.",
        static_cast<unsigned int>(text.size()));
    return false;
  }
  const auto place = stamp.insertPosition == 1 ? OvMsgInsertPlace::Top : OvMsgInsertPlace::End;
  const int error = msg->insertText(place, resource.get(), kInsertionFlags, "utf-8",
                                    charset.empty() ? nullptr : charset.c_str());
  if (error == OVMSGERR::Ok) {
    return true;
  }
  const auto code = static_cast<unsigned int>(error);
  // Every mode but 1 prints as 1, although only mode 2 lets such messages be stamped.
  const unsigned int modify = stamp.signedTnefMode != 1 ? 1 : 0;
  if (g_ignore_insert_error) {
    ActionUtils::L2(
        "Stamp insertion failure is ignored. Error: %s (%u), modify signed/tnef: %u, dst charset: "
        "%s",
        OVMSGERR::I2A(error), code, modify, charset.c_str());
    return true;
  }
  ActionUtils::L1(
      "Failed to insert stamp into message. Error: %s (%u), modify signed/tnef: %u, dst charset: "
      "%s",
      OVMSGERR::I2A(error), code, modify, charset.c_str());
  return false;
}

}  // namespace

ActStamp::ActStamp() : KaviActionN(Stamp, false) {}

bool ActStamp::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActStamp::init", true, [&] {
    int value = 0;
    if (library::readInt(settings, "IgnoreInsertError", kMessageModule, value)) {
      g_ignore_insert_error = value != 0;
    }
    if (g_ignore_insert_error) {
      ActionUtils::L2("Ignore stamp insertion failure");
    }
    value = 0;
    if (library::readInt(settings, "DisclaimerLineLimit", kMessageModule, value)) {
      g_dscl_line_limit = std::min(value, kMaxLineLimit);
    }
    value = 0;
    const bool found =
        library::readInt(settings, "NumOfBlankLineBeforeStampMessage", "general", value);
    g_blank_line_count = found ? std::max(value, 0) : 0;
    ActionUtils::L3("NumOfBlankLineBeforeStampMessage:%d", g_blank_line_count);
    value = 0;
    if (library::readInt(settings, "InsertStampAsAttachment", kMessageModule, value) &&
        value >= 1) {
      OvMsg_SetDisclaimerAttachmentAsDefault(1);
    }
    // Begins with what the lookup before has left.
    if (library::readInt(settings, "PreferCharsetAsUTF8", kMessageModule, value)) {
      g_prefer_utf8 = value != 0;
    }
    return true;
  });
}

KaviAction::ActionType ActStamp::getType() const { return Stamp; }

bool ActStamp::requiresOriginalMsg() { return false; }

bool ActStamp::hasNamedObjects() { return true; }

bool ActStamp::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                          bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                          OvIsAdapter& /*adapter*/, const NamedObjMgrForScanner& namedObjects) {
  return library::guarded("ActStamp::takeAction", false, [&] {
    if (ids.empty()) {
      return false;
    }
    KaviNamedObj* const record = namedObjects.find(ids.front());
    if (record == nullptr) {
      ActionUtils::L1("Invalid name object type reference. id=%u", ids.front());
      return false;
    }
    if (record->getType() != KaviNamedObj::StampType) {
      ActionUtils::L1("Incorrect name object type reference. type=%u", record->getType());
      return false;
    }
    return takeAction(msg, tokens, static_cast<uiStampArea*>(record));
  });
}

bool ActStamp::takeAction(OvMsgMailMessage* msg, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                          uiStampArea* stamp) {
  return library::guarded("ActStamp::takeAction", false, [&] {
    if (msg == nullptr || stamp == nullptr) {
      return false;
    }
    // In the shared record, so that the blank lines grow with every message; intended.
    expandLineBreaks(stamp->stampText);
    prependBlankLines(stamp->stampText);
    if (isLeftAlone(msg, *stamp)) {
      return true;
    }
    const std::string charset = chooseCharset(msg);
    std::string text;
    if (!ActionUtils::replaceTokens(tokens, stamp->stampText, *msg, text)) {
      return false;
    }
    if (!charset.empty()) {
      modifyIfHasLimitLine(text, charset.c_str());
    }
    return text.empty() || insert(msg, *stamp, text, charset);
  });
}

bool ActStamp::modifyIfHasLimitLine(std::string& text, const char* charset) {
  return library::guarded("ActStamp::modifyIfHasLimitLine", false, [&] {
    return library::divideLongLines(text, charset, g_dscl_line_limit);
  });
}
