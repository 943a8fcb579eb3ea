#include "library/tokens/token_table.h"

#include "library/tokens/value_functions.h"

namespace library {

namespace {

using Kavi::ScanToken;

constexpr TokenRow kTokenTable[] = {
    {ScanToken::Sender, "%SENDER%", nullptr},
    {ScanToken::Recipients, "%RCPTS%", nullptr},
    {ScanToken::HeaderRecipients, "%HEADER_RCPTS%", nullptr},
    {ScanToken::Subject, "%SUBJECT%", fnSubject},
    {ScanToken::Headers, "%HEADERS%", fnHeaders},
    {ScanToken::DateTime, "%DATE&TIME%", fnDateTime},
    {ScanToken::OriginalMailId, "%ORIGINALMAILID%", nullptr},
    {ScanToken::MailId, "%MAILID%", nullptr},
    {ScanToken::Protocol, "%PROTOCOL%", nullptr},
    {ScanToken::RuleName, "%RULENAME%", nullptr},
    {ScanToken::RuleType, "%RULETYPE%", nullptr},
    {ScanToken::Detected, "%DETECTED%", nullptr},
    {ScanToken::Entity, "%ENTITY%", nullptr},
    {ScanToken::FileName, "%FILENAME%", nullptr},
    {ScanToken::FileType, "%FILETYPE%", nullptr},
    {ScanToken::MessageSize, "%MSG_SIZE%", nullptr},
    {ScanToken::AttachmentSize, "%ATTACH_SIZE%", nullptr},
    {ScanToken::AttachmentCount, "%ATTACH_COUNT%", nullptr},
    {ScanToken::Action, "%ACTION%", fnActions},
    {ScanToken::TotalAction, "%TACTION%", fnTActions},
    {ScanToken::VirusAction, "%VIRUSACTION%", nullptr},
    {ScanToken::QuarantinePath, "%QUARANTINE_PATH%", fnQAFilePath},
    {ScanToken::QuarantineArea, "%QUARANTINE_AREA%", nullptr},
    {ScanToken::VirusName, "%VIRUSNAME%", nullptr},
    {ScanToken::HostName, "%HOSTNAME%", nullptr},
    {ScanToken::DefaultCharset, "%DEF_CHARSET%", fnDCharset},
    {ScanToken::XMailId, "%XMAILID%", fnXmailid},
    {ScanToken::MailCharset, "%MAILCHARSET%", fnMCharset},
    {ScanToken::SuspiciousUrl, "%SUSPICIOUS_URL%", nullptr},
    {ScanToken{}, "", nullptr},
};

}  // namespace

const TokenRow* tokenTable() { return kTokenTable; }

}  // namespace library
