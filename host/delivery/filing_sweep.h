// Bringing a folder of stored messages and the index in line at the start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/core/file_ops.h"
#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/store/message_index.h"

namespace host::delivery {

struct SweepReport {
  std::size_t temporaries = 0;    ///< unfinished files of crashed writers, removed
  std::size_t rowsRemoved = 0;    ///< rows whose file was gone
  std::size_t filesAdopted = 0;   ///< files without a row that got one
  std::size_t filesTooYoung = 0;  ///< files without a row that somebody may just be filing
};

/// What a crash, or somebody's hand, left out of line:
///
/// - An unfinished file of a writer that is gone is removed.
/// - A row without its file is removed: there is no message any more. (A removal that was killed
///   behind the file leaves such a row.)
/// - A file without a row gets one: rather a copy too many than a mail lost. (Filing that was
///   killed behind the file leaves such a file, and so does an index that was lost.) Kind, area and
///   message id come from its place and name, size and time from the file; sender, recipients,
///   subject, rule and aging are not known. A young one is left for the next time: a sender that
///   tries again meets its key in the ledger, and the file is removed before another is made.
///
/// Every folder that was swept bears a mark, the file ".kavi-folder". One without it, while the
/// index has rows for it, is most likely the place where a disk was not mounted: nothing is touched
/// then, and the answer is NotOurFolder.
///
/// May run while messages are filed under the folder. Gateways that share an index must share the
/// folders that they file under as well.
class KAVI_API FilingSweep {
 public:
  static constexpr char kMark[] = ".kavi-folder";
  /// Longer than senders wait between two attempts.
  static constexpr std::int64_t kMinimumAgeSeconds = std::int64_t{3} * 60 * 60;

  FilingSweep(store::MessageIndex& index, core::FileOps& ops) : index_(index), ops_(ops) {}

  /// Opens \p directory, made with mode 0700 when it is missing, and sweeps it. A failure ends the
  /// sweep where it is; what was done stays done.
  /// \param kind   Quarantined or Archived: what is filed there
  /// \param fault  receives the words of a failure that has more to say than its code
  AdapterError run(store::MessageKind kind, const std::string& directory, SweepReport& report,
                   std::string& fault);

 private:
  struct Place {
    std::vector<std::string> folders;  ///< below the swept one
    std::string path;
  };

  AdapterError claim();
  AdapterError removeRowsWithoutFile();
  AdapterError checkRow(const store::IndexPath& row, core::Folder& folder, std::string& opened);
  AdapterError walk();
  AdapterError sweepFolder(const Place& place, const core::Folder& folder,
                           std::vector<Place>& below);
  AdapterError adoptUnknown(const Place& place, const core::Folder& folder,
                            const std::vector<std::string>& files);
  AdapterError adopt(const Place& place, const core::Folder& folder, const std::string& name);
  bool isOurs(const Place& place, const std::string& name, store::IndexEntry& entry) const;
  AdapterError note(const store::StoreStatus& status);

  store::MessageIndex& index_;
  core::FileOps& ops_;
  store::MessageKind kind_ = store::MessageKind::Quarantined;
  std::string root_;
  core::Folder folder_;
  SweepReport* report_ = nullptr;
  std::string* fault_ = nullptr;
};

}  // namespace host::delivery
