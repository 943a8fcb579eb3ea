// The walk that tags a message's subject.
#pragma once

#include <optional>
#include <string>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgEntity;
class OvMsgHeader;
class OvMsgMailMessage;

namespace library {

/// Removes every NUL from the first \p length bytes, in place, and fills what becomes free at their
/// end with NULs.
void RemoveNullCharInplace(char* buffer, unsigned int length);

/// How a subject is tagged.
struct SubjectTag {
  std::string text;             ///< UTF-8, tokens replaced
  std::string fallbackCharset;  ///< of subjects that declare none
  bool directly = false;        ///< an ASCII tag goes into the raw field
  bool notEncoding = false;     ///< a subject without encoded words gets none
};

/// Tags one message.
class SubjectTagger {
 public:
  /// \param tokens  receives the first tagged subject.
  SubjectTagger(SubjectTag tag, Kavi::TokenMap<Kavi::ScanToken>& tokens);

  /// \return false when a field cannot be written.
  bool run(OvMsgMailMessage& msg);

 private:
  /// The result with which the walk ends here; none to go on.
  using Ending = std::optional<bool>;

  /// One subject field on its way.
  struct Field {
    OvMsgHeader& header;
    std::string subject;  // decoded, in `charset`
    bool hadEncodedWords;
    bool hasOwnCharset = false;
    std::string charset = {};  // the field's own, else the fallback
  };

  Ending tagEntity(OvMsgEntity& entity);
  Ending addSubject(OvMsgEntity& entity);
  Ending tagField(OvMsgHeader& header);
  Ending tagRawField(OvMsgHeader& header);
  int joinTagWith(const Field& field, std::string& tagged) const;
  bool writeField(const Field& field, const std::string& tagged) const;

  const SubjectTag tag_;
  const bool isAscii_;
  const std::string cutTag_;  // as much of the tag as is put in front of a decoded subject
  Kavi::TokenMap<Kavi::ScanToken>& tokens_;
  bool isFirst_ = true;
};

}  // namespace library
