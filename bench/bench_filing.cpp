// Durable quarantine, beside the least that any durable file costs on the same disk: a new file
// written, flushed, renamed, and its folder flushed.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "host/delivery/local_adapter.h"
#include "host/message/message.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::DeliveryState;
using host::delivery::FinalAnswer;
using host::delivery::LocalAdapter;
using host::message::Buffer;
using host::message::Message;

const std::string& sample() {
  static const std::string bytes = "Subject: bench\r\n\r\n" + std::string(10'000 - 18, 'x');
  return bytes;
}

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

void leastDurableFile(benchmark::State& state) {
  const testing_host::TempFolder temp;
  const int folder = ::open(temp.path().c_str(), O_RDONLY | O_DIRECTORY);
  require(folder >= 0, "open");
  int number = 0;
  for (auto _ : state) {
    const std::string name = std::to_string(++number);
    const int file = ::openat(folder, "new", O_WRONLY | O_CREAT | O_EXCL, 0600);
    const auto size = static_cast<ssize_t>(sample().size());
    require(file >= 0 && ::write(file, sample().data(), sample().size()) == size, "write");
    require(::fsync(file) == 0 && ::close(file) == 0, "fsync");
    require(::renameat(folder, "new", folder, name.c_str()) == 0 && ::fsync(folder) == 0, "rename");
  }
  ::close(folder);
  state.SetItemsProcessed(state.iterations());
}

void quarantine(benchmark::State& state, bool tracked) {
  const testing_host::TempFolder temp;
  DeliveryState delivery;
  require(delivery.open(temp / "state") == AdapterError::None, "state");
  host::delivery::SweepReport report;
  std::string fault;
  require(delivery.prepareFiling(host::store::MessageKind::Quarantined, temp / "q", report,
                                 fault) == AdapterError::None,
          "folder");
  const Kavi::TokenMap<Kavi::ScanToken> tokens;
  const auto buffer = Buffer::copyOf(sample());
  for (auto _ : state) {
    state.PauseTiming();
    const auto message = Message::parse(buffer);
    message->setEnvelope({"a@example.org", {"b@example.org"}, {}});
    state.ResumeTiming();
    LocalAdapter adapter(delivery);
    if (tracked) {
      require(adapter.beginMessage(*message, sample(), tokens) == AdapterError::None, "begin");
      require(adapter.beginAction(1, 0, "7") == AdapterError::None, "begin");
    }
    unsigned int error = 0;
    char path[kQuarantinePathSize];
    require(adapter.quarantineMessage(error, message.get(), "", (temp / "q").c_str(), path) == 0,
            "quarantine");
    if (tracked) adapter.finalAnswer(FinalAnswer::Accepted);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(leastDurableFile)->UseRealTime();
BENCHMARK_CAPTURE(quarantine, once_each, false)->UseRealTime();
BENCHMARK_CAPTURE(quarantine, known_to_retries, true)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
