// Lets the n-th allocation of every adapter operation fail: nothing is thrown, error and result
// agree, nothing leaks, and no message is left where success was not reported.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "host/delivery/adapter_error.h"
#include "host/delivery/local_adapter.h"
#include "host/delivery/recording_adapter.h"
#include "tests/fakes/allocator.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using host::delivery::AdapterError;
using testing_host::PlainMessage;
using testing_host::TempFolder;

constexpr unsigned int kMostAllocations = 100'000;

using Operation = std::function<int(OvIsAdapter&, unsigned int&, OvMsgMailMessage*)>;

struct Named {
  const char* name;
  Operation run;
};

const Named kOperations[] = {
    {"delete",
     [](auto& adapter, auto& error, auto* msg) { return adapter.deleteMessage(error, msg); }},
    {"postpone", [](auto& adapter, auto& error,
                    auto* msg) { return adapter.postponeMessage(error, msg, 8, 30, 23, 59); }},
    {"handoff",
     [](auto& adapter, auto& error, auto* msg) {
       return adapter.handoffMessage(error, msg, "a host with a name longer than a short text", 25);
     }},
    {"quarantine",
     [](auto& adapter, auto& error, auto* msg) {
       char path[kQuarantinePathSize];
       const int result = adapter.quarantineMessage(error, msg, "", "/var/quarantine/folder", path);
       EXPECT_EQ(path[0] != '\0', result == 0);
       return result;
     }},
    {"archive",
     [](auto& adapter, auto& error, auto* msg) {
       const char area[kArchiveAreaNameSize] = "an area with a name longer than a short text";
       return adapter.archiveMessage(error, msg, "", "/var/archive/folder", area);
     }},
    {"resend",
     [](auto& adapter, auto& error, auto* msg) { return adapter.resendMessage(error, msg, 1); }},
    {"deliver",
     [](auto& adapter, auto& error, auto* msg) { return adapter.deliverMessage(error, msg); }},
};

// Message files under `folder`, whatever their folder; temporary ones count.
std::size_t messageFiles(const std::string& folder) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    count += entry.is_regular_file() && entry.path().extension() != ".jsonl" ? 1 : 0;
  }
  return count;
}

// `attempt` runs the operation once under the plan that it makes; answers the result and error.
void sweep(const std::string& folder, const Operation& operation,
           const std::function<std::unique_ptr<OvIsAdapter>()>& makeAdapter, std::size_t stored) {
  PlainMessage message(std::string(1000, 'x'));
  message.setEnvelope("somebody.with.a.long.name@example.org",
                      {"somebody.else.with.a.long.name@example.org", "b@example.org"});
  for (unsigned int call = 1; call < kMostAllocations; ++call) {
    const long before = fakes::liveAllocations();
    unsigned int error = 99;
    int result = 99;
    bool fired = false;
    {
      const std::unique_ptr<OvIsAdapter> adapter = makeAdapter();
      const FaultPlan plan(FaultKind::Allocation, call);
      EXPECT_NO_THROW(result = operation(*adapter, error, &message)) << call;
      fired = plan.fired();
    }
    EXPECT_EQ(fakes::liveAllocations(), before) << "leak, allocation " << call;
    EXPECT_EQ(result == 0, error == 0) << call;
    if (!fired) {
      EXPECT_EQ(result, 0) << host::delivery::adapterErrorText(error);
      EXPECT_EQ(messageFiles(folder), stored);
      EXPECT_GT(call, 1u) << "the operation allocated nothing";
      return;
    }
    if (result != 0) {
      EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::OutOfMemory)) << call;
      EXPECT_EQ(messageFiles(folder), 0u) << call;
    }
  }
  FAIL() << "the operation never succeeded";
}

TEST(DeliveryFaultSweep, RecordingAdapter) {
  for (const Named& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    const TempFolder temp;
    const std::string out = temp.path();
    sweep(
        out, operation.run,
        [&out] { return std::make_unique<host::delivery::RecordingAdapter>(out, "in.eml"); }, 1);
  }
}

TEST(DeliveryFaultSweep, LocalAdapter) {
  // The operations that keep messages are swept in filing_fault_test.cpp.
  const TempFolder temp;
  host::delivery::DeliveryState state;
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  sweep(
      temp.path(), kOperations[0].run,
      [&state] { return std::make_unique<host::delivery::LocalAdapter>(state); }, 0);
}

TEST(DeliveryFaultSweep, SpoolReaders) {
  const TempFolder temp;
  host::delivery::Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  std::string id;
  host::delivery::SpoolEntry waiting;
  waiting.kind = "postpone";
  ASSERT_EQ(spool.put(waiting, PlainMessage(std::string(1000, 'x')), id), AdapterError::None);
  const std::function<bool()> readers[] = {
      [&] {
        host::delivery::SpoolEntry entry;
        std::string bytes;
        return spool.read(id, entry, bytes) == AdapterError::None && bytes.size() == 1000;
      },
      [&] {
        std::vector<std::string> ids;
        return spool.list(ids) == AdapterError::None && ids.size() == 1;
      },
      [&] {
        host::delivery::Spool other;
        return other.open(temp.path()) == AdapterError::None;
      }};
  for (const auto& reader : readers) {
    for (unsigned int call = 1;; ++call) {
      const long before = fakes::liveAllocations();
      bool succeeded = false;
      bool fired = false;
      {
        const FaultPlan plan(FaultKind::Allocation, call);
        EXPECT_NO_THROW(succeeded = reader()) << call;
        fired = plan.fired();
      }
      EXPECT_EQ(fakes::liveAllocations(), before) << call;
      if (!fired) {
        EXPECT_TRUE(succeeded);
        break;
      }
      EXPECT_FALSE(succeeded) << call;
      ASSERT_LT(call, kMostAllocations);
    }
  }
}

}  // namespace
