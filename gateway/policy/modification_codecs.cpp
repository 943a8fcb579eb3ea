#include "gateway/policy/modification_codecs.h"

#include <algorithm>
#include <string_view>

#include "gateway/policy/settings_object.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/text_file.h"
#include "gateway/policy/token_check.h"
#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/tag_subject.h"
#include "library/actions/modification/x_header.h"

namespace gateway::policy {
namespace {

/// Why the settings class refused \p text; the rules are its own, this only puts them in words.
std::string headerFault(const std::string& text) {
  constexpr std::size_t kMaxLength = 512;
  if (text.size() > kMaxLength) {
    return "is longer than 512 bytes (shorten it)";
  }
  if (text.find(':') == std::string::npos) {
    return "has no ':' between name and value (write: \"X-Flag: yes\")";
  }
  const bool printable =
      std::all_of(text.begin(), text.end(), [](char c) { return c >= 32 && c < 127; });
  if (!printable) return "has a character that is not printable ASCII (remove it)";
  return "has an empty name or value (write: \"X-Flag: yes\")";
}

/// Fields whose change makes the message mean, or go, something else.
bool isVitalField(std::string name) {
  static constexpr std::string_view kVital[] = {"content-type",
                                                "content-transfer-encoding",
                                                "content-disposition",
                                                "mime-version",
                                                "from",
                                                "sender",
                                                "to",
                                                "cc",
                                                "date",
                                                "message-id",
                                                "received",
                                                "dkim-signature"};
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return std::find(std::begin(kVital), std::end(kVital), name) != std::end(kVital);
}

/// More of a tag than this never gets into a subject.
constexpr std::size_t kMaxTag = 2047;

constexpr std::string_view kTagForms =
    " (write: tag_subject: \"[EXTERNAL] \", or {tag: \"[EXTERNAL] \", signed: tag})";

bool checkTag(const Node& tag, const FaultSink& fault) {
  std::string reason;
  if (tag.kind != Node::Kind::Scalar || tag.text.empty()) {
    reason = "needs a tag" + std::string(kTagForms);
  } else if (tag.text.size() > kMaxTag) {
    reason = "tag is longer than " + std::to_string(kMaxTag) + " bytes (shorten it)";
  } else if (tag.text.find_first_of("\r\n\t") != std::string::npos) {
    reason = "tag " + inQuotes(tag.text) + " is no single line of text (remove line breaks, tabs)";
  } else if (const auto found = findTextFault(tag.text)) {
    reason = "tag " + inQuotes(tag.text) + " has " + found->reason;
  }
  if (reason.empty()) return true;
  fault(tag.line, reason);
  return false;
}

/// What stands behind "signed:".
bool readSigned(const Node& value, bool& tagSigned, const FaultSink& fault) {
  tagSigned = value.text == "tag";
  if (value.kind == Node::Kind::Scalar && (tagSigned || value.text == "leave")) return true;
  fault(value.line, "'signed' is " + inQuotes(value.text) + " (write leave or tag)");
  return false;
}

bool readTagMap(const Node& value, const Node*& tag, bool& tagSigned, const FaultSink& fault) {
  bool good = true;
  for (const Node::Member& member : value.members) {
    if (member.key == "tag") {
      tag = member.value;
    } else if (member.key == "signed") {
      good = readSigned(*member.value, tagSigned, fault) && good;
    } else {
      fault(member.line,
            "unknown key " + inQuotes(member.key) + " " + remedyFor(member.key, {"tag", "signed"}));
      good = false;
    }
  }
  return good;
}

/// \p text as a quoted scalar of YAML; its control bytes were refused on the way in.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

}  // namespace

bool encodeXHeader(const Node& value, std::string& setting, const FaultSink& fault) {
  if (value.kind != Node::Kind::Scalar) {
    fault(value.line, "needs a header line as one text (write: \"X-Flag: yes\")");
    return false;
  }
  uiInsertXHeaderTag settings;
  if (!constructFrom(settings, value.text)) {
    fault(value.line, "header line " + inQuotes(value.text) + " " + headerFault(value.text));
    return false;
  }
  std::string name;
  std::string text;
  settings.getXHeaderTag(name, text);
  if (name.find(' ') != std::string::npos) {
    fault(value.line, "header name " + inQuotes(name) + " has a blank (write '-' instead)");
    return false;
  }
  setting = settings.serialize();
  return true;
}

bool decodeXHeader(const std::string& setting, std::string& value) {
  uiInsertXHeaderTag settings;
  if (!constructFrom(settings, setting)) return false;
  std::string name;
  std::string text;
  settings.getXHeaderTag(name, text);
  value = name + ": " + text;
  return true;
}

std::string doubtXHeader(const std::string& setting) {
  uiInsertXHeaderTag settings;
  std::string name;
  std::string text;
  if (!constructFrom(settings, setting) || !settings.getXHeaderTag(name, text)) return {};
  if (!isVitalField(name)) return {};
  return "replaces " + inQuotes(name) +
         ", which mail programs and checks rely on (use a name that begins with X-)";
}

bool encodeTagSubject(const Node& value, std::string& setting, const FaultSink& fault) {
  const Node* tag = &value;
  bool tagSigned = false;
  if (value.kind == Node::Kind::Map) {
    static const Node kNone;
    tag = &kNone;
    if (!readTagMap(value, tag, tagSigned, fault)) return false;
    if (tag == &kNone) {
      fault(value.line, "needs a tag" + std::string(kTagForms));
      return false;
    }
  }
  if (!checkTag(*tag, fault)) return false;
  uiTagSubject settings;
  if (settings.setTagSubjectAction(tagSigned, tag->text.c_str()) != 0) return false;
  setting = settings.serialize();
  return true;
}

bool decodeTagSubject(const std::string& setting, std::string& value) {
  uiTagSubject settings;
  bool tagSigned = false;
  std::string tag;
  if (!constructFrom(settings, setting) || settings.getTagSubjectAction(tagSigned, tag) != 0) {
    return false;
  }
  // A tag that begins like a map is written as one, so that it can be read back.
  const bool plain = !tagSigned && tag.front() != '{';
  value = plain ? tag : "{tag: " + quoted(tag) + ", signed: " + (tagSigned ? "tag" : "leave") + "}";
  return true;
}

std::string doubtTagSubject(const std::string& setting) {
  uiTagSubject settings;
  bool tagSigned = false;
  std::string tag;
  if (!constructFrom(settings, setting) || settings.getTagSubjectAction(tagSigned, tag) != 0) {
    return {};
  }
  return doubtAboutTokens(tag);
}

bool encodeDeleteAttachments(const Node& value, std::string& setting, const FaultSink& fault) {
  if (value.kind != Node::Kind::Scalar || (value.text != "matching" && value.text != "all")) {
    fault(value.line, "needs which ones, not " + inQuotes(value.text) +
                          " (write matching for those that made the rule match, or all)");
    return false;
  }
  ActDeleteAttachment action;
  if (!constructFrom(action, value.text == "all" ? "T" : "F")) return false;
  setting = action.serialize();
  return true;
}

bool decodeDeleteAttachments(const std::string& setting, std::string& value) {
  ActDeleteAttachment action;
  if (!constructFrom(action, setting)) return false;
  value = action.serialize() == "T" ? "all" : "matching";
  return true;
}

}  // namespace gateway::policy
