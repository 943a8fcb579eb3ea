// A spool, settings and a worker for tests.
#pragma once

#include <string>
#include <vector>

#include "host/delivery/spool_control.h"
#include "host/delivery/submission_worker.h"
#include "tests/e2e/smtp/smtp_sink.h"
#include "tests/fakes/capturing_log.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace testing_host {

/// The time at which all messages of a SpoolBench are filed.
inline constexpr std::int64_t kFiled = 1'700'000'000;

/// Keeps what was told of attempts: "scan sent", "handoff refused".
class Attempts final : public host::delivery::SmtpObserver {
 public:
  void submitted(host::delivery::SmtpRoute route,
                 host::delivery::SmtpResult result) noexcept override {
    constexpr const char* kRoutes[] = {"scan", "plain", "handoff"};
    constexpr const char* kResults[] = {" sent", " deferred", " refused"};
    told.push_back(kRoutes[static_cast<int>(route)] +
                   std::string(kResults[static_cast<int>(result)]));
  }
  std::vector<std::string> told;
};

/// What a worker needs. Its settings send everything to one server.
class SpoolBench {
 public:
  explicit SpoolBench(const SmtpSink* sink = nullptr,
                      host::core::FileOps& ops = host::core::FileOps::system())
      : spool(ops) {
    settings.helloName = "gateway.example.org";
    settings.timeouts = {1000, 1000, 4000};
    if (sink != nullptr) settings.scan = settings.plain = sink->destination();
    EXPECT_EQ(spool.open(folder / "spool"), host::delivery::AdapterError::None);
  }

  std::string file(const char* kind = host::delivery::kDeliveredKind,
                   std::vector<std::string> recipients = {"a@example.com", "b@example.com"},
                   const std::string& bytes = "Subject: test\r\n\r\nbody\r\n") {
    PlainMessage message(bytes);
    message.setEnvelope("sender@example.org", std::move(recipients));
    host::delivery::SpoolEntry entry;
    entry.kind = kind;
    entry.queuedAt = kFiled;
    entry.window = host::delivery::kAnyTime;
    std::string id;
    EXPECT_EQ(spool.put(entry, message, id), host::delivery::AdapterError::None);
    return id;
  }

  host::delivery::SubmissionCounts runOnce(std::int64_t now) {
    return host::delivery::SubmissionWorker(spool, settings, keys, &log).runOnce(now);
  }

  /// \param now  when it is looked at
  host::delivery::SpoolItem show(const std::string& id, std::int64_t now = kFiled) {
    static std::int64_t present;
    present = now;
    host::delivery::SpoolItem item;
    std::vector<host::delivery::SpoolEvent> events;
    const host::delivery::SpoolControl control(spool, settings.retry, [] { return present; });
    EXPECT_EQ(control.show(id, item, events), host::delivery::AdapterError::None);
    return item;
  }

  std::size_t entries() {
    std::vector<std::string> ids;
    EXPECT_EQ(spool.list(ids), host::delivery::AdapterError::None);
    return ids.size();
  }

  TempFolder folder;
  host::delivery::Spool spool;
  host::delivery::DeliverySettings settings;
  host::delivery::SealKeys keys{folder / "reprocess.keys"};
  fakes::CapturingLog log;
};

}  // namespace testing_host
