// The store of objects and rules as it grows, on both databases. Beside each size stands `plain`:
// the same bytes read by bare SELECTs, without a policy made of them. The server runs without
// fsync, so that what it writes costs less than in earnest.
//
// bench_store --make LOCATION OBJECTS RULES fills a store, for a look at the commands.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "gateway/policy/loader.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/stored_policy.h"
#include "host/store/postgres_connection.h"
#include "host/store/sqlite_connection.h"
#include "host/store/store.h"
#include "tests/e2e/postgres/postgres_server.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace gateway::policy;
using namespace host::store;

constexpr int kObjectsToARule = 10;
constexpr int kTimeoutMs = 10'000;
constexpr char kExample[] =
    "stamps:\n"
    "- {name: legal, text: 'This message came from %SENDER% and is for its addressee only.'}\n"
    "rules:\n"
    "- id: 1\n"
    "  name: from outside\n"
    "  when: {all: [{not: {sender: {matches: '@example'}}}, {subject: {matches: [a, b]}}]}\n"
    "  actions: [{tag_subject: '[EXTERNAL] '}, {stamp: legal}]\n";

void require(bool done, const std::string& what) {
  if (!done) throw std::runtime_error(what);
}

/// As many stamps and rules, of which each refers to a stamp of its own.
PolicyRecord policyOf(int objects, int rules) {
  Diagnostics diagnostics("example");
  const auto example = loadPolicy(kExample, diagnostics);
  require(example.has_value(), "the example is no policy");
  PolicyRows rows;
  for (int i = 1; i <= objects; ++i) {
    NamedObjectRow row = example->rows.objects.at(0);
    row.id = static_cast<unsigned int>(i);
    row.name += std::to_string(i);
    rows.objects.push_back(std::move(row));
  }
  for (int i = 1; i <= rules; ++i) {
    RuleRow row = example->rows.rules.at(0);
    row.id = row.order = static_cast<unsigned int>(i);
    row.actions.at(1).setting = "1-" + std::to_string(i);
    rows.rules.push_back(std::move(row));
  }
  PolicyRecord record;
  require(recordOf(rows, {}, record, diagnostics), "the rows are no policy");
  return record;
}

void fill(PolicyStore& store, int objects, int rules) {
  PolicyRecord record = policyOf(objects, rules);
  std::int64_t revision = 0;
  const StoreStatus status = store.replacePolicy(record, {"bench", 1}, revision);
  require(status.ok(), status.text);
}

enum class Kind { File, Server };

/// A filled store, and a bare connection to it.
struct Bed {
  std::unique_ptr<Database> store;
  std::unique_ptr<Connection> plain;
  int size = 0;  ///< objects and rules
};

testing_host::TempFolder& folder() {
  static testing_host::TempFolder only;
  return only;
}

Bed makeBed(Kind kind, int objects) {
  const std::string path = folder() / std::to_string(objects);
  const std::string location =
      kind == Kind::File ? "sqlite:" + path : testing_host::PostgresServer::shared().makeDatabase();
  StoreStatus status;
  Bed bed{makeStore(location, status), nullptr, objects + objects / kObjectsToARule};
  require(bed.store != nullptr, status.text);
  fill(*bed.store, objects, objects / kObjectsToARule);
  if (kind == Kind::File) {
    bed.plain = std::make_unique<SqliteConnection>(path, kTimeoutMs);
  } else {
    bed.plain = std::make_unique<PostgresConnection>(location, kTimeoutMs);
    bed.plain->execute("ANALYZE");
  }
  return bed;
}

Bed& bedOf(Kind kind, benchmark::State& state) {
  static std::map<std::pair<Kind, std::int64_t>, Bed> beds;
  const auto key = std::pair(kind, state.range(0));
  auto found = beds.find(key);
  if (found == beds.end()) {
    found = beds.emplace(key, makeBed(kind, static_cast<int>(state.range(0)))).first;
  }
  return found->second;
}

void perRow(benchmark::State& state, const Bed& bed) {
  state.counters["per_row"] = benchmark::Counter(
      static_cast<double>(bed.size),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// The columns of a statement's rows, all of them bytes.
std::size_t readAll(Connection& connection, const char* text, int columns) {
  std::size_t bytes = 0;
  Query query(connection, text);
  while (query.next()) {
    for (int column = 0; column < columns; ++column) bytes += query.bytes(column).size();
  }
  return bytes;
}

void plainPolicy(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = readAll(*bed.plain, "SELECT name, content FROM named_object", 2) +
            readAll(*bed.plain, "SELECT name, condition FROM rule", 2) +
            readAll(*bed.plain, "SELECT setting FROM rule_action", 1);
    require(bytes > 0, "nothing read");
  }
  perRow(state, bed);
  state.counters["bytes"] = static_cast<double>(bytes);
}

void readPolicy(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  for (auto _ : state) {
    PolicyRecord record;
    require(bed.store->readPolicy(record).ok(), "reading");
  }
  perRow(state, bed);
}

void loadPolicy(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  for (auto _ : state) {
    Diagnostics diagnostics("store");
    const StoredPolicy policy = loadFromStore(*bed.store, diagnostics);
    require(policy.snapshot != nullptr, "loading");
  }
  perRow(state, bed);
}

void plainPage(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  std::int64_t after = 0;
  for (auto _ : state) {
    after = (after + 7919) % (state.range(0) - 100);
    Query query(*bed.plain, "SELECT name FROM named_object WHERE id > $1 ORDER BY id LIMIT 100");
    query.bind(after);
    while (query.next()) benchmark::DoNotOptimize(query.bytes(0));
  }
}

void listPage(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  std::uint32_t after = 0;
  ObjectPage page{kPolicyOwner, {}, 0, 100};
  for (auto _ : state) {
    after = (after + 7919) % (static_cast<std::uint32_t>(state.range(0)) - 100);
    page.afterId = after;
    std::vector<ObjectRecord> objects;
    require(bed.store->listObjects(page, objects).ok() && objects.size() == 100, "listing");
  }
}

void listRules(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  const auto rules = static_cast<std::uint32_t>(state.range(0) / kObjectsToARule);
  std::uint32_t after = 0;
  for (auto _ : state) {
    after = (after + 7919) % (rules - 50);
    PolicyRecord part;
    const RulePage page{after == 0 ? std::optional<std::uint32_t>() : after, 50};
    require(bed.store->listRules(page, part).ok() && part.rules.size() == 50, "listing rules");
  }
}

void findRule(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  const auto rules = static_cast<std::uint32_t>(state.range(0) / kObjectsToARule);
  std::uint32_t id = 0;
  for (auto _ : state) {
    id = (id + 7919) % rules;
    PolicyRecord part;
    require(bed.store->findRule(id + 1, part).ok() && part.objects.size() == 1, "finding a rule");
  }
}

void readRevision(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  for (auto _ : state) {
    std::int64_t revision = 0;
    require(bed.store->readRevision(revision).ok(), "reading the revision");
  }
}

void addObject(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  ObjectRecord object = policyOf(1, 0).objects.at(0);
  object.owner = kPolicyOwner + 1;
  static int number = 0;
  for (auto _ : state) {
    object.name = "added " + std::to_string(++number);
    std::uint32_t id = 0;
    const StoreStatus status = bed.store->addObject(object, {"bench", 1}, id);
    require(status.ok(), status.text);
  }
}

void changeOneRule(benchmark::State& state, Kind kind) {
  Bed& bed = bedOf(kind, state);
  PolicyRecord record;
  require(bed.store->readPolicy(record).ok(), "reading");
  for (auto _ : state) {
    record.rules.back().name += 'x';
    const StoreStatus status = bed.store->replacePolicy(record, {"bench", 1}, record.revision);
    require(status.ok(), status.text);
  }
  perRow(state, bed);
}

constexpr std::pair<const char*, void (*)(benchmark::State&, Kind)> kBenches[] = {
    {"plainPolicy", plainPolicy},     {"readPolicy", readPolicy}, {"loadPolicy", loadPolicy},
    {"changeOneRule", changeOneRule}, {"plainPage", plainPage},   {"listPage", listPage},
    {"listRules", listRules},         {"findRule", findRule},     {"readRevision", readRevision},
    {"addObject", addObject}};

int makeStoreAt(const std::string& location, int objects, int rules) {
  StoreStatus status;
  const auto store = makeStore(location, status);
  require(store != nullptr, status.text);
  fill(*store, objects, rules);
  return 0;
}

int run(int argc, char** argv) {
  if (argc == 5 && std::string_view(argv[1]) == "--make") {
    return makeStoreAt(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
  }
  for (const auto& [kind, name] : {std::pair(Kind::File, "file"), {Kind::Server, "server"}}) {
    for (const auto& [what, function] : kBenches) {
      benchmark::RegisterBenchmark((std::string(what) + "/" + name).c_str(), function, kind)
          ->Arg(1000)
          ->Arg(10'000)
          ->Arg(100'000)
          ->UseRealTime()
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& fault) {
    std::cerr << "bench_store: " << fault.what() << '\n';
    return 1;
  }
}
