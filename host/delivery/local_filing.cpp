// The adapter's side of the engine, and quarantine and archive.
#include <charconv>
#include <cstring>
#include <optional>
#include <utility>

#include "host/core/guard.h"
#include "host/core/text_escape.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/local_adapter.h"

namespace host::delivery {

namespace {

using Kavi::ScanToken;

// More than any area needs, and short enough for a key of every database.
constexpr std::size_t kMaxArchivePathBytes = 2000;

std::optional<std::uint32_t> daysIn(const std::string& text) {
  std::uint32_t days = 0;
  const char* last = text.data() + text.size();
  const auto [end, fault] = std::from_chars(text.data(), last, days);
  if (fault != std::errc() || end != last) return std::nullopt;
  return days;
}

// The whole name of an area of which the archive action can give the first 255 bytes only.
std::string wholeArea(const char (&area)[kArchiveAreaNameSize], std::string whole) {
  const std::string_view given(area);
  std::string_view fitting = std::string_view(whole).substr(0, sizeof area - 1);
  fitting = fitting.substr(0, fitting.find('\0'));
  return given == fitting ? std::move(whole) : std::string(given);
}

}  // namespace

AdapterError LocalAdapter::beginMessage(const OvMsgMailMessage& msg, std::string_view received,
                                        const Kavi::TokenMap<ScanToken>& tokens) {
  tokens_ = &tokens;
  return effects_.beginMessage(msg, received);
}

AdapterError LocalAdapter::beginAction(unsigned int ruleId, unsigned int position,
                                       std::string_view setting) {
  return effects_.beginAction(ruleId, position, setting);
}

AdapterError LocalAdapter::finalAnswer(FinalAnswer answer) {
  tokens_ = nullptr;
  return effects_.finalAnswer(answer);
}

std::string LocalAdapter::tokenOrEmpty(ScanToken token) const {
  return tokens_ != nullptr ? tokens_->valueOrEmpty(token) : std::string();
}

AdapterError LocalAdapter::file(FilingRequest& request, ScanToken aging, OvMsgMailMessage& msg,
                                std::string& stored) {
  lastPlace_.clear();
  lastPlace_.reserve(request.maxPathBytes);  // nothing may fail once the copy is there
  if (state_.filing() == nullptr) return AdapterError::MissingFolder;
  request.rule = tokenOrEmpty(ScanToken::RuleId);
  request.agingDays = daysIn(tokenOrEmpty(aging));
  std::string gone;
  const AdapterError outcome = state_.filing()->file(request, msg, effects_, stored, &gone);
  if (outcome != AdapterError::None) return outcome;
  lastPlace_ = stored;
  if (gone.empty()) return outcome;
  core::guardedVoid([&] {
    outbox_.warnOfDouble(msg, "an earlier attempt filed it as " + core::printable(gone) +
                                  ", which was released or deleted since; now it is at " +
                                  core::printable(stored));
  });
  return outcome;
}

int LocalAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg,
                                    const char* /*reserved*/, const char* directory,
                                    char (&path)[kQuarantinePathSize]) {
  path[0] = '\0';
  return finish(error, guardedOutcome([&] {
                  if (msg == nullptr || directory == nullptr) return AdapterError::InvalidArgument;
                  FilingRequest request{store::MessageKind::Quarantined, directory,
                                        tokenOrEmpty(ScanToken::QuarantineArea)};
                  request.maxPathBytes = sizeof path - 1;
                  std::string stored;
                  const AdapterError outcome =
                      file(request, ScanToken::QuarantineAgingDays, *msg, stored);
                  if (outcome == AdapterError::None) {
                    std::memcpy(path, stored.c_str(), stored.size() + 1);
                  }
                  return outcome;
                }));
}

int LocalAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg,
                                 const char* /*reserved*/, const char* directory,
                                 const char (&area)[kArchiveAreaNameSize]) {
  return finish(error, guardedOutcome([&] {
                  const bool valid = msg != nullptr && directory != nullptr &&
                                     std::memchr(area, '\0', sizeof area) != nullptr;
                  if (!valid) return AdapterError::InvalidArgument;
                  FilingRequest request{store::MessageKind::Archived, directory,
                                        wholeArea(area, tokenOrEmpty(ScanToken::ArchiveAreaName))};
                  request.maxPathBytes = kMaxArchivePathBytes;
                  std::string stored;
                  return file(request, ScanToken::ArchiveAgingDays, *msg, stored);
                }));
}

}  // namespace host::delivery
