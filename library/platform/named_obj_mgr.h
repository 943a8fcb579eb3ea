// The scanner's named objects by id.
#pragma once

#include <map>

#include "library/platform/kavi_named_obj.h"

/// The named-object records of one message's run. The records belong to the host.
class NamedObjMgrForScanner {
 public:
  struct Entry {
    KaviNamedObj* object = nullptr;  ///< the record, borrowed; may be null
  };

  /// The record of \p id, or null when the id is unknown or has no record.
  KaviNamedObj* find(unsigned int id) const {
    auto entry = entries_.find(id);
    return entry == entries_.end() ? nullptr : entry->second.object;
  }

  /// \param object  borrowed; must outlive this map.
  void set(unsigned int id, KaviNamedObj* object) { entries_[id].object = object; }

 private:
  std::map<unsigned int, Entry> entries_;
};
