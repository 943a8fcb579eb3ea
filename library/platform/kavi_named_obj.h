// Named objects: the records that actions refer to by id, and their place in the database.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace Kavi {
class RdbmsInterface;
}

/// One row of the store's listing.
struct SummaryNamedObject {
  unsigned int id = 0;
  std::uint8_t firstFlag = 0;   ///< 1 while a rule refers to the object
  std::uint8_t secondFlag = 0;  ///< 1 when the object came with the product
  std::string name;
};

/// Base of the named-object records: what a record can do (virtual), and the database operations
/// on stored records (static, defined by the host).
class KAVI_API KaviNamedObj {
 public:
  /// What a record is; stored, so the numbers never change.
  enum NaObjType : unsigned int {
    NotificationType = 1,
    StampType = 2,
    QuarantineAreaType = 3,
    ArchiveAreaType = 4,
  };

  virtual ~KaviNamedObj() = default;

  /// Fills the record from a settings string of \p length bytes, NUL-terminated and writable.
  /// \return false on the first fault; fields read before it keep their new values.
  virtual bool construct(const char* setting, unsigned int length) = 0;

  /// The settings string that `construct` reads; empty when there is none to give.
  virtual std::string serialize() = 0;

  /// The record's NaObjType.
  virtual unsigned int getType() const = 0;

  // Database operations. Texts may hold any byte. All return 0 for success, otherwise a code of
  // the store's own; then nothing was changed and output arguments are as they were.

  /// \param id  receives the new object's id.
  static int add(Kavi::RdbmsInterface& database, unsigned int owner, std::string_view name,
                 std::string_view content, NaObjType type, unsigned int& id);
  static int modify(Kavi::RdbmsInterface& database, unsigned int id, unsigned int owner,
                    std::string_view name, std::string_view content, NaObjType type);
  static int remove(Kavi::RdbmsInterface& database, unsigned int id, unsigned int owner);
  /// Appends the objects of \p owner and \p type to \p rows, ordered by id.
  static int getIds(Kavi::RdbmsInterface& database, unsigned int owner, NaObjType type,
                    std::list<SummaryNamedObject>& rows);
  static int getContentBlob(Kavi::RdbmsInterface& database, unsigned int id, std::string& name,
                            std::string& content);
};
