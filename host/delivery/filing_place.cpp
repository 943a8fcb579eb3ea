#include "host/delivery/filing_place.h"

#include <algorithm>

#include "host/delivery/escaped_name.h"

namespace host::delivery {

namespace {

constexpr std::size_t kMaxIdBytes = 36;
constexpr std::size_t kLevels = 2;
constexpr char kNumberMark = '~';  // in no escaped name

std::string stemOf(std::string_view id) { return id.empty() ? std::string() : escapedName(id); }

}  // namespace

std::string FilingPlace::fileName(unsigned int number) const {
  std::string name = stem;
  if (number > 1) name += kNumberMark + std::to_string(number);
  return name.append(suffix);
}

std::string FilingPlace::folderPath() const {
  std::string path;
  for (const std::string& folder : folders) path += "/" + folder;
  return path;
}

FilingPlace quarantinePlace(std::string_view messageId) {
  const std::string_view id = messageId.substr(0, kMaxIdBytes);
  FilingPlace place{{}, stemOf(id), kQuarantineSuffix};
  for (std::size_t level = 0; level < std::min(kLevels, id.size()); ++level) {
    place.folders.push_back(escapedName(id.substr(level, 1)));
  }
  return place;
}

FilingPlace archivePlace(std::string_view area, std::string_view messageId) {
  return {escapedPieces(area), stemOf(messageId.substr(0, kMaxIdBytes)), kArchiveSuffix};
}

bool messageIdOf(std::string_view fileName, std::string_view suffix, std::string& messageId) {
  if (!fileName.ends_with(suffix)) return false;
  std::string_view stem = fileName.substr(0, fileName.size() - suffix.size());
  const std::size_t mark = stem.find(kNumberMark);
  if (mark != std::string_view::npos) {
    const std::string_view number = stem.substr(mark + 1);
    const bool digits =
        std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (number.empty() || !digits) return false;
    stem = stem.substr(0, mark);
  }
  std::string id;
  bool more = false;
  if (!stem.empty() && (!appendUnescaped(stem, id, more) || more)) return false;
  messageId.swap(id);
  return true;
}

}  // namespace host::delivery
