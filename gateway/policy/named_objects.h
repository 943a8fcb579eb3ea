// The kinds of named objects that a policy can declare: one row each.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gateway/policy/condition.h"
#include "gateway/policy/node.h"
#include "gateway/policy/rows.h"
#include "library/platform/kavi_named_obj.h"

namespace gateway::policy {

/// The longest that an area is kept: a hundred years.
inline constexpr unsigned int kMaxAgingDays = 36'500;

/// An entry of a list of named objects.
struct ObjectEntry {
  const Node& item;  ///< a map
  const std::string& name;
  /// The folder that relative file names start from; none when entries must not name files.
  const std::optional<std::string>& folder;
  bool mayNamePipes = false;  ///< a person at the command line has named the files
};

/// Receives the keys of an entry behind its name, in their order.
class EntryKeys {
 public:
  EntryKeys(Document& document, Node& entry) : document_(document), entry_(entry) {}

  void add(std::string_view key, std::string value) {
    document_.addMember(entry_, key, std::move(value));
  }
  void addList(std::string_view key, const std::vector<std::string_view>& values);

 private:
  Document& document_;
  Node& entry_;
};

/// Whether \p name is one that people write: one line of 1 to 255 bytes. Others are bytes.
bool isWritableName(std::string_view name);
/// \p name as the value of the key `name`.
const Node& nameValue(const std::string& name, Document& document);

/// What the gateway knows about one kind of named object.
struct ObjectKind {
  std::string_view key;  ///< the list of a policy that declares them
  KaviNamedObj::NaObjType type;
  std::string_view word;      ///< as in messages
  std::string_view example;   ///< an entry of the list
  std::string_view required;  ///< what an entry needs behind its name, as in the example
  std::span<const std::string_view> keys;  ///< that an entry may have

  /// Turns an entry into the settings string, through the record's class.
  /// \return false with every reason and remedy handed to \p fault.
  bool (*encode)(const ObjectEntry& entry, std::string& setting, const FaultSink& fault);
  /// Hands the keys that say what \p setting does to \p keys; those with their usual value may be
  /// left out. What cannot be said by keys is lost: entryOf finds that out.
  /// \return false when the record refuses \p setting
  bool (*decode)(const std::string& setting, EntryKeys& keys);
  /// A fresh record, not constructed yet.
  std::unique_ptr<KaviNamedObj> (*make)();
  /// What an administrator may not have meant by \p setting; empty when nothing. May be null.
  std::string (*doubt)(const std::string& setting) = nullptr;
  /// The name that the record repeats; null where records know no name.
  std::string (*nameIn)(const std::string& setting) = nullptr;

  /// As `doubt`, and whether the record goes by another name than the object.
  std::string doubtAbout(const std::string& name, const std::string& setting) const;
  /// A record built from \p setting; null when its `construct` refuses that.
  std::unique_ptr<KaviNamedObj> build(const std::string& setting) const;
};

/// The key of an entry that holds a settings string as it is, instead of the kind's own keys.
inline constexpr std::string_view kSettingKey = "setting";

/// The entry of a policy for an object: a map of its name and the keys of its kind or, where they
/// would not give \p setting again byte for byte, of its name and kSettingKey. Its nodes are
/// \p document's.
const Node& entryOf(const ObjectKind& kind, const std::string& name, const std::string& setting,
                    Document& document);

std::span<const ObjectKind> allObjectKinds();

/// Null when there is none.
const ObjectKind* findObjectKind(unsigned int type);

}  // namespace gateway::policy
