// Localised texts in memory, behind Kavi::OvResbundle.
#pragma once

#include <string>
#include <vector>

namespace fakes {

/// The one set of texts of the test program. Each test starts by clearing it.
class Resources {
 public:
  static Resources& instance();

  void clear();
  /// Makes `_init` find \p group in \p locale, with \p text under \p id.
  void set(const std::string& group, const std::string& locale, const std::string& id,
           const std::string& text);
  /// What bundles were asked, in order: "init file group locale", "get id", "destroy".
  const std::vector<std::string>& calls() const;
  void record(const std::string& call);
  const std::string* find(const std::string& group, const std::string& locale,
                          const std::string& id) const;

 private:
  struct Entry {
    std::string group, locale, id, text;
  };
  std::vector<Entry> entries_;
  std::vector<std::string> calls_;
};

}  // namespace fakes
