// Localised texts by group and id.
#pragma once

#include <memory>
#include <string>

#include "library/platform/api.h"

namespace Kavi {

/// Localised texts of one group. Built empty, then initialised once; lookups may then run on
/// several threads.
class KAVI_API OvResbundle {
 public:
  OvResbundle();
  ~OvResbundle();
  OvResbundle(const OvResbundle&) = delete;
  OvResbundle& operator=(const OvResbundle&) = delete;

  /// Opens \p group of \p resourceFile for \p locale ("ja", "en_US"; empty for the default
  /// language). A locale without texts of its own falls back to its language, then to the default.
  /// \return whether the group was found; lookups in a bundle that was not find nothing.
  bool _init(const char* resourceFile, const char* group, const char* locale);

  /// \param text  receives the text in UTF-8; left as it was when there is none under \p id.
  /// \return true when found.
  bool getString(const char* id, std::string& text) const;

  /// The resource file of this process: the name handed to `_init`. Valid for the process's life.
  static const char* GetResourceFileName();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Texts of one group in the product's configured locale, opened once per process and kept.
class KAVI_API OvCachedResbundle {
 public:
  /// \param group  the group's name, copied. Never fails; an unknown group finds nothing.
  explicit OvCachedResbundle(const char* group);
  ~OvCachedResbundle();
  OvCachedResbundle(const OvCachedResbundle&) = delete;
  OvCachedResbundle& operator=(const OvCachedResbundle&) = delete;

  /// As `OvResbundle::getString`.
  bool getString(const char* id, std::string& text) const;

 private:
  std::shared_ptr<const OvResbundle> bundle_;
};

}  // namespace Kavi
