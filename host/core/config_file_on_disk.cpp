#include "library/platform/config_file_on_disk.h"

#include "host/core/guard.h"
#include "host/core/ini_document.h"

namespace Kavi {

struct ConfigFileOnDisk::Impl {
  host::core::IniDocument document;
};

ConfigFileOnDisk::ConfigFileOnDisk(const char* path) {
  if (path == nullptr) return;
  host::core::guardedVoid([this, path] {
    auto read = std::make_unique<Impl>();
    std::string error;
    if (read->document.load(path, error)) impl_ = std::move(read);
  });
}

ConfigFileOnDisk::~ConfigFileOnDisk() = default;

bool ConfigFileOnDisk::isLoaded() const { return impl_ != nullptr; }

bool ConfigFileOnDisk::getparam(const char* section, const char* key, std::string& value) const {
  if (impl_ == nullptr || section == nullptr || key == nullptr) return false;
  return host::core::guarded(false, [&] {
    const std::string* text = impl_->document.find(section, key);
    if (text == nullptr) return false;
    std::string copy = *text;
    value.swap(copy);
    return true;
  });
}

}  // namespace Kavi
