#include "host/delivery/recording_adapter.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "host/core/atomic_file.h"
#include "host/core/folder.h"
#include "host/core/json_object.h"
#include "host/core/line_file.h"
#include "host/core/unique_id.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/envelope.h"
#include "host/delivery/file_name.h"
#include "host/delivery/message_file.h"
#include "host/delivery/time_window.h"

namespace host::delivery {

namespace {

constexpr char kCallsFile[] = "calls.jsonl";
constexpr unsigned int kNumberedNames = 50;
constexpr int kMaxPort = 65535;

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

// What is written down of a call before it is tried.
core::JsonObject callHead(const char* operation, const OvMsgMailMessage* msg,
                          const RecordedInput& input, const core::JsonObject& arguments) {
  core::JsonObject head;
  head.text("operation", operation);
  head.textOrNull("message_id", msg != nullptr ? msg->id() : nullptr);
  head.text("input", input.path);
  if (input.number != 0) head.number("message", static_cast<std::int64_t>(input.number));
  if (msg != nullptr) {
    head.object("envelope", toJson(readEnvelope(*msg)));
  } else {
    head.null("envelope");
  }
  return head.object("arguments", arguments);
}

// The out folder while one call runs.
class Recorder {
 public:
  Recorder(core::FileOps& ops, const std::string& outPath)
      : outPath_(outPath), out_(ops), folder_(ops) {}

  // Stores the message under `folder` and writes the call down. `file` receives the name relative
  // to the out folder, `path` (when given) the whole one.
  AdapterError store(const OvMsgMailMessage& msg, const char* folder, const std::string& wanted,
                     const core::JsonObject& head, std::string& file, char* path) {
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
    outcome = stored.commit(writer, wanted);
    if (outcome != AdapterError::None) return outcome;

    file = std::string(folder) + "/" + stored.name();
    const std::string whole = outPath_ + "/" + file;
    if (path != nullptr && whole.size() >= kQuarantinePathSize) return AdapterError::PathTooLong;
    outcome = writeDown(head, file.c_str(), AdapterError::None);
    if (outcome != AdapterError::None) return outcome;
    stored.keep();
    if (path != nullptr) std::memcpy(path, whole.c_str(), whole.size() + 1);
    return AdapterError::None;
  }

  AdapterError writeDown(core::JsonObject line, const char* file, AdapterError outcome) {
    const core::FileError opened = openOut();
    if (opened != core::FileError::None) return adapterErrorOf(opened);
    line.textOrNull("file", file)
        .number("result", outcome == AdapterError::None ? 0 : 1)
        .number("error", static_cast<std::int64_t>(outcome));
    return adapterErrorOf(
        core::appendLine(out_, kCallsFile, line.line(), core::Durability::Buffered));
  }

 private:
  core::FileError openOut() {
    return out_.isOpen() ? core::FileError::None : out_.open(outPath_, true);
  }

  const std::string& outPath_;
  core::Folder out_;
  core::Folder folder_;
};

}  // namespace

RecordingAdapter::RecordingAdapter(std::string outFolder, RecordedInput input, core::FileOps& ops)
    : outFolder_(std::move(outFolder)), input_(std::move(input)), ops_(ops) {}

RecordingAdapter::RecordingAdapter(std::string outFolder, const std::string& inputName,
                                   core::FileOps& ops)
    : RecordingAdapter(std::move(outFolder), RecordedInput{inputName, inputName}, ops) {}

// One call: what it is called and where its message goes.
struct RecordingAdapter::Request {
  const char* operation;
  const char* folder;
  OvMsgMailMessage* msg;
  bool valid = true;     // false when another argument than the message is unusable
  char* path = nullptr;  // receives the stored file's path, kQuarantinePathSize bytes
};

// `describe` adds the call's further arguments to a JSON object.
template <class Describe>
int RecordingAdapter::run(unsigned int& error, const Request& request, Describe describe) {
  const AdapterError outcome = guardedOutcome([&] {
    // Made first, so that nothing can fail once the file and its line are there.
    RecordedCall call{request.operation, {}, 0};
    calls_.reserve(calls_.size() + 1);
    core::JsonObject arguments;
    describe(arguments);
    const core::JsonObject head = callHead(request.operation, request.msg, input_, arguments);
    Recorder recorder(ops_, outFolder_);
    AdapterError stored = AdapterError::InvalidArgument;
    if (request.msg != nullptr && request.valid) {
      stored = guardedOutcome([&] {
        return recorder.store(*request.msg, request.folder, safeFileName(input_.name), head,
                              call.file, request.path);
      });
    }
    if (stored != AdapterError::None) {
      call.file.clear();
      recorder.writeDown(head, nullptr, stored);
    }
    call.error = static_cast<unsigned int>(stored);
    calls_.push_back(std::move(call));
    return stored;
  });
  return finish(error, outcome);
}

int RecordingAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return run(error, {"delete", "deleted", msg}, [](core::JsonObject&) {});
}

int RecordingAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg,
                                      unsigned char fromHour, unsigned char fromMinute,
                                      unsigned char toHour, unsigned char toMinute) {
  const TimeWindow window{fromHour, fromMinute, toHour, toMinute};
  return run(error, {"postpone", "postponed", msg, window.isValid()},
             [&](core::JsonObject& arguments) {
               arguments.text("from", window.fromText()).text("to", window.toText());
             });
}

int RecordingAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                                     int port) {
  const bool valid = host != nullptr && *host != '\0' && port > 0 && port <= kMaxPort;
  return run(error, {"handoff", "handoff", msg, valid}, [&](core::JsonObject& arguments) {
    arguments.textOrNull("host", host).number("port", port);
  });
}

int RecordingAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg,
                                        const char* /*reserved*/, const char* directory,
                                        char (&path)[kQuarantinePathSize]) {
  path[0] = '\0';
  return run(error, {"quarantine", "quarantine", msg, directory != nullptr, path},
             [&](core::JsonObject& arguments) { arguments.textOrNull("directory", directory); });
}

int RecordingAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg,
                                     const char* /*reserved*/, const char* directory,
                                     const char (&area)[kArchiveAreaNameSize]) {
  const bool valid = directory != nullptr && std::memchr(area, '\0', sizeof area) != nullptr;
  return run(error, {"archive", "archive", msg, valid}, [&](core::JsonObject& arguments) {
    arguments.textOrNull("directory", directory).textOrNull("area", valid ? area : nullptr);
  });
}

int RecordingAdapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) {
  return run(error, {"resend", "resend", msg},
             [&](core::JsonObject& arguments) { arguments.number("flag", flag); });
}

int RecordingAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return run(error, {"deliver", "delivered", msg}, [](core::JsonObject&) {});
}

}  // namespace host::delivery
