// Every public operation, with its n-th allocation or platform call failing, for n = 1, 2, ...
// until the operation runs through. Expected each time: the stated result, nothing thrown, nothing
// leaked.
#pragma once

#include <cctype>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/library_test.h"

namespace sweep {

using fakes::FaultKind;

// More calls than any operation makes: a sweep that gets here never ends.
inline constexpr unsigned int kMaxCalls = 2000;

/// Where an operation runs: the fault is armed inside `run` only.
class Trial {
 public:
  Trial(FaultKind kind, unsigned int call) : kind_(kind), call_(call) {}

  void run(const std::function<void()>& operation) {
    const fakes::FaultPlan plan(kind_, call_);
    try {
      operation();
    } catch (...) {
      thrown_ = true;
    }
    fired_ = plan.fired();
  }
  bool fired() const { return fired_; }
  bool thrown() const { return thrown_; }
  FaultKind kind() const { return kind_; }

  fakes::Adapter adapter;
  fakes::Message msg;
  fakes::Settings settings;
  Kavi::TokenMap<Kavi::ScanToken> tokens;
  NamedObjMgrForScanner namedObjects;

 private:
  FaultKind kind_;
  unsigned int call_;
  bool fired_ = false;
  bool thrown_ = false;
};

/// One public operation: runs it under the trial's fault on objects of its own, checks that what it
/// leaves behind fits its result, and answers whether that was the result of success.
struct Operation {
  const char* name;
  bool (*run)(Trial& trial);
};

template <class Action>
bool constructs(Trial& trial, const std::string& setting) {
  Action action;
  bool result = false;
  trial.run([&] {
    result = action.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
  });
  return result;
}

template <class Action>
bool serializes(Trial& trial, const std::string& setting, const std::string& text) {
  Action action;
  action.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
  std::string result;
  trial.run([&] { result = action.serialize(); });
  EXPECT_TRUE(result.empty() || result == text) << result;
  return result == text;
}

template <class Action>
bool takes(Trial& trial, Action& action, bool& flag) {
  bool result = false;
  trial.run([&] {
    result = action.takeAction(&trial.msg, nullptr, flag, trial.tokens, trial.adapter,
                               trial.namedObjects);
  });
  return result;
}

template <class Action>
bool answersIds(Trial& trial, bool expected) {
  Action action;
  KaviAction& base = action;
  Ids ids{1};
  bool result = !expected;
  trial.run([&] { result = base.getNamedObjectIds(std::string("1-5"), ids); });
  EXPECT_EQ(ids, Ids{1});
  return result == expected;
}

using Parameter = std::tuple<const Operation*, FaultKind>;

/// Every operation of \p table with every kind of fault.
template <std::size_t Count>
auto each(const Operation (&table)[Count]) {
  std::vector<const Operation*> operations;
  for (const Operation& operation : table) {
    operations.push_back(&operation);
  }
  return testing::Combine(
      testing::ValuesIn(operations),
      testing::Values(FaultKind::Allocation, FaultKind::PlatformFailure, FaultKind::PlatformThrow));
}

inline std::string nameOf(const testing::TestParamInfo<Parameter>& info) {
  std::string name =
      std::string(std::get<0>(info.param)->name) + "_" + fakes::faultName(std::get<1>(info.param));
  for (char& character : name) {
    character = std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
  }
  return name;
}

}  // namespace sweep

/// The test itself stands in fault_sweep_test.cpp; each table of operations is instantiated where
/// it stands.
class FaultSweepTest : public LibraryTest, public testing::WithParamInterface<sweep::Parameter> {
 protected:
  /// Drops what the fakes wrote down.
  void forget() {
    log.takeLines();
    fakes::Resources::instance().clear();
  }
};
