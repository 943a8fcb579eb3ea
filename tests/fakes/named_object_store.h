// The database of named objects in memory, behind KaviNamedObj's static operations.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "library/platform/kavi_named_obj.h"

namespace fakes {

/// What the operations on stored records answer, and what they were asked. Each counts as a
/// platform call of the fault plan.
class NamedObjectStore {
 public:
  static NamedObjectStore& instance();

  /// As at the start: no objects, every operation succeeds.
  void clear();
  /// From now on every operation answers \p result; other than 0 it then does nothing.
  void answer(int result) { result_ = result; }
  /// One more row of every list, whatever is asked for.
  void addRow(const SummaryNamedObject& row) { rows_.push_back(row); }
  /// One that can be read, changed and removed, whatever owner and type are named; in no list.
  void addContent(unsigned int id, const std::string& name, const std::string& content);

  /// What was asked, in order: "open", "add 1 name content 2", ..., "close".
  const std::vector<std::string>& calls() const { return calls_; }
  /// How many database interfaces are open.
  int openCount() const { return open_; }

  void opened();
  void closed();
  /// Writes a call down. \return what it is to answer.
  int record(const std::string& call);

  struct Object {
    unsigned int id, owner, type;
    std::string name, content;
  };
  /// Each answers 0, or the number of a failure after which everything is as before.
  int add(Object object, unsigned int& id);
  int modify(const Object& object);
  int remove(unsigned int id, unsigned int owner);
  std::list<SummaryNamedObject> list(unsigned int owner, unsigned int type) const;
  const Object* find(unsigned int id) const;

 private:
  bool isFree(const Object& object) const;

  int result_ = 0;
  int open_ = 0;
  std::list<SummaryNamedObject> rows_;
  std::vector<Object> objects_;
  unsigned int lastId_ = 4710;
  std::vector<std::string> calls_;
};

}  // namespace fakes
