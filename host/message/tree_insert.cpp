#include <algorithm>
#include <utility>
#include <vector>

#include "host/message/header_block.h"
#include "host/message/message.h"
#include "host/message/message_id.h"
#include "host/message/mime_values.h"
#include "host/message/tree_editor.h"

namespace host::message {

namespace {

/// Also a delimiter line that a missing blank line left in the header: to many readers the body
/// begins there.
bool isAboutContent(const HeaderField& field) {
  return startsWithIgnoreCase(field.nameView(), "content-") ||
         (field.nameView().empty() && field.bytes().starts_with("--"));
}

// How much an identity encoding lets through. One of a part is one of all around it (RFC 2045
// section 6.4).
int identityRank(std::string_view encoding) {
  if (encoding == "binary") return 2;
  return encoding == "8bit" ? 1 : 0;
}

std::string_view breakBefore(std::string_view delimiter) {
  return delimiter.substr(0, std::min(delimiter.find_first_not_of("\r\n"), delimiter.size()));
}

}  // namespace

// No quoted-printable or base64 text holds "=_" (RFC 2045 section 6.7).
std::string newBoundary() { return "=_" + newMessageId(); }

std::string delimiterLine(std::string_view boundary, LineBreak lineBreak) {
  std::string line("--");
  return line.append(boundary).append(lineBreak.text());
}

std::string boundaryOf(const Entity& multipart) {
  std::string boundary = multipart.contentTypeParameter("boundary").value_or("");
  while (!boundary.empty() && isSpace(boundary.back())) boundary.pop_back();
  return boundary;
}

Boundaries boundariesAround(const Entity* entity) {
  Boundaries boundaries;
  for (; entity != nullptr; entity = entity->parent()) {
    if (entity->kind() == OvMsgEntityKind::Multipart) boundaries.insert(boundaryOf(*entity));
  }
  return boundaries;
}

// Before the part is linked: the walk ends with it.
void TreeEditor::planAttached(Entity& part) {
  plan_.add([&part] {
    for (Entity* inner = &part; inner != nullptr; inner = inner->nextEntity()) {
      inner->detached_ = false;
    }
  });
}

void TreeEditor::insert(Entity& entity, Entity& part, int position) {
  planAttached(part);
  planEncodingAround(entity, part);
  if (entity.kind_ == OvMsgEntityKind::Multipart) {
    planInsertion(entity, part, position);
  } else {
    planWrapping(entity, part, position == 0);
  }
  commit();
}

void TreeEditor::planEncodingAround(Entity& place, const Entity& part) {
  const std::string encoding = part.transferEncoding();
  for (Entity* around = &place; around != nullptr; around = around->parent_) {
    if (around->kind_ != OvMsgEntityKind::Leaf &&
        identityRank(around->transferEncoding()) < identityRank(encoding)) {
      planField(*around, "Content-Transfer-Encoding", encoding);
    }
  }
}

void TreeEditor::planInsertion(Entity& multipart, Entity& part, int position) {
  const std::string boundary = planBoundaries(multipart, part);
  const LineBreak lineBreak = multipart.lineBreak();
  Entity* next = multipart.firstChild_;
  for (int i = 0; i != position && next != nullptr; ++i) next = next->nextSibling_;
  Entity* const previous = next != nullptr ? next->previousSibling_ : multipart.lastChild_;

  const bool isFirstLine = previous == nullptr && multipart.body_.empty();
  std::string lead(isFirstLine ? std::string_view() : lineBreak.text());
  lead += delimiterLine(boundary, lineBreak);
  part.lead_ = message_.keep(std::move(lead));
  if (next != nullptr) {
    planBreak(*next, next->lead_);
  } else if (plan_.planned(multipart.tail_).empty()) {
    planBreakBehind(multipart);
    plan_.set(multipart.tail_, message_.keep(closingLines(boundary, lineBreak, multipart.parent_)));
  } else {
    planBreak(multipart, multipart.tail_);
  }
  part.ordinal_ = multipart.lastOrdinal_ + 1;
  plan_.add([&multipart, &part, previous, next] {
    link(multipart, previous, part, next);
    multipart.lastOrdinal_ = part.ordinal_;
    multipart.contentChanged_ = true;
    multipart.touch();
  });
  plan_.note({Change::Kind::PartAdded, part.describe(),
              multipart.path() + "." + std::to_string(part.ordinal_)});
}

void TreeEditor::link(Entity& parent, Entity* previous, Entity& part, Entity* next) {
  part.parent_ = &parent;
  part.previousSibling_ = previous;
  part.nextSibling_ = next;
  (previous != nullptr ? previous->nextSibling_ : parent.firstChild_) = &part;
  (next != nullptr ? next->previousSibling_ : parent.lastChild_) = &part;
}

// The wrapper takes the place of the entity and every field that is not about its content, so that
// the entity, under its old address, stays what holds the content.
void TreeEditor::planWrapping(Entity& entity, Entity& part, bool partIsFirst) {
  const std::string boundary = newBoundary();
  const LineBreak lineBreak = entity.lineBreak();
  Entity& wrapper = message_.newEntity();
  if (entity.parent_ != nullptr) planBoundaries(*entity.parent_, part);
  planFieldSplit(entity, wrapper, part, boundary);
  planBreakBehind(entity);

  const std::string_view first = message_.keep(delimiterLine(boundary, lineBreak));
  const std::string_view second = message_.keep(std::string(lineBreak.text()).append(first));
  part.lead_ = partIsFirst ? first : second;
  wrapper.lead_ = plan_.planned(entity.lead_);
  wrapper.tail_ = message_.keep(closingLines(boundary, lineBreak, entity.parent_));
  wrapper.kind_ = OvMsgEntityKind::Multipart;
  wrapper.needsBlankLine_ = true;
  wrapper.ordinal_ = entity.ordinal_;
  wrapper.lastOrdinal_ = part.ordinal_ = 2;
  plan_.set(entity.lead_, partIsFirst ? second : first);
  plan_.add([this, &entity, &wrapper, &part, partIsFirst] {
    wrapper.detached_ = false;
    if (Entity* parent = entity.parent_) {
      link(*parent, entity.previousSibling_, wrapper, entity.nextSibling_);
      parent->touch();
    } else {
      message_.root_ = &wrapper;
    }
    entity.ordinal_ = 1;
    entity.needsBlankLine_ = entity.blankLineLength_ == 0;
    entity.contentChanged_ = true;
    entity.touched_ = true;
    link(wrapper, nullptr, entity, nullptr);
    link(wrapper, partIsFirst ? nullptr : &entity, part, partIsFirst ? &entity : nullptr);
  });
  const std::string path = entity.path();
  plan_.note({Change::Kind::PartAdded, "multipart/mixed", path});
  plan_.note({Change::Kind::PartAdded, part.describe(), path + ".2"});
}

void TreeEditor::planFieldSplit(Entity& entity, Entity& wrapper, const Entity& part,
                                const std::string& boundary) {
  HeaderBlock& inner = entity.block();
  HeaderBlock& outer = wrapper.block();
  const LineBreak lineBreak = entity.lineBreak();
  const auto field = [&](Entity& owner, std::string_view name, std::string_view value) {
    return newField(owner, name, value, lineBreak);
  };
  const bool isRoot = entity.parent_ == nullptr;
  const std::string own = entity.transferEncoding();
  const std::string ofPart = part.transferEncoding();
  const std::string& encoding = identityRank(own) < identityRank(ofPart) ? ofPart : own;
  const bool passesOn = identityRank(encoding) > 0;
  const bool namesType = entity.defaultIsMessage_ && inner.find("content-type") == nullptr;
  auto type = field(wrapper, "Content-Type", "multipart/mixed; boundary=\"" + boundary + "\"");
  auto version = isRoot && inner.find("mime-version") == nullptr
                     ? field(wrapper, "MIME-Version", "1.0")
                     : nullptr;
  auto transfer = passesOn ? field(wrapper, "Content-Transfer-Encoding", encoding) : nullptr;
  auto ownType = namesType ? field(entity, "Content-Type", "message/rfc822") : nullptr;
  HeaderBlock::Fields kept;
  kept.reserve(inner.size() + 1);
  outer.makeRoomFor(inner.size() + 3);
  wrapper.defaultIsMessage_ = entity.defaultIsMessage_;
  plan_.add([&entity, &wrapper, &inner, &outer, kept = std::move(kept), type = std::move(type),
             version = std::move(version), transfer = std::move(transfer),
             ownType = std::move(ownType)]() mutable {
    for (auto& present : inner.fields()) {
      if (!isAboutContent(*present)) {
        present->setOwner(wrapper);
        outer.insert(outer.size(), std::move(present));
        continue;
      }
      if (type != nullptr && present->hasName("content-type")) {
        outer.insert(outer.size(), std::move(type));
      }
      kept.push_back(std::move(present));
    }
    for (auto* added : {&version, &type, &transfer}) {
      if (*added != nullptr) outer.insert(outer.endPosition(), std::move(*added));
    }
    if (ownType != nullptr) kept.push_back(std::move(ownType));
    inner.fields() = std::move(kept);
    entity.defaultIsMessage_ = false;
  });
}

// A delimiter behind it brings a line break; where none follows, the closing line has its own.
std::string TreeEditor::closingLines(const std::string& boundary, LineBreak lineBreak,
                                     const Entity* parent) {
  std::string lines(lineBreak.text());
  lines.append("--").append(boundary).append("--");
  while (parent != nullptr && parent->kind_ != OvMsgEntityKind::Multipart) parent = parent->parent_;
  if (parent == nullptr) lines += lineBreak.text();
  return lines;
}

std::string TreeEditor::planBoundaries(Entity& place, const Entity& part) {
  const Boundaries found = boundariesIn(part, boundariesAround(&place));
  std::string own = boundaryOf(place);
  for (Entity* around = &place; around != nullptr && !found.empty(); around = around->parent_) {
    if (around->kind_ != OvMsgEntityKind::Multipart || found.count(boundaryOf(*around)) == 0) {
      continue;
    }
    std::string renewed = planNewBoundary(*around);
    if (around == &place) own = std::move(renewed);
  }
  return own;
}

std::string TreeEditor::planNewBoundary(Entity& multipart) {
  std::string boundary = newBoundary();
  const LineBreak lineBreak = multipart.lineBreak();
  HeaderField* const type = multipart.block().find("content-type");
  const std::string quoted = '"' + boundary + '"';
  std::string value = mime::withWritten(trimmed(type->rawValueView()), "boundary", quoted);
  if (mime::contentTypeParameter(mime::unfolded(value), "boundary") != boundary) {
    value = multipart.contentType() + "; boundary=" + quoted;
  }
  auto fresh = newField(multipart, "Content-Type", value, lineBreak);
  for (Entity* part = multipart.firstChild_; part != nullptr; part = part->nextSibling_) {
    std::string lead(breakBefore(part->lead_));
    plan_.set(part->lead_, message_.keep(lead.append(delimiterLine(boundary, lineBreak))));
  }
  if (!multipart.tail_.empty()) {
    const std::string_view tail = multipart.tail_;
    std::string renewed(breakBefore(tail));
    const std::size_t lf = tail.find('\n', renewed.size());
    renewed.append("--").append(boundary).append("--");
    if (lf != std::string_view::npos) renewed.append(lineBreak.text()).append(tail.substr(lf + 1));
    plan_.set(multipart.tail_, message_.keep(std::move(renewed)));
  }
  plan_.add([&multipart, type, fresh = std::move(fresh)] {
    type->takeText(*fresh);
    for (Entity* part = multipart.firstChild_; part != nullptr; part = part->nextSibling_) {
      part->touch();
      part->contentChanged_ = true;
    }
    multipart.contentChanged_ = true;
    multipart.touch();
  });
  return boundary;
}

// A delimiter that was received right behind a blank line or another delimiter has no line break of
// its own; it needs one as soon as something stands before it.
void TreeEditor::planBreakBehind(const Entity& entity) {
  const Entity* at = &entity;
  while (at->nextSibling_ == nullptr && at->parent_ != nullptr &&
         plan_.planned(at->parent_->tail_).empty()) {
    at = at->parent_;
  }
  if (at->nextSibling_ != nullptr) {
    planBreak(*at->nextSibling_, at->nextSibling_->lead_);
  } else if (at->parent_ != nullptr) {
    planBreak(*at->parent_, at->parent_->tail_);
  }
}

void TreeEditor::planBreak(Entity& owner, std::string_view& delimiter) {
  const std::string_view present = plan_.planned(delimiter);
  if (!present.starts_with('-')) return;
  plan_.set(delimiter, message_.keep(std::string(owner.lineBreak().text()).append(present)));
  plan_.add([&owner] { owner.touch(); });
}

}  // namespace host::message
