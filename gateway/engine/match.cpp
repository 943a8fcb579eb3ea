#include "gateway/engine/match.h"

#include <array>
#include <charconv>
#include <cstdint>

namespace gateway::engine {
namespace {

/// An entity's handle is its address: it is compared with those of the message, never followed.
std::string handleOf(const host::message::Entity* entity) {
  std::array<char, 2 * sizeof(std::uintptr_t)> text{};
  const auto [end, fault] = std::to_chars(text.data(), text.data() + text.size(),
                                          reinterpret_cast<std::uintptr_t>(entity), 16);
  return fault == std::errc() ? std::string(text.data(), end) : std::string("0");
}

}  // namespace

Match describeMatch(const policy::Snapshot::Rule& rule, const scan::MessageFacts& facts,
                    const std::vector<std::size_t>& marked) {
  Match match;
  match.rule = &rule;
  for (const std::size_t index : marked) {
    const scan::Attachment& attachment = facts.attachments()[index];
    const bool named = !attachment.fileNames.empty();
    match.attachments.push_back(named ? attachment.fileName() : attachment.type());
    if (named) match.fileNames.push_back(attachment.fileName());
    match.types.push_back(attachment.type());
    match.entities.push_back(attachment.number);
    if (!match.marks.empty()) match.marks += ';';
    match.marks += std::to_string(attachment.number) + ' ' + handleOf(attachment.entity);
    match.bytes += facts.attachmentSize(index);
  }
  return match;
}

}  // namespace gateway::engine
