#include "gateway/cli/message_changes.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <unordered_map>
#include <utility>

#include "host/message/entity.h"
#include "host/message/header_block.h"
#include "host/message/message.h"

namespace gateway::cli {
namespace {

using host::message::Entity;
using host::message::HeaderField;
using host::message::Message;

/// Which parts of two messages have the same path; the paths themselves are long where messages are
/// deep.
class Counterparts {
 public:
  Counterparts(const Message& one, const Message& other) {
    std::map<Place, const Entity*> places;
    for (const Entity* part = other.firstEntity(); part != nullptr; part = part->next()) {
      places.emplace(Place(part->parent(), part->ordinal()), part);
    }
    for (const Entity* part = one.firstEntity(); part != nullptr; part = part->next()) {
      const Entity* around = part->parent() != nullptr ? of(*part->parent()) : nullptr;
      if (part->parent() != nullptr && around == nullptr) continue;
      const auto found = places.find(Place(around, part->ordinal()));
      if (found != places.end()) pairs_.emplace(part, found->second);
    }
  }

  /// The part of the other message in the place of \p part; null when there is none.
  const Entity* of(const Entity& part) const {
    const auto found = pairs_.find(&part);
    return found != pairs_.end() ? found->second : nullptr;
  }

 private:
  /// What is around a part, and its number in there.
  using Place = std::pair<const Entity*, std::uint32_t>;

  std::unordered_map<const Entity*, const Entity*> pairs_;
};

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

/// The fields of one name, those before and those after, without what both have.
struct Occurrences {
  std::vector<const HeaderField*> before;
  std::vector<const HeaderField*> after;

  void dropCommon() {
    const auto same = [](const HeaderField* left, const HeaderField* right) {
      return left->bytes() == right->bytes();
    };
    const auto [left, right] =
        std::mismatch(before.begin(), before.end(), after.begin(), after.end(), same);
    after.erase(after.begin(), right);
    before.erase(before.begin(), left);
    while (!before.empty() && !after.empty() && same(before.back(), after.back())) {
      before.pop_back();
      after.pop_back();
    }
  }
};

std::vector<FieldChange> changedFields(const Entity& before, const Entity& after) {
  std::unordered_map<std::string, Occurrences> fields;
  std::vector<std::string> names;
  const auto gather = [&](const Entity& entity, auto member) {
    for (std::size_t i = 0; i < entity.header().size(); ++i) {
      const HeaderField& field = entity.header().at(i);
      const auto [entry, isNew] = fields.try_emplace(lowered(field.nameView()));
      if (isNew) names.push_back(entry->first);
      (entry->second.*member).push_back(&field);
    }
  };
  gather(before, &Occurrences::before);
  gather(after, &Occurrences::after);
  std::vector<FieldChange> changes;
  for (const std::string& name : names) {
    Occurrences& found = fields[name];
    found.dropCommon();
    const std::size_t count = std::max(found.before.size(), found.after.size());
    for (std::size_t i = 0; i < count; ++i) {
      const HeaderField& field = i < found.after.size() ? *found.after[i] : *found.before[i];
      const ChangeKind kind = i >= found.before.size()  ? ChangeKind::Added
                              : i >= found.after.size() ? ChangeKind::Removed
                                                        : ChangeKind::Changed;
      changes.push_back({kind, std::string(field.nameView())});
    }
  }
  return changes;
}

PartChange describe(ChangeKind kind, const Entity& entity, std::string path) {
  PartChange change;
  change.kind = kind;
  change.path = std::move(path);
  change.name = entity.fileNameText().value_or(std::string());
  change.type = entity.contentType();
  return change;
}

bool lies(const Entity* part, const Entity& within) {
  while (part != nullptr && part != &within) part = part->parent();
  return part != nullptr;
}

/// Whether \p now has the content of the root \p was, and the same parts below.
bool standsWhole(const Entity& was, const Entity& now) {
  if (was.contentType() != now.contentType() || !sameContent(was, now)) return false;
  std::unordered_map<const Entity*, const Entity*> placeOf{{&was, &now}};
  const Entity* place = now.next();
  for (const Entity* part = was.next(); part != nullptr; part = part->next()) {
    if (place == nullptr || placeOf[part->parent()] != place->parent()) return false;
    if (part->headerText() != place->headerText() || !sameContent(*part, *place)) return false;
    placeOf.emplace(part, place);
    place = place->next();
  }
  return !lies(place, now);
}

/// What changed around content that stands whole.
std::vector<PartChange> aroundIt(const Entity& was, const Entity& is, const Entity& content) {
  std::vector<PartChange> changes{describe(ChangeKind::Changed, is, is.path())};
  changes.back().fields = changedFields(was, is);
  for (const Entity* part = is.firstChild(); part != nullptr; part = part->nextSibling()) {
    const ChangeKind kind = part == &content ? ChangeKind::Wrapped : ChangeKind::Added;
    changes.push_back(describe(kind, *part, part->path()));
    if (kind == ChangeKind::Added) changes.back().bytesAfter = part->decodedSize();
  }
  return changes;
}

class Comparison {
 public:
  Comparison(const Message& before, const Message& after)
      : before_(before), after_(after), afterOf_(before, after), beforeOf_(after, before) {}

  std::vector<PartChange> run() {
    for (const Entity* entity = before_.firstEntity(); entity != nullptr; entity = entity->next()) {
      if (const Entity* other = afterOf_.of(*entity)) {
        compare(*entity, *other);
      } else if (isOutermost(*entity, afterOf_)) {
        changes_.push_back(describe(ChangeKind::Removed, *entity, entity->path()));
        changes_.back().bytesBefore = entity->decodedSize();
      }
    }
    for (const Entity* entity = after_.firstEntity(); entity != nullptr; entity = entity->next()) {
      if (beforeOf_.of(*entity) != nullptr || !isOutermost(*entity, beforeOf_)) continue;
      changes_.push_back(describe(ChangeKind::Added, *entity, entity->path()));
      changes_.back().bytesAfter = entity->decodedSize();
    }
    return std::move(changes_);
  }

 private:
  /// Of a part without counterpart: whether what is around it has one.
  static bool isOutermost(const Entity& entity, const Counterparts& counterparts) {
    return entity.parent() == nullptr || counterparts.of(*entity.parent()) != nullptr;
  }

  void compare(const Entity& before, const Entity& after) {
    const bool content = !sameContent(before, after);
    std::vector<FieldChange> fields;
    if (before.headerText() != after.headerText()) fields = changedFields(before, after);
    if (!content && fields.empty()) return;
    PartChange change = describe(ChangeKind::Changed, after, before.path());
    change.content = content;
    change.fields = std::move(fields);
    if (content) {
      change.bytesBefore = before.decodedSize();
      change.bytesAfter = after.decodedSize();
    }
    changes_.push_back(std::move(change));
  }

  const Message& before_;
  const Message& after_;
  Counterparts afterOf_;
  Counterparts beforeOf_;
  std::vector<PartChange> changes_;
};

}  // namespace

const char* wordOf(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::Added:
      return "added";
    case ChangeKind::Removed:
      return "removed";
    case ChangeKind::Wrapped:
      return "wrapped";
    case ChangeKind::Changed:
      break;
  }
  return "changed";
}

const Entity* wrappedContent(const Message& before, const Message& after) {
  const Entity* was = before.firstEntity();
  const Entity* is = after.firstEntity();
  if (was == nullptr || is == nullptr || is->kind() != OvMsgEntityKind::Multipart) return nullptr;
  for (const Entity* child = is->firstChild(); child != nullptr; child = child->nextSibling()) {
    if (standsWhole(*was, *child)) return child;
  }
  return nullptr;
}

bool sameContent(const host::message::Entity& before, const host::message::Entity& after) {
  if (before.kind() != after.kind()) return false;
  const std::string_view left = before.body();
  const std::string_view right = after.body();
  return left.size() == right.size() && (left.data() == right.data() || left == right);
}

std::vector<PartChange> changedParts(const Message& before, const Message& after) {
  if (const Entity* content = wrappedContent(before, after)) {
    return aroundIt(*before.firstEntity(), *after.firstEntity(), *content);
  }
  return Comparison(before, after).run();
}

}  // namespace gateway::cli
