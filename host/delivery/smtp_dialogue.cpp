#include "host/delivery/smtp_dialogue.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/core/text_escape.h"

namespace host::delivery {

namespace {

constexpr std::size_t kMaxReplyBytes = 1000;
constexpr std::size_t kCodeDigits = 3;

constexpr std::array<std::pair<std::string_view, SmtpStage>, 8> kStages{{
    {"EHLO", SmtpStage::Hello},
    {"HELO", SmtpStage::Hello},
    {"STARTTLS", SmtpStage::Tls},
    {"AUTH", SmtpStage::Login},
    {"MAIL", SmtpStage::Sender},
    {"RCPT", SmtpStage::Recipient},
    {"DATA", SmtpStage::Data},
    {"NOOP", SmtpStage::Sender},  // stands in for it: the first command of a ready session
}};

std::string_view withoutLineBreak(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool isWord(std::string_view text, std::string_view upperWord) {
  return text.size() == upperWord.size() &&
         std::equal(text.begin(), text.end(), upperWord.begin(),
                    [](char left, char right) { return upper(left) == right; });
}

// The code that a reply line begins with; 0 when it begins with none.
int codeOf(std::string_view line) {
  if (line.size() < kCodeDigits) return 0;
  int code = 0;
  for (std::size_t index = 0; index < kCodeDigits; ++index) {
    if (line[index] < '0' || line[index] > '9') return 0;
    code = code * 10 + (line[index] - '0');
  }
  const bool ends =
      line.size() == kCodeDigits || line[kCodeDigits] == ' ' || line[kCodeDigits] == '-';
  return ends ? code : 0;
}

// At most `room` bytes of `text`, which is printable, cutting no character in two.
std::string_view cut(std::string_view text, std::size_t room) {
  if (text.size() <= room) return text;
  while (room > 0 && (static_cast<unsigned char>(text[room]) & 0xC0) == 0x80) --room;
  return text.substr(0, room);
}

}  // namespace

void SmtpDialogue::expectReply() {
  reply_.clear();
  replyCode_ = 0;
  replyComplete_ = false;
}

// Only the verb is looked at: what follows AUTH is nobody's to keep.
void SmtpDialogue::onCommand(std::string_view line) {
  line = withoutLineBreak(line);
  const std::string_view verb = line.substr(0, line.find(' '));
  // The outcome is settled: what is said at parting does not belong to it.
  if (isWord(verb, "QUIT")) parting_ = true;
  if (parting_) return;
  for (const auto& [word, stage] : kStages) {
    if (!isWord(verb, word)) continue;
    stage_ = stage;
    if (stage == SmtpStage::Recipient) ++recipient_;
    break;
  }
  expectReply();
}

void SmtpDialogue::onBody() {
  if (stage_ == SmtpStage::Body) return;
  stage_ = SmtpStage::Body;
  expectReply();
}

void SmtpDialogue::onEnd() {
  stage_ = SmtpStage::End;
  expectReply();
}

void SmtpDialogue::onReplyLine(std::string_view line) {
  if (parting_) return;
  line = withoutLineBreak(line);
  if (stage_ == SmtpStage::Connect) stage_ = SmtpStage::Greeting;
  if (replyComplete_) expectReply();
  const bool first = reply_.empty();
  if (stage_ == SmtpStage::Hello) {
    if (first) offers_ = {};
    sawHello_ = true;
    if (!first) noteOffer(line);
  }
  std::string text = first ? "" : " / ";
  core::appendPrintable(text, line);
  if (reply_.size() < kMaxReplyBytes) reply_ += cut(text, kMaxReplyBytes - reply_.size());
  const int code = codeOf(line);
  if (code == 0) return;
  replyCode_ = code;
  replyComplete_ = line.size() == kCodeDigits || line[kCodeDigits] == ' ';
}

void SmtpDialogue::noteOffer(std::string_view line) {
  if (line.size() <= kCodeDigits) return;
  const std::string_view offer = line.substr(kCodeDigits + 1);
  const std::string_view keyword = offer.substr(0, offer.find(' '));
  if (isWord(keyword, "8BITMIME")) offers_.eightBitMime = true;
  if (isWord(keyword, "DSN")) offers_.dsn = true;
}

}  // namespace host::delivery
