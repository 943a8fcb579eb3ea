#include "gateway/cli/pipeline.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace gateway::cli {
namespace {

/// Messages in flight for each thread: enough that none waits for a slow neighbour.
constexpr std::size_t kAheadPerThread = 16;

class Pipeline {
 public:
  Pipeline(unsigned int jobs, const JobSettings& settings)
      : settings_(settings), window_(jobs * kAheadPerThread) {}

  /// Waits for a place. \return false when nobody wants more.
  bool put(InputMessage message) {
    std::unique_lock lock(mutex_);
    placeFree_.wait(lock, [this] { return abandoned_ || queued_ - consumed_ < window_; });
    if (abandoned_) return false;
    queue_.emplace_back(queued_++, std::move(message));
    inputReady_.notify_one();
    return true;
  }

  void close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    inputReady_.notify_all();
    resultReady_.notify_all();
  }

  /// Lets everybody go: no more results are wanted.
  void abandon() {
    const std::lock_guard lock(mutex_);
    drop();
  }

  /// The body of a thread. What it throws ends the run, and `take` passes it on.
  void work() {
    try {
      workOn();
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!fault_) fault_ = std::current_exception();
      drop();
      resultReady_.notify_all();
    }
  }

  std::optional<MessageResult> take() {
    std::unique_lock lock(mutex_);
    resultReady_.wait(lock, [this] {
      return fault_ || results_.count(consumed_) != 0 || (closed_ && consumed_ == queued_);
    });
    if (fault_) std::rethrow_exception(fault_);
    const auto entry = results_.find(consumed_);
    if (entry == results_.end()) return std::nullopt;
    MessageResult result = std::move(entry->second);
    results_.erase(entry);
    ++consumed_;
    placeFree_.notify_one();
    return result;
  }

 private:
  void drop() {
    abandoned_ = true;
    queue_.clear();
    placeFree_.notify_all();
  }

  void workOn() {
    for (;;) {
      std::unique_lock lock(mutex_);
      inputReady_.wait(lock, [this] { return closed_ || !queue_.empty(); });
      if (queue_.empty()) return;
      auto [index, input] = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      MessageResult result = runJob(std::move(input), settings_);
      lock.lock();
      results_.emplace(index, std::move(result));
      if (index == consumed_) resultReady_.notify_one();
    }
  }

  const JobSettings& settings_;
  const std::size_t window_;
  std::mutex mutex_;
  std::condition_variable placeFree_;
  std::condition_variable inputReady_;
  std::condition_variable resultReady_;
  std::deque<std::pair<std::size_t, InputMessage>> queue_;
  std::map<std::size_t, MessageResult> results_;
  std::size_t queued_ = 0;
  std::size_t consumed_ = 0;
  bool closed_ = false;
  bool abandoned_ = false;
  std::exception_ptr fault_;
};

/// \return whether the thread runs; false when the system has none left.
template <class Body>
bool start(std::vector<std::jthread>& threads, Body body) {
  try {
    threads.emplace_back(std::move(body));
    return true;
  } catch (const std::exception&) {  // no thread, or no memory for one
    return false;
  }
}

void runInline(const JobSettings& settings, const Producer& produce,
               const std::function<void(MessageResult)>& consume) {
  produce([&](InputMessage input) {
    consume(runJob(std::move(input), settings));
    return true;
  });
}

}  // namespace

void runMessages(unsigned int jobs, const JobSettings& settings, const Producer& produce,
                 const std::function<void(MessageResult)>& consume) {
  if (jobs <= 1) {
    runInline(settings, produce, consume);
    return;
  }
  Pipeline pipeline(jobs, settings);
  std::exception_ptr fault;
  std::vector<std::jthread> threads;
  threads.reserve(jobs + 1);
  while (threads.size() < jobs && start(threads, [&pipeline] { pipeline.work(); })) {
  }
  const bool started = !threads.empty() && start(threads, [&pipeline, &produce, &fault] {
    try {
      produce([&pipeline](InputMessage input) { return pipeline.put(std::move(input)); });
    } catch (...) {
      fault = std::current_exception();
    }
    pipeline.close();
  });
  if (!started) {
    pipeline.close();
    threads.clear();
    runInline(settings, produce, consume);
    return;
  }
  try {
    while (std::optional<MessageResult> result = pipeline.take()) consume(std::move(*result));
  } catch (...) {
    pipeline.abandon();
    throw;
  }
  threads.clear();
  if (fault) std::rethrow_exception(fault);
}

}  // namespace gateway::cli
