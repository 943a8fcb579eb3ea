#include "host/store/postgres_store.h"
#include "tests/contract/subjects.h"
#include "tests/e2e/postgres/postgres_server.h"

namespace contract {

namespace {

std::unique_ptr<host::store::PostgresStore> makePostgresStore() {
  return std::make_unique<host::store::PostgresStore>(
      testing_host::PostgresServer::shared().makeDatabase());
}

}  // namespace

std::unique_ptr<host::store::Store> makeStore(const std::string& /*folder*/) {
  return makePostgresStore();
}

std::unique_ptr<host::store::PolicyStore> makePolicyStore(const std::string& /*folder*/) {
  return makePostgresStore();
}

}  // namespace contract
