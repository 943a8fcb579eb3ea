#include "host/delivery/recording_adapter.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/core/atomic_file.h"
#include "host/core/folder.h"
#include "host/core/line_file.h"
#include "host/core/text_escape.h"
#include "host/core/unique_id.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/envelope.h"
#include "host/delivery/file_name.h"
#include "host/delivery/message_file.h"
#include "host/delivery/time_window.h"

namespace host::delivery {

using nlohmann::ordered_json;

namespace {

constexpr char kCallsFile[] = "calls.jsonl";
constexpr unsigned int kNumberedNames = 50;
constexpr int kMaxPort = 65535;

ordered_json textOrNull(const char* text) {
  return text != nullptr ? ordered_json(core::printable(text)) : ordered_json(nullptr);
}

// A message file under its final name, removed again unless it is kept.
class StoredFile {
 public:
  explicit StoredFile(const core::Folder& folder) : folder_(folder) {}
  ~StoredFile() {
    if (stored_) folder_.ops().unlink(folder_.descriptor(), name_);
  }
  StoredFile(const StoredFile&) = delete;
  StoredFile& operator=(const StoredFile&) = delete;

  // Tries the input's own name, then numbered ones, then one that nobody else has.
  AdapterError commit(core::AtomicFile& file, const std::string& wanted) {
    for (unsigned int number = 1; number <= kNumberedNames + 1; ++number) {
      name_ = number == 1 ? wanted : numberedFileName(wanted, number);
      if (number > kNumberedNames) name_ = core::makeUniqueId() + "-" + wanted;
      const core::FileError error = file.commit(name_);
      stored_ = error == core::FileError::None;
      if (error != core::FileError::Exists) return adapterErrorOf(error);
    }
    return AdapterError::NameTaken;
  }

  const std::string& name() const { return name_; }
  void keep() { stored_ = false; }

 private:
  const core::Folder& folder_;
  std::string name_;
  bool stored_ = false;
};

}  // namespace

namespace {

// The state of one call while it runs.
class Recorder {
 public:
  Recorder(core::FileOps& ops, const std::string& outPath, const std::string& inputName)
      : outPath_(outPath), inputName_(inputName), out_(ops), folder_(ops) {}

  // Stores the message and its line. `file` receives the name relative to the out folder.
  AdapterError store(const char* folder, const OvMsgMailMessage& msg, ordered_json& line,
                     char* path, std::string& file) {
    core::FileError error = openOut();
    if (error == core::FileError::None) error = folder_.openIn(out_, folder);
    if (error != core::FileError::None) return adapterErrorOf(error);
    core::AtomicFile writer(folder_, core::Durability::Buffered);
    error = writer.create();
    if (error != core::FileError::None) return adapterErrorOf(error);
    std::size_t bytes = 0;
    AdapterError outcome = writeMessage(msg, writer, bytes);
    if (outcome != AdapterError::None) return outcome;
    StoredFile stored(folder_);
    outcome = stored.commit(writer, safeFileName(inputName_));
    if (outcome != AdapterError::None) return outcome;

    file = std::string(folder) + "/" + stored.name();
    const std::string whole = outPath_ + "/" + file;
    if (path != nullptr && whole.size() >= kQuarantinePathSize) return AdapterError::PathTooLong;
    line["file"] = core::printable(file);
    outcome = append(line, AdapterError::None);
    if (outcome != AdapterError::None) return outcome;
    stored.keep();
    if (path != nullptr) std::memcpy(path, whole.c_str(), whole.size() + 1);
    return AdapterError::None;
  }

  AdapterError append(ordered_json& line, AdapterError outcome) {
    const core::FileError opened = openOut();
    if (opened != core::FileError::None) return adapterErrorOf(opened);
    line["result"] = outcome == AdapterError::None ? 0 : 1;
    line["error"] = static_cast<unsigned int>(outcome);
    return adapterErrorOf(
        core::appendLine(out_, kCallsFile, line.dump(), core::Durability::Buffered));
  }

 private:
  core::FileError openOut() {
    return out_.isOpen() ? core::FileError::None : out_.open(outPath_, true);
  }

  const std::string& outPath_;
  const std::string& inputName_;
  core::Folder out_;
  core::Folder folder_;
};

ordered_json callLine(const char* operation, const OvMsgMailMessage* msg,
                      const std::string& inputName, const ordered_json& arguments) {
  ordered_json line;
  line["operation"] = operation;
  line["message_id"] = msg != nullptr ? textOrNull(msg->id()) : ordered_json(nullptr);
  line["input"] = core::printable(inputName);
  line["envelope"] = msg != nullptr ? toJson(readEnvelope(*msg)) : ordered_json(nullptr);
  line["arguments"] = arguments;
  line["file"] = nullptr;
  return line;
}

}  // namespace

RecordingAdapter::RecordingAdapter(std::string outFolder, std::string inputName, core::FileOps& ops)
    : outFolder_(std::move(outFolder)), inputName_(std::move(inputName)), ops_(ops) {}

// One call: what it is called and where its message goes.
struct RecordingAdapter::Request {
  const char* operation;
  const char* folder;
  OvMsgMailMessage* msg;
  bool valid = true;     // false when another argument than the message is unusable
  char* path = nullptr;  // receives the stored file's path, kQuarantinePathSize bytes
};

// `arguments` makes the call's further arguments as JSON.
template <class Arguments>
int RecordingAdapter::run(unsigned int& error, const Request& request, Arguments arguments) {
  const AdapterError outcome = guardedOutcome([&] {
    // Made first, so that nothing can fail once the file and its line are there.
    RecordedCall call{request.operation, {}, 0};
    calls_.reserve(calls_.size() + 1);
    ordered_json line = callLine(request.operation, request.msg, inputName_, arguments());
    Recorder recorder(ops_, outFolder_, inputName_);
    AdapterError stored = AdapterError::InvalidArgument;
    if (request.msg != nullptr && request.valid) {
      stored = guardedOutcome([&] {
        return recorder.store(request.folder, *request.msg, line, request.path, call.file);
      });
    }
    if (stored != AdapterError::None) {
      call.file.clear();
      line["file"] = nullptr;
      recorder.append(line, stored);
    }
    call.error = static_cast<unsigned int>(stored);
    calls_.push_back(std::move(call));
    return stored;
  });
  return finish(error, outcome);
}

int RecordingAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return run(error, {"delete", "deleted", msg}, [] { return ordered_json::object(); });
}

int RecordingAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg,
                                      unsigned char fromHour, unsigned char fromMinute,
                                      unsigned char toHour, unsigned char toMinute) {
  const TimeWindow window{fromHour, fromMinute, toHour, toMinute};
  return run(error, {"postpone", "postponed", msg, window.isValid()}, [&] {
    return ordered_json{{"from", window.fromText()}, {"to", window.toText()}};
  });
}

int RecordingAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                                     int port) {
  const bool valid = host != nullptr && *host != '\0' && port > 0 && port <= kMaxPort;
  return run(error, {"handoff", "handoff", msg, valid}, [&] {
    return ordered_json{{"host", textOrNull(host)}, {"port", port}};
  });
}

int RecordingAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg,
                                        const char* /*reserved*/, const char* directory,
                                        char (&path)[kQuarantinePathSize]) {
  path[0] = '\0';
  return run(error, {"quarantine", "quarantine", msg, directory != nullptr, path}, [&] {
    return ordered_json{{"directory", textOrNull(directory)}};
  });
}

int RecordingAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg,
                                     const char* /*reserved*/, const char* directory,
                                     const char (&area)[kArchiveAreaNameSize]) {
  const bool valid = directory != nullptr && std::memchr(area, '\0', sizeof area) != nullptr;
  return run(error, {"archive", "archive", msg, valid}, [&] {
    return ordered_json{{"directory", textOrNull(directory)},
                        {"area", valid ? textOrNull(area) : ordered_json(nullptr)}};
  });
}

int RecordingAdapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) {
  return run(error, {"resend", "resend", msg}, [&] { return ordered_json{{"flag", flag}}; });
}

int RecordingAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return run(error, {"deliver", "delivered", msg}, [] { return ordered_json::object(); });
}

}  // namespace host::delivery
