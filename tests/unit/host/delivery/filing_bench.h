// What the tests of filing have in common.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/core/atomic_file.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/local_adapter.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"
#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/failing_store.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace testing_host {

using Tokens = Kavi::TokenMap<Kavi::ScanToken>;

/// The time that a test says it is, seconds since 1970.
inline std::int64_t theTime = 0;
inline std::int64_t testClock() { return theTime; }

/// The answer of one adapter operation.
struct Answer {
  int result = 0;
  host::delivery::AdapterError error{};
  std::string path;

  bool ok() const { return result == 0 && error == host::delivery::AdapterError::None; }
};

inline Answer quarantine(OvIsAdapter& adapter, OvMsgMailMessage& message,
                         const std::string& folder) {
  char path[kQuarantinePathSize] = "before";
  unsigned int error = 99;
  const int result = adapter.quarantineMessage(error, &message, "", folder.c_str(), path);
  return {result, static_cast<host::delivery::AdapterError>(error), path};
}

inline Answer archive(OvIsAdapter& adapter, OvMsgMailMessage& message, const std::string& folder,
                      const std::string& area) {
  char name[kArchiveAreaNameSize] = {};
  area.copy(name, sizeof name - 1);
  unsigned int error = 99;
  const int result = adapter.archiveMessage(error, &message, "", folder.c_str(), name);
  return {result, static_cast<host::delivery::AdapterError>(error), {}};
}

/// Every file below \p folder, relative to it, sorted; "!" before what looks unfinished.
inline std::vector<std::string> filesBelow(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_directory()) continue;
    const bool unfinished = host::core::isTemporaryName(entry.path().filename().string());
    files.push_back((unfinished ? "!" : "") +
                    std::filesystem::relative(entry.path(), folder).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// A state with operations and a store that fail on demand, and a folder to file under.
struct FilingBench {
  FilingBench() {
    std::filesystem::create_directory(folder);
    if (state.open(temp / "state") != host::delivery::AdapterError::None) {
      throw std::runtime_error("state");
    }
    ops.failCall(0, 0);
    message.setEnvelope("a@example.org", {"b@example.org", "c@example.org"});
    message.setId("abc123");
  }

  std::vector<host::store::IndexEntry> rows() {
    std::vector<host::store::IndexEntry> entries;
    const auto status = store->memory().list({{}, {}, 0, 1000}, entries);
    if (!status.ok()) throw std::runtime_error(status.text);
    return entries;
  }

  TempFolder temp;
  std::string folder = temp / "q";
  FailingOps ops;
  std::shared_ptr<FailingStore> store = std::make_shared<FailingStore>();
  host::delivery::DeliveryState state{ops, store};
  PlainMessage message{"Subject: hello\r\n\r\nbody\r\n"};
};

/// An adapter on such a state.
class FilingTest : public ::testing::Test {
 protected:
  Answer quarantineIt() { return quarantine(adapter_, bench_.message, bench_.folder); }
  Answer archiveIt(const std::string& area = "Sales") {
    return archive(adapter_, bench_.message, bench_.folder, area);
  }

  FilingBench bench_;
  host::delivery::LocalAdapter adapter_{bench_.state};
};

}  // namespace testing_host
