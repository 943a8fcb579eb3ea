// The administration's side of the named objects.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "library/framework/kavi_action_n.h"
#include "library/platform/api.h"
#include "library/platform/kavi_named_obj.h"

/// One row of a listing.
struct KAVI_API NameObjectSummary {
  std::uint32_t id = 0;
  std::string name;
  std::uint8_t firstFlag = 0;   ///< as in SummaryNamedObject
  std::uint8_t secondFlag = 0;  ///< as in SummaryNamedObject

  NameObjectSummary() = default;
  explicit NameObjectSummary(const SummaryNamedObject& row);
};

/// Lists, reads and changes the stored named objects of one type, and the ids that an action refers
/// to. Each operation that reaches the store takes a database interface of its own for that time.
/// Texts end at their NUL. Nothing is thrown and nothing is logged: an exception counts as the
/// operation's failure. One object serves one thread at a time. The order of the virtual operations
/// is part of the binary interface.
class KAVI_API NameObjectAccess {
 public:
  /// What the operations answer; shown to administrators, so the numbers never change.
  enum Result : int {
    Success = 0,
    MissingArgument = 1004,
    ReservedName = 1015,  ///< the name begins with "OPP:"
    AddRefused = 1401,
    ModifyRefused = 1402,
    ListFailed = 1404,
    ReadFailed = 1405,
  };
  /// What `remove` answers when the store threw instead of answering.
  static constexpr int kRemoveFailed = -1;

  explicit NameObjectAccess(KaviNamedObj::NaObjType objectType);

  /// Replaces \p objects by those of \p owner, in the store's order.
  /// \return Success; or ListFailed, with \p objects empty
  virtual int getList(unsigned int owner, std::list<NameObjectSummary>& objects);

  /// Stores a new object. \param content  its settings string \param id  receives the new id
  /// \return Success, MissingArgument for a null or empty text, ReservedName, AddRefused
  virtual int add(unsigned int owner, const char* name, const char* content, unsigned int& id);

  /// Stores a new name and content for object \p id of \p owner, which stands first here and
  /// second in the store's own operation.
  /// \return as `add`, with ModifyRefused
  virtual int update(unsigned int owner, unsigned int id, const char* name, const char* content);

  /// \return Success or ReadFailed
  virtual int get(unsigned int id, std::string& name, std::string& content);

  /// \return the store's own result, 0 for success; or kRemoveFailed
  virtual int remove(unsigned int id, unsigned int owner);

  /// Lets \p action refer to \p ids and to nothing else; it changes although it is constant.
  /// Checked is that every object it refers to so far can be read; \p ids are not looked at.
  /// \return Success; MissingArgument for no ids; ReadFailed, with the action as it was
  virtual int bind(const KaviActionN& action, const std::vector<unsigned int>& ids);

  /// Replaces \p ids by those that \p action refers to.
  /// \return Success; or MissingArgument when it refers to none, with \p ids as they were
  virtual int getBindings(const KaviActionN& action, std::vector<unsigned int>& ids);

  virtual ~NameObjectAccess();

 private:
  KaviNamedObj::NaObjType type_;
};
