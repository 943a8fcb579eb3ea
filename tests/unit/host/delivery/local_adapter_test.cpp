#include "host/delivery/local_adapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliveryState;
using host::delivery::LocalAdapter;
using host::delivery::SpoolEntry;
using testing_host::contentOf;
using testing_host::entryCount;
using testing_host::PlainMessage;
using testing_host::TempFolder;

PlainMessage sample() {
  PlainMessage message("Subject: hello\r\n\r\nbody\r\n");
  message.setEnvelope("a@example.org", {"b@example.org", "c@example.org"});
  return message;
}

TEST(LocalAdapter, LeavesAFlushedLineForADeletion) {
  const TempFolder temp;
  testing_host::FailingOps ops;
  DeliveryState state(ops);
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  ops.failCall(0, 0);
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  unsigned int error = 99;
  EXPECT_EQ(adapter.deleteMessage(error, &message), 0);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(ops.calls(), (std::vector<std::string>{"openFile", "lock", "write", "sync", "sync"}));
  const auto line = nlohmann::json::parse(contentOf(temp / "decisions.jsonl"));
  EXPECT_EQ(line["decision"], "delete");
  EXPECT_EQ(line["message_id"], message.id());
  EXPECT_EQ(line["bytes"], message.bytes().size());
  EXPECT_EQ(line["envelope"]["sender"], "a@example.org");
  EXPECT_EQ(line["envelope"]["recipients"].size(), 2u);
  EXPECT_THAT(line["time"].get<std::string>(),
              ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));
  EXPECT_EQ(entryCount(temp / "spool"), 0u);
}

TEST(LocalAdapter, FailsADeletionThatLeavesNoLine) {
  const TempFolder temp;
  testing_host::FailingOps ops;
  DeliveryState state(ops);
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  for (unsigned int call = 1;; ++call) {
    ops.failCall(call, ENOSPC);
    unsigned int error = 0;
    const int result = adapter.deleteMessage(error, &message);
    if (!ops.fired()) {
      EXPECT_EQ(result, 0);
      break;
    }
    EXPECT_NE(result, 0);
    EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::DiskFull)) << call;
    EXPECT_EQ(contentOf(temp / "decisions.jsonl"), "") << call;
  }
}

TEST(LocalAdapter, PutsPostponedMessagesIntoTheSpool) {
  const TempFolder temp;
  DeliveryState state;
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  unsigned int error = 99;
  const std::time_t before = std::time(nullptr);
  ASSERT_EQ(adapter.postponeMessage(error, &message, 8, 30, 23, 59), 0);
  EXPECT_EQ(error, 0u);
  std::vector<std::string> ids;
  ASSERT_EQ(state.spool().list(ids), AdapterError::None);
  ASSERT_EQ(ids.size(), 1u);
  SpoolEntry entry;
  std::string bytes;
  ASSERT_EQ(state.spool().read(ids[0], entry, bytes), AdapterError::None);
  EXPECT_EQ(bytes, message.bytes());
  EXPECT_EQ(entry.kind, "postpone");
  EXPECT_EQ(entry.window, (host::delivery::TimeWindow{8, 30, 23, 59}));
  EXPECT_GE(entry.queuedAt, before);
  EXPECT_LE(entry.queuedAt, std::time(nullptr));
  EXPECT_EQ(entry.envelope.sender, "a@example.org");
}

TEST(LocalAdapter, RefusesWhatItCannotTake) {
  const TempFolder temp;
  DeliveryState state;
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  unsigned int error = 0;
  EXPECT_NE(adapter.deleteMessage(error, nullptr), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_NE(adapter.postponeMessage(error, nullptr, 8, 30, 23, 59), 0);
  EXPECT_EQ(error, 1u);
  error = 0;
  EXPECT_NE(adapter.postponeMessage(error, &message, 8, 60, 23, 59), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_EQ(entryCount(temp / "spool"), 0u);
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(LocalAdapter, FailsWithoutAnOpenFolder) {
  DeliveryState state;
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  unsigned int error = 0;
  EXPECT_NE(adapter.deleteMessage(error, &message), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::MissingFolder));
  EXPECT_NE(adapter.postponeMessage(error, &message, 8, 30, 23, 59), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::MissingFolder));
}

TEST(LocalAdapter, SaysThatTheRestIsNotAvailable) {
  const TempFolder temp;
  DeliveryState state;
  ASSERT_EQ(state.open(temp.path()), AdapterError::None);
  LocalAdapter adapter(state);
  PlainMessage message = sample();
  const auto refused = [](int result, unsigned int& error) {
    const bool told = result != 0 && error == static_cast<unsigned int>(AdapterError::NotAvailable);
    error = 0;
    return told;
  };
  unsigned int error = 0;
  EXPECT_TRUE(refused(adapter.handoffMessage(error, &message, "192.0.2.1", 25), error));
  EXPECT_TRUE(refused(adapter.resendMessage(error, &message, 1), error));
  EXPECT_TRUE(refused(adapter.deliverMessage(error, &message), error));
  EXPECT_EQ(entryCount(temp.path()), 1u);
  EXPECT_EQ(entryCount(temp / "spool"), 0u);
}

}  // namespace
