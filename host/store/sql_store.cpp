#include "host/store/sql_store.h"

#include <new>
#include <utility>

#include "host/store/connection.h"
#include "host/store/schema.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

// Whether the connection can go on serving after this error.
bool staysUsable(StoreError error) {
  switch (error) {
    case StoreError::Busy:
    case StoreError::Conflict:
    case StoreError::InUse:
    case StoreError::NameTaken:
    case StoreError::NotFound:
    case StoreError::InvalidArgument:
    case StoreError::Full:
      return true;
    default:
      return false;
  }
}

}  // namespace

SqlStore::SqlStore(std::unique_ptr<ConnectionPool> pool) : pool_(std::move(pool)) {}

SqlStore::~SqlStore() = default;

void SqlStore::runOn(Connection& connection, Access access, const Work& work) {
  if (access == Access::Single || access == Access::Look) {
    work(connection);
    return;
  }
  if (access == Access::Write && pool_->hasOneWriter()) {
    writeInTurn(connection, work);
    return;
  }
  Transaction transaction(connection,
                          access == Access::Write ? TransactionMode::Write : TransactionMode::Read);
  work(connection);
  transaction.commit();
}

// Who stands in line while somebody else's lock outlasts the patience of the one in front has
// waited as long: the line must not wait one patience after another.
void SqlStore::writeInTurn(Connection& connection, const Work& work) {
  const unsigned int before = lockedOut_;
  const std::lock_guard lock(writing_);
  if (lockedOut_ != before) throw StoreFailure(StoreError::Busy, "locked by another program");
  try {
    Transaction transaction(connection, TransactionMode::Write);
    work(connection);
    transaction.commit();
  } catch (const StoreFailure& failure) {
    if (failure.error() == StoreError::Busy) ++lockedOut_;
    throw;
  }
}

StoreStatus SqlStore::run(const char* doing, Access access, const Work& work) {
  StoreStatus status;
  try {
    std::unique_ptr<Connection> connection;
    std::string detail;
    try {
      connection = access == Access::Look ? pool_->look() : pool_->take();
      if (connection != nullptr) runOn(*connection, access, work);
    } catch (const StoreFailure& failure) {
      status.error = failure.error();
      status.isUncertain = failure.isUncertain();
      detail = failure.what();
    }
    const bool usable = status.ok() || staysUsable(status.error);
    if (connection != nullptr && access != Access::Look && usable) {
      pool_->giveBack(std::move(connection));
    }
    if (status.error == StoreError::Unavailable) pool_->dropIdle();
    if (!status.ok()) status.text = failureText(doing, pool_->location(), status.error, detail);
  } catch (const std::bad_alloc&) {
    status.error = StoreError::OutOfMemory;
  } catch (...) {
    status.error = StoreError::Internal;
  }
  tell(status.error);
  return status;
}

void SqlStore::tell(StoreError error) const {
  switch (error) {
    case StoreError::None:
    case StoreError::InvalidArgument:
    case StoreError::NotFound:
    case StoreError::Conflict:
    case StoreError::InUse:
    case StoreError::NameTaken:
      return;
    default:
      if (observer_ != nullptr) observer_->storeFailed(error);
  }
}

StoreStatus SqlStore::prepare() {
  return run("opening the store", Access::Single, [](Connection&) {});
}

StoreStatus SqlStore::readForm(StoreForm& form) {
  StoreForm found{0, static_cast<std::int64_t>(schemaSteps().size())};
  StoreStatus status = run("looking at the store", Access::Look, [&](Connection& connection) {
    found.version = versionOf(connection, schemaSteps());
  });
  if (status.ok()) form = found;
  return status;
}

const std::string& SqlStore::location() const { return pool_->location(); }

}  // namespace host::store
