#include "library/actions/disposition/archive.h"

#include <string_view>

#include "library/framework/guard.h"
#include "library/platform/archive_area.h"
#include "library/platform/global_setting.h"
#include "library/platform/is_adapter.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;

void passOnArea(unsigned int id, const ArchiveArea& area, Kavi::TokenMap<ScanToken>& tokens) {
  tokens.set(ScanToken::ArchiveAgingDays,
             area.agingEnabled ? std::to_string(area.agingDays) : std::string());
  tokens.set(ScanToken::ArchiveAreaId, std::to_string(id));
  tokens.set(ScanToken::ArchiveAreaName, area.areaName);
}

}  // namespace

std::string ActArchive::s_archivePath;

ActArchive::ActArchive() : KaviActionN(Archive, true) {}

bool ActArchive::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActArchive::init", false, [&] {
    return settings.getString("queue_archive", s_archivePath, "general", 0) == 0;
  });
}

KaviAction::ActionType ActArchive::getType() const { return Archive; }

bool ActArchive::requiresOriginalMsg() { return true; }

bool ActArchive::hasNamedObjects() { return true; }

bool ActArchive::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                            bool& /*flag*/, Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                            const NamedObjMgrForScanner& namedObjects) {
  return library::guarded("ActArchive::takeAction", false, [&] {
    if (ids.empty()) {
      return false;
    }
    const KaviNamedObj* record = namedObjects.find(ids.front());
    if (record == nullptr) {
      ActionUtils::L1("Invalid name object type reference. id=%u", ids.front());
      return false;
    }
    if (record->getType() != KaviNamedObj::ArchiveAreaType) {
      ActionUtils::L1("Incorrect name object type reference. type=%u", record->getType());
      return false;
    }
    const auto& area = *static_cast<const ArchiveArea*>(record);
    passOnArea(ids.front(), area, tokens);

    char name[kArchiveAreaNameSize] = {};
    std::string_view(area.areaName.c_str()).copy(name, sizeof name - 1);
    unsigned int error = 0;
    if (adapter.archiveMessage(error, msg, "", s_archivePath.c_str(), name) != 0) {
      ActionUtils::L1("Failed to archive the message. err=0x%08X(%ud), path='%s'", error, error,
                      s_archivePath.c_str());
      return false;
    }
    return true;
  });
}
