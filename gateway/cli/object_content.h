// The name and the settings string of a named object, from what a command line says of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gateway/policy/named_objects.h"

namespace gateway::cli {

/// One of the ways to say what an object holds.
struct ContentOptions {
  std::vector<std::string> fields;  ///< "KEY=VALUE", keys of a policy; "KEY=" for the usual value
  std::string entryFile;            ///< an entry as in a policy; "-" for standard input
  std::optional<std::string> setting;  ///< the settings string itself
  std::string settingFile;             ///< a file that holds that, to the last byte

  bool isEmpty() const {
    return fields.empty() && entryFile.empty() && !setting && settingFile.empty();
  }
};

/// What a command is to store.
struct ObjectTexts {
  std::string name;
  std::string setting;
};

/// Makes the texts of an object of kind \p kind.
/// \param present  what it has so far; null for a new one. Fields that are not given stay.
/// \param wanted  in: the name that the command gives, or none; out: the texts. A record that
///   repeats its object's name gets a new one, too.
/// \return false after a complaint for everything that is wrong, also when the record refuses the
///   settings string. Texts that are missing are left empty.
bool makeContent(const policy::ObjectKind& kind, const ContentOptions& options,
                 const ObjectTexts* present, ObjectTexts& wanted);

}  // namespace gateway::cli
