// The lists in which the scanner hands marked entities to the actions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class OvMsgEntity;

namespace library {

struct MarkedEntity {
  unsigned int id = 0;            ///< the scanner's number of the entity
  OvMsgEntity* entity = nullptr;  ///< never null; to be followed only once `msgu::existEntity` has
                                  ///< accepted it
};

struct MarkedEntities {
  std::vector<MarkedEntity> entities;  ///< those before the first bad item, in order
  std::size_t end = 0;                 ///< where reading stopped: at a bad item, or at the end
  bool complete = false;               ///< whether there was no bad item
};

/// Reads \p list, up to its first NUL: items "id handle" separated by ";", the id decimal and the
/// handle, an entity's address, hexadecimal; numbers are read as scanf reads "%u %x". An item that
/// is none, that is longer than 63 characters, or whose handle is 0, is bad and ends the reading.
/// What such a list is worth is the caller's to say.
MarkedEntities readMarkedEntities(const std::string& list);

/// The low 32 bits of an entity's address: what log lines print of it.
unsigned int handleForLog(const OvMsgEntity* entity);

}  // namespace library
