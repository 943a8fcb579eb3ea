// Settings files in memory, behind Kavi::ConfigFileOnDisk.
#pragma once

#include <map>
#include <string>

namespace fakes {

/// One for the test program. Each test starts by clearing it.
class ConfigFiles {
 public:
  using File = std::map<std::string, std::string>;  ///< "section/key" to value

  static ConfigFiles& instance();

  void clear() { files_.clear(); }
  void set(const std::string& path, File file) { files_[path] = std::move(file); }
  const File* find(const std::string& path) const;

 private:
  std::map<std::string, File> files_;
};

}  // namespace fakes
