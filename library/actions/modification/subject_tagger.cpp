#include "library/actions/modification/subject_tagger.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr char kUtf8[] = "utf-8";
constexpr std::size_t kBufferSize = 2048;
constexpr int kConversionLevel = 63;

/// What is to happen to bytes that the charset does not define.
enum class Misfit : int { Replace = 0, Fail = 1 };

bool equalsIgnoringCase(const char* left, const char* right) {
  return platform_icasencmp(left, right, std::strlen(right) + 1) == 0;
}

bool isAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// \param room  bytes for the result, a NUL included
/// \return an OVMSGERR code
int convert(const std::string& text, const std::string& from, const std::string& to,
            std::size_t room, Misfit misfit, std::string& result) {
  char buffer[kBufferSize] = {};
  auto size = static_cast<unsigned int>(room);
  const int error = OvMsg_CharsetConverterString(text.c_str(), from.c_str(), buffer, to.c_str(),
                                                 size, static_cast<int>(misfit), kConversionLevel);
  if (error != OVMSGERR::Ok) {
    return error;
  }
  // Its NULs would end the text, and no header may hold them.
  if (equalsIgnoringCase(to.c_str(), "iso-10646-ucs-2")) {
    RemoveNullCharInplace(buffer, std::min<unsigned int>(size, kBufferSize - 1));
  }
  result = buffer;
  return error;
}

void logIgnored(int error) {
  ActionUtils::L3("Ignore subject tagging due to error '%s' (%u).", OVMSGERR::I2A(error),
                  static_cast<unsigned int>(error));
}

}  // namespace

void RemoveNullCharInplace(char* buffer, unsigned int length) {
  char* const end = buffer + length;
  std::fill(std::remove(buffer, end, '\0'), end, '\0');
}

SubjectTagger::SubjectTagger(SubjectTag tag, Kavi::TokenMap<Kavi::ScanToken>& tokens)
    : tag_(std::move(tag)),
      isAscii_(isAscii(tag_.text)),
      cutTag_(tag_.text, 0, kBufferSize - 1),
      tokens_(tokens) {}

bool SubjectTagger::run(OvMsgMailMessage& msg) {
  for (OvMsgEntity* entity = msg.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    if (entity->isSubordinate()) {
      continue;
    }
    if (const Ending ending = tagEntity(*entity)) {
      return *ending;
    }
  }
  return true;
}

SubjectTagger::Ending SubjectTagger::tagEntity(OvMsgEntity& entity) {
  bool found = false;
  const int count = entity.headerCount();
  for (int index = 0; index < count; ++index) {
    OvMsgHeader* const header = entity.headerAt(index);
    const char* const name = header != nullptr ? header->name() : nullptr;
    if (name == nullptr || !equalsIgnoringCase(name, "subject")) {
      continue;
    }
    found = true;
    if (const Ending ending = tagField(*header)) {
      return ending;
    }
  }
  return found ? std::nullopt : addSubject(entity);
}

SubjectTagger::Ending SubjectTagger::addSubject(OvMsgEntity& entity) {
  std::string value;
  const int error =
      convert(cutTag_, kUtf8, tag_.fallbackCharset, kBufferSize, Misfit::Replace, value);
  if (error != OVMSGERR::Ok) {
    logIgnored(error);
    return true;
  }
  return entity.addHeader(-1, "Subject", value.c_str(), tag_.fallbackCharset.c_str());
}

SubjectTagger::Ending SubjectTagger::tagField(OvMsgHeader& header) {
  int encodedWords = 0;
  const char* const decoded = header.decodedValue(encodedWords);
  Field field{header, decoded != nullptr ? decoded : "", encodedWords != 0};
  ActionUtils::L3("Tag Subject Action find subject:%s", field.subject.c_str());
  if (isAscii_ && tag_.directly) {
    return tagRawField(header);
  }
  const char* const charset = header.charset();
  field.hasOwnCharset = charset != nullptr && *charset != '\0';
  field.charset = field.hasOwnCharset ? charset : tag_.fallbackCharset;

  std::string tagged;
  if (const int error = joinTagWith(field, tagged); error != OVMSGERR::Ok) {
    logIgnored(error);
    return true;
  }
  if (std::exchange(isFirst_, false)) {
    tokens_.set(Kavi::ScanToken::Subject, tagged);
  }
  return writeField(field, tagged) ? std::nullopt : Ending(false);
}

SubjectTagger::Ending SubjectTagger::tagRawField(OvMsgHeader& header) {
  const char* const raw = header.rawValue();
  const std::string_view line = raw != nullptr ? raw : "";
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return std::nullopt;
  }
  std::string value = tag_.text;
  value += line.substr(colon + 1);
  if (value.ends_with("\r\n")) {
    value.resize(value.size() - 2);
  }
  const bool written = header.setRawValue(value.c_str(), nullptr) == OVMSGERR::Ok;
  return written ? std::nullopt : Ending(false);
}

int SubjectTagger::joinTagWith(const Field& field, std::string& tagged) const {
  int error = OVMSGERR::Ok;
  for (const std::string& charset :
       {field.charset, tag_.fallbackCharset, std::string(ActionUtils::getLocalCharset())}) {
    std::string subject;
    error = convert(field.subject, charset, kUtf8, kBufferSize - 1 - cutTag_.size(), Misfit::Fail,
                    subject);
    if (error == OVMSGERR::Ok) {
      tagged = cutTag_ + subject;
      break;
    }
  }
  return error;
}

bool SubjectTagger::writeField(const Field& field, const std::string& tagged) const {
  const auto writes = [&](const std::string& value, const char* charset) {
    return field.header.setValue(value.c_str(), charset) == OVMSGERR::Ok;
  };
  std::string value;
  bool inOwnCharset = true;
  if (convert(tagged, kUtf8, field.charset, kBufferSize, Misfit::Replace, value) != OVMSGERR::Ok) {
    inOwnCharset = false;
    if (convert(tagged, kUtf8, tag_.fallbackCharset, kBufferSize, Misfit::Replace, value) !=
        OVMSGERR::Ok) {
      return writes(tagged, kUtf8);
    }
  }
  const char* const fallback = tag_.fallbackCharset.c_str();
  const char* charset = inOwnCharset ? field.charset.c_str() : fallback;
  const bool isEncoded = !tag_.notEncoding || field.hadEncodedWords;
  if (!isEncoded || (inOwnCharset && platform_icasencmp(charset, "iso-8859-1", 10) == 0)) {
    charset = nullptr;
  }
  return writes(value, charset) || (!field.hasOwnCharset && writes(value, fallback)) ||
         writes(value, nullptr);
}

}  // namespace library
