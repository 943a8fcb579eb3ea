// Where a stored message lies below the folder that it is filed in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::delivery {

/// Folders and file name of a stored copy. Nothing in them can leave the folder they are in: what
/// comes from outside went through `escapedPieces`.
struct KAVI_API FilingPlace {
  std::vector<std::string> folders;  ///< from the outermost
  std::string stem;
  std::string_view suffix;

  /// The file's name; the first is "stem suffix", the second "stem~2 suffix": there may be several
  /// copies of one message.
  /// \param number  counted from 1
  std::string fileName(unsigned int number) const;

  /// The folders, each with "/" before it.
  std::string folderPath() const;
};

/// "a/b/abc.DF" for a message with the id "abc"; only the folders that a shorter id has characters
/// for. Only the first 36 characters of an id count.
KAVI_API FilingPlace quarantinePlace(std::string_view messageId);

/// "<area>/abc.eml".
KAVI_API FilingPlace archivePlace(std::string_view area, std::string_view messageId);

/// The message id in a file name that `fileName` made.
/// \param suffix  of the file names of the place
/// \return false, with \p messageId as it was, if it is none.
KAVI_API bool messageIdOf(std::string_view fileName, std::string_view suffix,
                          std::string& messageId);

inline constexpr std::string_view kQuarantineSuffix = ".DF";
inline constexpr std::string_view kArchiveSuffix = ".eml";

}  // namespace host::delivery
