// The named objects that actions refer to by id.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/store_status.h"
#include "library/platform/api.h"

namespace host::store {

/// One named object. Name and content may hold any bytes.
struct ObjectRecord {
  std::uint32_t id = 0;  ///< given by the store, above 0, never given again
  std::uint32_t owner = 0;
  std::uint32_t type = 0;      ///< a KaviNamedObj::NaObjType
  std::string name;            ///< no two of an owner and type have the same
  std::string content;         ///< the settings string
  bool builtIn = false;        ///< came with the product
  bool inUse = false;          ///< a rule refers to it; told by the store
  std::int64_t createdAt = 0;  ///< seconds since 1970
  std::int64_t changedAt = 0;

  bool operator==(const ObjectRecord&) const = default;
};

/// One page of a listing, ordered by id.
struct ObjectPage {
  std::optional<std::uint32_t> owner;  ///< nothing: every owner
  std::optional<std::uint32_t> type;   ///< nothing: every type
  std::uint32_t afterId = 0;           ///< the last id of the page before
  std::size_t limit = 100;
};

struct RuleName {
  std::uint32_t id = 0;
  std::string name;

  bool operator==(const RuleName&) const = default;
};

/// Who changes something, and when; kept for the administrator to read.
struct ChangeNote {
  std::string actor;
  std::int64_t now = 0;  ///< seconds since 1970
  /// Of the store when what is changed was read: with another one by now, a change of an object
  /// answers Conflict. Nothing: whatever somebody else did meanwhile is overwritten.
  std::optional<std::int64_t> revision = {};
};

/// Durable and safe as MessageIndex. Each change counts the revision up by one and leaves a row in
/// the audit list.
class KAVI_API ObjectStore {
 public:
  virtual ~ObjectStore() = default;

  /// Adds an object; its id, flag inUse and times are not read.
  /// \param id  receives the new id
  /// \return NameTaken when owner and type have the name already
  virtual StoreStatus addObject(const ObjectRecord& object, const ChangeNote& note,
                                std::uint32_t& id) = 0;

  /// Gives the object of that id, owner and type its name and content.
  /// \return NotFound, NameTaken
  virtual StoreStatus changeObject(const ObjectRecord& object, const ChangeNote& note) = 0;

  /// \return NotFound; InUse while a rule refers to it
  virtual StoreStatus removeObject(std::uint32_t id, std::uint32_t owner,
                                   const ChangeNote& note) = 0;

  /// NotFound when there is none.
  virtual StoreStatus findObject(std::uint32_t id, ObjectRecord& object) = 0;

  /// The id of the object of that owner, type and name. NotFound when there is none.
  virtual StoreStatus findObjectNamed(std::uint32_t owner, std::uint32_t type,
                                      const std::string& name, std::uint32_t& id) = 0;

  /// \param objects  receives the page, without the contents
  virtual StoreStatus listObjects(const ObjectPage& page, std::vector<ObjectRecord>& objects) = 0;

  /// The rules that refer to an object, in the order in which they run.
  virtual StoreStatus listReferrers(std::uint32_t id, std::vector<RuleName>& rules) = 0;
};

}  // namespace host::store
