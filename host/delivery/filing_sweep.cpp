#include "host/delivery/filing_sweep.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "host/core/atomic_file.h"
#include "host/core/text_escape.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/escaped_name.h"
#include "host/delivery/filing.h"
#include "host/delivery/filing_place.h"

namespace host::delivery {

namespace {

constexpr std::size_t kPageRows = 500;
constexpr std::size_t kQuarantineLevels = 2;
constexpr std::size_t kArchiveLevels = 32;  // more than a path has room for

std::string_view suffixOf(store::MessageKind kind) {
  return kind == store::MessageKind::Archived ? kArchiveSuffix : kQuarantineSuffix;
}

// The area that the folders stand for; false if they stand for none.
bool areaOf(const std::vector<std::string>& folders, std::string& area) {
  bool more = true;
  for (const std::string& folder : folders) {
    if (!more || !appendUnescaped(folder, area, more)) return false;
  }
  return !more;
}

// A link is none: what is filed stays in the folder.
bool isFolder(core::FileOps& ops, const core::Folder& parent, const std::string& name) {
  return core::Descriptor(ops, ops.openFolder(name, parent.descriptor())).isOpen();
}

}  // namespace

AdapterError FilingSweep::run(store::MessageKind kind, const std::string& directory,
                              SweepReport& report, std::string& fault) {
  return guardedOutcome([&] {
    if (directory.empty() || kind == store::MessageKind::Postponed) {
      return AdapterError::InvalidArgument;
    }
    kind_ = kind;
    report_ = &report;
    fault_ = &fault;
    report = {};
    root_ = absoluteFolder(directory);
    folder_ = core::Folder(ops_);
    const core::FileError error = folder_.open(root_.empty() ? "/" : root_, true);
    AdapterError outcome = adapterErrorOf(error);
    if (outcome == AdapterError::None) outcome = claim();
    if (outcome == AdapterError::None) outcome = removeRowsWithoutFile();
    if (outcome == AdapterError::None) outcome = walk();
    return outcome;
  });
}

AdapterError FilingSweep::note(const store::StoreStatus& status) {
  if (!status.ok()) *fault_ = status.text;
  return adapterErrorOf(status.error);
}

AdapterError FilingSweep::claim() {
  const core::Descriptor mark(ops_, ops_.openFile(folder_.descriptor(), kMark, O_RDONLY));
  if (mark.isOpen()) return AdapterError::None;
  if (mark.get() != -ENOENT) return adapterErrorOf(core::fileErrorOf(-mark.get()));
  std::vector<store::IndexPath> rows;
  const AdapterError outcome = note(index_.listPaths(root_ + "/", {}, 1, rows));
  if (outcome != AdapterError::None) return outcome;
  if (!rows.empty()) {
    *fault_ =
        "folder " + core::printable(root_) + " bears no mark, but the index has messages in " +
        "it; mount its disk, or, if it is the right one, make the empty file " + kMark + " in it";
    return AdapterError::NotOurFolder;
  }
  const core::Descriptor made(
      ops_, ops_.openFile(folder_.descriptor(), kMark, O_WRONLY | O_CREAT | O_EXCL));
  if (!made.isOpen() && made.get() != -EEXIST) {
    return adapterErrorOf(core::fileErrorOf(-made.get()));
  }
  return adapterErrorOf(folder_.sync());
}

AdapterError FilingSweep::removeRowsWithoutFile() {
  std::string after;
  core::Folder folder(ops_);
  std::string opened;
  while (true) {
    std::vector<store::IndexPath> rows;
    const AdapterError outcome = note(index_.listPaths(root_ + "/", after, kPageRows, rows));
    if (outcome != AdapterError::None) return outcome;
    for (const store::IndexPath& row : rows) {
      const AdapterError checked = checkRow(row, folder, opened);
      if (checked != AdapterError::None) return checked;
    }
    if (rows.size() < kPageRows) return AdapterError::None;
    after = rows.back().path;
  }
}

AdapterError FilingSweep::checkRow(const store::IndexPath& row, core::Folder& folder,
                                   std::string& opened) {
  const PathParts parts = splitPath(row.path);
  // Rows come in the order of their paths: those of one folder mostly follow each other.
  if (parts.folder != opened) {
    folder = core::Folder(ops_);
    const core::FileError error = folder.open(parts.folder, false);
    if (error != core::FileError::None && error != core::FileError::MissingFolder) {
      return adapterErrorOf(error);
    }
    opened = parts.folder;
  }
  if (folder.isOpen()) {
    const core::Descriptor file(ops_, ops_.openFile(folder.descriptor(), parts.name, O_RDONLY));
    if (file.isOpen()) return AdapterError::None;
    if (file.get() != -ENOENT) return adapterErrorOf(core::fileErrorOf(-file.get()));
  }
  const store::StoreStatus removed = index_.removeEntry(row.row);
  if (removed.error == store::StoreError::NotFound) return AdapterError::None;
  if (removed.ok()) ++report_->rowsRemoved;
  return note(removed);
}

AdapterError FilingSweep::walk() {
  const std::size_t levels =
      kind_ == store::MessageKind::Archived ? kArchiveLevels : kQuarantineLevels;
  std::vector<Place> waiting{{{}, root_}};
  while (!waiting.empty()) {
    const Place place = std::move(waiting.back());
    waiting.pop_back();
    core::Folder folder(ops_);
    const core::FileError error = folder.open(place.path.empty() ? "/" : place.path, false);
    // One that is gone by now needs no sweeping.
    if (error == core::FileError::MissingFolder) continue;
    if (error != core::FileError::None) return adapterErrorOf(error);
    std::vector<Place> below;
    const AdapterError outcome = sweepFolder(place, folder, below);
    if (outcome != AdapterError::None) return outcome;
    if (place.folders.size() >= levels) continue;
    for (Place& next : below) waiting.push_back(std::move(next));
  }
  return AdapterError::None;
}

AdapterError FilingSweep::sweepFolder(const Place& place, const core::Folder& folder,
                                      std::vector<Place>& below) {
  std::size_t removed = 0;
  core::FileError error = core::sweepTemporaries(folder, removed);
  if (error != core::FileError::None) return adapterErrorOf(error);
  report_->temporaries += removed;
  std::vector<std::string> names;
  error = folder.list(names);
  if (error != core::FileError::None) return adapterErrorOf(error);
  std::vector<std::string> files;
  for (std::string& name : names) {
    store::IndexEntry ignored;
    if (isOurs(place, name, ignored)) {
      files.push_back(std::move(name));
    } else if (name.front() != '.' && isFolder(ops_, folder, name)) {
      Place next{place.folders, place.path + "/" + name};
      next.folders.push_back(std::move(name));
      below.push_back(std::move(next));
    }
  }
  return files.empty() ? AdapterError::None : adoptUnknown(place, folder, files);
}

AdapterError FilingSweep::adoptUnknown(const Place& place, const core::Folder& folder,
                                       const std::vector<std::string>& files) {
  const std::string prefix = place.path + "/";
  std::vector<store::IndexPath> rows;
  std::size_t next = 0;
  std::string after;
  bool more = true;
  // Both are sorted by their bytes.
  for (const std::string& file : files) {
    const std::string path = prefix + file;
    while (next < rows.size() || more) {
      if (next == rows.size()) {
        const AdapterError outcome = note(index_.listPaths(prefix, after, kPageRows, rows));
        if (outcome != AdapterError::None) return outcome;
        next = 0;
        more = rows.size() == kPageRows;
        if (!rows.empty()) after = rows.back().path;
        continue;
      }
      if (rows[next].path >= path) break;
      ++next;
    }
    if (next < rows.size() && rows[next].path == path) continue;
    const AdapterError outcome = adopt(place, folder, file);
    if (outcome != AdapterError::None) return outcome;
  }
  return AdapterError::None;
}

AdapterError FilingSweep::adopt(const Place& place, const core::Folder& folder,
                                const std::string& name) {
  const core::Descriptor file(ops_, ops_.openFile(folder.descriptor(), name, O_RDONLY));
  if (file.get() == -ENOENT) return AdapterError::None;
  if (!file.isOpen()) return adapterErrorOf(core::fileErrorOf(-file.get()));
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return adapterErrorOf(core::fileErrorOf(errno));
  if (!S_ISREG(status.st_mode)) return AdapterError::None;
  if (std::time(nullptr) - status.st_mtime < kMinimumAgeSeconds) {
    ++report_->filesTooYoung;
    return AdapterError::None;
  }
  store::IndexEntry entry;
  if (!isOurs(place, name, entry)) return AdapterError::None;
  entry.kind = kind_;
  entry.size = static_cast<std::uint64_t>(status.st_size);
  entry.storedAt = status.st_mtime;
  entry.path = place.path + "/" + name;
  bool added = false;
  const AdapterError outcome = note(index_.addMissing(entry, added));
  if (added) ++report_->filesAdopted;
  return outcome;
}

bool FilingSweep::isOurs(const Place& place, const std::string& name,
                         store::IndexEntry& entry) const {
  if (core::isTemporaryName(name)) return false;
  if (!messageIdOf(name, suffixOf(kind_), entry.messageId)) return false;
  if (kind_ == store::MessageKind::Archived) {
    return areaOf(place.folders, entry.area) &&
           archivePlace(entry.area, entry.messageId).folders == place.folders;
  }
  return quarantinePlace(entry.messageId).folders == place.folders;
}

}  // namespace host::delivery
