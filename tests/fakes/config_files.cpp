#include "tests/fakes/config_files.h"

#include "library/platform/config_file_on_disk.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

ConfigFiles& ConfigFiles::instance() {
  static ConfigFiles files;
  return files;
}

const ConfigFiles::File* ConfigFiles::find(const std::string& path) const {
  const auto file = files_.find(path);
  return file == files_.end() ? nullptr : &file->second;
}

}  // namespace fakes

namespace Kavi {

struct ConfigFileOnDisk::Impl {
  fakes::ConfigFiles::File file;
};

ConfigFileOnDisk::ConfigFileOnDisk(const char* path) {
  if (fakes::platformCallFails()) {
    return;
  }
  const fakes::Unswept unswept;
  if (const auto* file = fakes::ConfigFiles::instance().find(path)) {
    impl_ = std::make_unique<Impl>(Impl{*file});
  }
}

ConfigFileOnDisk::~ConfigFileOnDisk() = default;

bool ConfigFileOnDisk::isLoaded() const { return !fakes::platformCallFails() && impl_ != nullptr; }

bool ConfigFileOnDisk::getparam(const char* section, const char* key, std::string& value) const {
  if (fakes::platformCallFails()) {
    return false;
  }
  const fakes::Unswept unswept;
  const auto found = impl_->file.find(std::string(section) + "/" + key);
  if (found == impl_->file.end()) {
    return false;
  }
  value = found->second;
  return true;
}

}  // namespace Kavi
