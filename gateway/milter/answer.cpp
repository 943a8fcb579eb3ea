#include "gateway/milter/answer.h"

namespace gateway::milter {
namespace {

/// RFC 5321 section 4.5.3.1.5 allows 512 bytes for a reply line, its codes and line break included.
constexpr std::size_t kMaxReplyText = 480;

}  // namespace

Answer Answer::tempFail(std::string_view queueId, std::string_view reason) {
  std::string text = reason.empty() ? "The message could not be processed, please try again later"
                                    : std::string(reason);
  if (!queueId.empty()) text.append(" (").append(queueId).append(")");
  return {Kind::TempFail, text};
}

Answer Answer::reject(std::string_view text) { return {Kind::Reject, std::string(text)}; }

const char* Answer::name() const {
  switch (kind) {
    case Kind::Continue:
      return "accept";
    case Kind::Discard:
      return "discard";
    case Kind::Reject:
      return "reject";
    case Kind::TempFail:
      break;
  }
  return "tempfail";
}

std::string replyText(std::string_view text) {
  std::string reply;
  std::size_t length = 0;
  for (const char c : text) {
    if (++length > kMaxReplyText) break;
    reply += c >= ' ' && c <= '~' ? c : '?';
    if (c == '%') reply += c;
  }
  return reply.empty() ? "Refused" : reply;
}

}  // namespace gateway::milter
