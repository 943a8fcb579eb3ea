#include "host/delivery/spool.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/core/atomic_file.h"
#include "host/core/unique_id.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/message_file.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

namespace {

constexpr std::string_view kSuffix = ".msg";

std::string fileNameOf(const std::string& id) { return id + std::string(kSuffix); }

// Ids become file names: only what `put` makes is one.
bool isId(std::string_view id) {
  return !id.empty() && std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
  });
}

AdapterError missingIsNotFound(core::FileError error) {
  return error == core::FileError::MissingFolder ? AdapterError::NotFound : adapterErrorOf(error);
}

}  // namespace

AdapterError Spool::open(const std::string& path) {
  return guardedOutcome([&] {
    core::FileError error = folder_.open(path, true);
    std::size_t removed = 0;
    if (error == core::FileError::None) error = core::sweepTemporaries(folder_, removed);
    return adapterErrorOf(error);
  });
}

AdapterError Spool::put(SpoolEntry entry, const OvMsgMailMessage& msg, std::string& id) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    std::string newId = core::makeUniqueId();
    const AdapterError outcome = store(entry, msg, fileNameOf(newId));
    if (outcome == AdapterError::None) id.swap(newId);
    return outcome;
  });
}

AdapterError Spool::store(SpoolEntry& entry, const OvMsgMailMessage& msg, const std::string& name) {
  const char* messageId = msg.id();
  entry.messageId = messageId != nullptr ? messageId : "";
  entry.messageBytes = msg.renderedSize();
  entry.envelope = readEnvelope(msg);
  if (!entry.window.isValid()) return AdapterError::InvalidArgument;
  const std::string head = writeSpoolHead(entry);
  // What could not be read again must not be written.
  if (head.size() > kMaxSpoolHeadBytes || entry.messageBytes > kMaxEntryBytes - head.size()) {
    return AdapterError::InvalidArgument;
  }
  core::AtomicFile file(folder_, core::Durability::Flushed);
  core::FileError error = file.create();
  if (error == core::FileError::None) error = file.write(head.data(), head.size());
  if (error != core::FileError::None) return adapterErrorOf(error);
  std::size_t written = 0;
  const AdapterError outcome = writeMessage(msg, file, written);
  if (outcome != AdapterError::None) return outcome;
  if (written != entry.messageBytes) return AdapterError::MessageUnreadable;
  return adapterErrorOf(file.commit(name));
}

AdapterError Spool::list(std::vector<std::string>& ids) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    std::vector<std::string> names;
    const core::FileError error = folder_.list(names);
    if (error != core::FileError::None) return adapterErrorOf(error);
    std::vector<std::string> found;
    for (const std::string& name : names) {
      const std::string_view stem =
          std::string_view(name).substr(0, name.size() - std::min(name.size(), kSuffix.size()));
      if (isId(stem) && fileNameOf(std::string(stem)) == name) found.emplace_back(stem);
    }
    ids.swap(found);
    return AdapterError::None;
  });
}

AdapterError Spool::read(const std::string& id, SpoolEntry& entry, std::string& message) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    std::string file;
    const core::FileError error = folder_.read(fileNameOf(id), kMaxEntryBytes, file);
    if (error != core::FileError::None) return missingIsNotFound(error);
    SpoolEntry found;
    std::string_view body;
    if (!parseSpoolFile(file, found, body)) return AdapterError::Damaged;
    file.erase(0, file.size() - body.size());
    entry = std::move(found);
    message.swap(file);
    return AdapterError::None;
  });
}

AdapterError Spool::remove(const std::string& id) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    return missingIsNotFound(folder_.remove(fileNameOf(id)));
  });
}

}  // namespace host::delivery
