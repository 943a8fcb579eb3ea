// The codes under which one message's values travel between the scanner and the actions.
#pragma once

#include <cstdint>

namespace Kavi {

/// Code of a value in the per-message token map. The numbers are stored and exchanged, so they
/// never change. "Text" values have a `%TOKEN%` that administrators write in templates; the
/// others travel between the scanner and the actions, or between actions, only.
enum class ScanToken : std::int32_t {
  MarkedForDeletion = 0,     ///< entities that the rule matched, "id handle;..." (handle in hex)
  MarkedForDeletionRaw = 1,  ///< the scanner's own list behind code 0; erased with it
  MarkedForFeedback = 2,     ///< entities to mail as samples, in the form of code 0
  QuarantineAgingDays = 3,   ///< decimal, or empty when aging is off
  RuleId = 4,                ///< id of the matched rule, decimal
  MailCharset = 5,           ///< "%MAILCHARSET%"
  WholeMailScan = 7,         ///< begins with "1": a virus condemns the whole message
  DeleteAll = 8,             ///< begins with "1": every attachment goes
  PendingBcc = 10,           ///< recipients of the BCC actions so far, separated by ";"
  RawActions = 12,           ///< list of the actions taken, as the engine writes it
  RawTotalActions = 13,      ///< the same for the other list
  DefaultCharset = 30,       ///< "%DEF_CHARSET%"
  Sender = 32,               ///< "%SENDER%"
  Recipients = 33,           ///< "%RCPTS%"
  HeaderRecipients = 34,     ///< "%HEADER_RCPTS%"
  Subject = 36,              ///< "%SUBJECT%"
  Headers = 37,              ///< "%HEADERS%"
  DateTime = 38,             ///< "%DATE&TIME%"
  MailId = 39,               ///< "%MAILID%"
  OriginalMailId = 40,       ///< "%ORIGINALMAILID%"
  Protocol = 41,             ///< "%PROTOCOL%"
  RuleName = 42,             ///< "%RULENAME%"
  RuleType = 43,             ///< "%RULETYPE%"
  Detected = 44,             ///< "%DETECTED%"
  FileName = 45,             ///< "%FILENAME%"
  Action = 46,               ///< "%ACTION%"
  TotalAction = 47,          ///< "%TACTION%"
  QuarantinePath = 48,       ///< "%QUARANTINE_PATH%"
  QuarantineArea = 49,       ///< "%QUARANTINE_AREA%"
  QuarantineAreaId = 50,     ///< id of the quarantine area, decimal
  VirusName = 51,            ///< "%VIRUSNAME%"
  VirusAction = 52,          ///< "%VIRUSACTION%"
  VirusFileName = 53,        ///< file names of infected parts; printed like 45 and 51
  HostName = 57,             ///< "%HOSTNAME%"
  MessageSize = 58,          ///< "%MSG_SIZE%"
  FileType = 59,             ///< "%FILETYPE%"
  Entity = 60,               ///< "%ENTITY%"
  AttachmentSize = 61,       ///< "%ATTACH_SIZE%"
  AttachmentCount = 62,      ///< "%ATTACH_COUNT%"
  MessageRemains = 63,       ///< "0" once the whole message was deleted
  ForgetRawMarks = 64,       ///< begins with "1": erase code 1 together with code 0
  XMailId = 65,              ///< "%XMAILID%"
  ArchiveAreaId = 66,        ///< id of the archive area, decimal
  ArchiveAreaName = 67,      ///< name of the archive area
  ArchiveAgingDays = 68,     ///< decimal, or empty when aging is off
  Rescanned = 69,            ///< "yes" for a message that came back under a valid seal
  SuspiciousUrl = 72,        ///< "%SUSPICIOUS_URL%"
};

}  // namespace Kavi
