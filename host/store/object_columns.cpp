#include "host/store/object_columns.h"

namespace host::store {

namespace {

enum Column { Id, Owner, Type, Name, BuiltIn, Created, Changed, InUse, Content };

}  // namespace

ObjectRecord readObject(const Query& query, ObjectContent content) {
  ObjectRecord object;
  object.id = numberOf<std::uint32_t>(query, Id);
  object.owner = numberOf<std::uint32_t>(query, Owner);
  object.type = numberOf<std::uint32_t>(query, Type);
  object.name = query.bytes(Name);
  object.builtIn = query.number(BuiltIn) != 0;
  object.createdAt = query.number(Created);
  object.changedAt = query.number(Changed);
  object.inUse = query.number(InUse) != 0;
  if (content == ObjectContent::Read) object.content = query.bytes(Content);
  return object;
}

std::uint32_t nextObjectId(std::uint32_t lastObjectId) {
  if (lastObjectId == std::numeric_limits<std::uint32_t>::max()) {
    throw StoreFailure(StoreError::InvalidArgument, "every id was given once");
  }
  return lastObjectId + 1;
}

}  // namespace host::store
