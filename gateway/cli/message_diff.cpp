#include "gateway/cli/message_diff.h"

#include <string_view>
#include <unordered_map>
#include <utility>

#include "gateway/cli/message_changes.h"
#include "gateway/cli/terminal.h"
#include "host/message/entity.h"
#include "host/message/facts.h"
#include "host/message/header_block.h"
#include "host/message/message.h"

namespace gateway::cli {
namespace {

using host::message::Entity;
using host::message::HeaderField;
using host::message::Message;

constexpr std::size_t kMaxText = std::size_t{1} << 20;

using Lines = std::vector<std::string>;

Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    while (line.ends_with('\r')) line.remove_suffix(1);
    lines.emplace_back(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// The fields, decoded; a line that is no field as it stands.
Lines headerLines(const Entity* entity) {
  Lines lines;
  for (std::size_t i = 0; entity != nullptr && i < entity->header().size(); ++i) {
    const HeaderField& field = entity->header().at(i);
    const std::string name(field.nameView());
    lines.push_back(name.empty() ? field.unfoldedValue() : name + ": " + field.decodedUtf8());
  }
  return lines;
}

bool isShownAsText(const Entity& entity) {
  return entity.kind() == OvMsgEntityKind::Leaf && entity.contentType().starts_with("text/") &&
         entity.disposition() != "attachment" && !entity.fileNameText();
}

Lines textLines(const Entity* entity) {
  if (entity == nullptr || !isShownAsText(*entity)) return {};
  Lines lines = linesOf(host::message::contentAsUtf8(*entity, kMaxText));
  if (entity->decodedSize() > kMaxText) lines.push_back("(more text, which is not compared)");
  return lines;
}

/// "1.2  report.pdf  application/pdf  1,234 bytes", of what is an attachment.
void addAttachmentLine(const Entity& entity, Lines& lines) {
  const OvMsgEntityKind kind = entity.kind();
  if (kind == OvMsgEntityKind::Multipart || isShownAsText(entity)) return;
  std::string line = entity.path();
  if (const auto name = entity.fileNameText()) line += "  " + *name;
  line += "  " + entity.contentType();
  if (kind != OvMsgEntityKind::Message) {
    line += "  " + counted(entity.decodedSize(), "byte", "bytes");
  }
  lines.push_back(std::move(line));
}

Lines attachmentLines(const Message& message) {
  Lines lines;
  for (const Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->next()) {
    addAttachmentLine(*entity, lines);
  }
  return lines;
}

/// One place in the tree, in both messages; null where there is none.
struct Pair {
  const Entity* before = nullptr;
  const Entity* after = nullptr;
};

/// In the order of \p before, then what was added.
std::vector<std::pair<std::string, Pair>> pairsOf(const Message& before, const Message& after) {
  std::vector<std::pair<std::string, Pair>> pairs;
  std::unordered_map<std::string, std::size_t> places;
  for (const Entity* entity = before.firstEntity(); entity != nullptr; entity = entity->next()) {
    places.emplace(entity->path(), pairs.size());
    pairs.push_back({entity->path(), {entity, nullptr}});
  }
  for (const Entity* entity = after.firstEntity(); entity != nullptr; entity = entity->next()) {
    const auto [place, isNew] = places.emplace(entity->path(), pairs.size());
    if (isNew) pairs.push_back({entity->path(), {}});
    pairs[place->second].second.after = entity;
  }
  return pairs;
}

class Sections {
 public:
  void add(std::string title, const Lines& before, const Lines& after) {
    std::vector<DiffLine> lines = diffLines(before, after);
    if (!lines.empty()) sections_.push_back({std::move(title), std::move(lines)});
  }

  void addPair(const std::string& path, const Pair& pair) {
    const bool both = pair.before != nullptr && pair.after != nullptr;
    const bool sameHeader = both && pair.before->headerText() == pair.after->headerText();
    if (sameHeader && sameContent(*pair.before, *pair.after)) return;
    // Of parts that came or went the list of attachments, or their text, says enough.
    if (!sameHeader && both) {
      add(path == "1" ? "header" : "header of part " + path, headerLines(pair.before),
          headerLines(pair.after));
    }
    const Entity* present = pair.after != nullptr ? pair.after : pair.before;
    if (present == nullptr) return;
    add("part " + path + ", " + present->contentType(), textLines(pair.before),
        textLines(pair.after));
  }

  std::vector<DiffSection> take() { return std::move(sections_); }

 private:
  std::vector<DiffSection> sections_;
};

}  // namespace

std::vector<DiffSection> messageDiff(const Message& before, const Message& after) {
  Sections sections;
  if (const Entity* content = wrappedContent(before, after)) {
    const Entity& root = *after.firstEntity();
    sections.add("header", headerLines(before.firstEntity()), headerLines(&root));
    Lines attachments;
    for (const Entity* part = root.firstChild(); part != nullptr; part = part->nextSibling()) {
      if (part == content) continue;
      sections.addPair(part->path(), {nullptr, part});
      addAttachmentLine(*part, attachments);
    }
    sections.add("attachments", {}, attachments);
    return sections.take();
  }
  for (const auto& [path, pair] : pairsOf(before, after)) sections.addPair(path, pair);
  sections.add("attachments", attachmentLines(before), attachmentLines(after));
  return sections.take();
}

}  // namespace gateway::cli
