#include "gateway/cli/message_changes.h"

#include <algorithm>
#include <iterator>
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

using Parts = std::unordered_map<std::string, const Entity*>;

Parts partsOf(const Message& message) {
  Parts parts;
  for (const Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->next()) {
    parts.emplace(entity->path(), entity);
  }
  return parts;
}

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

class Comparison {
 public:
  Comparison(const Message& before, const Message& after)
      : before_(before),
        after_(after),
        partsBefore_(partsOf(before)),
        partsAfter_(partsOf(after)) {}

  std::vector<PartChange> run() {
    for (const Entity* entity = before_.firstEntity(); entity != nullptr; entity = entity->next()) {
      std::string path = entity->path();
      const auto other = partsAfter_.find(path);
      if (other != partsAfter_.end()) {
        compare(*entity, *other->second, std::move(path));
      } else if (entity->parent() == nullptr || isIn(partsAfter_, *entity->parent())) {
        changes_.push_back(describe(ChangeKind::Removed, *entity, std::move(path)));
        changes_.back().bytesBefore = entity->decodedSize();
      }
    }
    for (const Entity* entity = after_.firstEntity(); entity != nullptr; entity = entity->next()) {
      const Entity* around = entity->parent();
      if (isIn(partsBefore_, *entity) || (around != nullptr && !isIn(partsBefore_, *around))) {
        continue;
      }
      changes_.push_back(describe(ChangeKind::Added, *entity, entity->path()));
      changes_.back().bytesAfter = entity->decodedSize();
    }
    return std::move(changes_);
  }

 private:
  static bool isIn(const Parts& parts, const Entity& entity) {
    return parts.count(entity.path()) != 0;
  }

  void compare(const Entity& before, const Entity& after, std::string path) {
    const bool content = !sameContent(before, after);
    std::vector<FieldChange> fields;
    if (before.headerText() != after.headerText()) fields = changedFields(before, after);
    if (!content && fields.empty()) return;
    PartChange change = describe(ChangeKind::Changed, after, std::move(path));
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
  Parts partsBefore_;
  Parts partsAfter_;
  std::vector<PartChange> changes_;
};

}  // namespace

const char* wordOf(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::Added:
      return "added";
    case ChangeKind::Removed:
      return "removed";
    case ChangeKind::Changed:
      break;
  }
  return "changed";
}

bool sameContent(const host::message::Entity& before, const host::message::Entity& after) {
  if (before.kind() != after.kind()) return false;
  const std::string_view left = before.body();
  const std::string_view right = after.body();
  return left.size() == right.size() && (left.data() == right.data() || left == right);
}

std::vector<PartChange> changedParts(const Message& before, const Message& after) {
  return Comparison(before, after).run();
}

}  // namespace gateway::cli
