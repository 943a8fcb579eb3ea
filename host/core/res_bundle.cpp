#include "library/platform/res_bundle.h"

#include <unicode/uloc.h>
#include <unicode/ures.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "host/core/guard.h"
#include "host/core/resource_path.h"

namespace {

using Texts = std::map<std::string, std::string, std::less<>>;

constexpr char kDefaultLanguage[] = "root";
constexpr int32_t kLocaleRoom = ULOC_FULLNAME_CAPACITY;

struct ResCloser {
  void operator()(UResourceBundle* bundle) const { ures_close(bundle); }
};
using ResHandle = std::unique_ptr<UResourceBundle, ResCloser>;

// Locale names become file names: nothing else may get there.
bool isLocaleName(const std::string& name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  });
}

// The locale and what it falls back to, the most general first: "root", "ja", "ja_JP". ICU's own
// fallback goes through the process's default locale, which is not the product's.
std::vector<std::string> fallbacks(const char* locale) {
  std::vector<std::string> chain;
  char name[kLocaleRoom] = "";
  char base[kLocaleRoom] = "";
  UErrorCode status = U_ZERO_ERROR;
  uloc_canonicalize(locale, name, kLocaleRoom, &status);
  const int32_t length = uloc_getBaseName(name, base, kLocaleRoom, &status);
  if (U_SUCCESS(status) && length < kLocaleRoom) {
    for (std::string step = base; isLocaleName(step);) {
      chain.push_back(step);
      char parent[kLocaleRoom] = "";
      status = U_ZERO_ERROR;
      uloc_getParent(step.c_str(), parent, kLocaleRoom, &status);
      if (U_FAILURE(status)) break;
      step = parent;
    }
  }
  chain.emplace_back(kDefaultLanguage);
  std::reverse(chain.begin(), chain.end());
  return chain;
}

// Puts the texts of one group of one language into `texts`, over those that are there.
bool readGroup(const char* folder, const std::string& language, const char* group, Texts& texts) {
  UErrorCode status = U_ZERO_ERROR;
  const ResHandle bundle(ures_openDirect(folder, language.c_str(), &status));
  const ResHandle table(ures_getByKey(bundle.get(), group, nullptr, &status));
  if (U_FAILURE(status) || ures_getType(table.get()) != URES_TABLE) return false;
  ResHandle item;
  while (ures_hasNext(table.get())) {
    status = U_ZERO_ERROR;
    item.reset(ures_getNextResource(table.get(), item.release(), &status));
    if (U_FAILURE(status)) return false;
    const char* key = ures_getKey(item.get());
    int32_t length = 0;
    const UChar* text = ures_getString(item.get(), &length, &status);
    if (U_FAILURE(status) || key == nullptr) continue;  // no text, a list or a number
    // A UTF-16 unit becomes at most three bytes.
    std::string utf8(static_cast<std::size_t>(length) * 3, '\0');
    int32_t written = 0;
    u_strToUTF8(utf8.data(), static_cast<int32_t>(utf8.size()), &written, text, length, &status);
    if (U_FAILURE(status)) continue;
    utf8.resize(static_cast<std::size_t>(written));
    texts.insert_or_assign(key, std::move(utf8));
  }
  return true;
}

// The process's bundles by group, in the product's locale.
struct Cache {
  std::mutex mutex;
  std::string locale;
  std::map<std::string, std::shared_ptr<const Kavi::OvResbundle>> bundles;
};

Cache& cache() {
  static Cache instance;
  return instance;
}

}  // namespace

namespace Kavi {

struct OvResbundle::Impl {
  Texts texts;
};

OvResbundle::OvResbundle() = default;
OvResbundle::~OvResbundle() = default;

bool OvResbundle::_init(const char* resourceFile, const char* group, const char* locale) {
  if (resourceFile == nullptr || group == nullptr) return false;
  return host::core::guarded(false, [&] {
    auto read = std::make_unique<Impl>();
    bool found = false;
    for (const std::string& language : fallbacks(locale != nullptr ? locale : "")) {
      found |= readGroup(resourceFile, language, group, read->texts);
    }
    if (found) impl_ = std::move(read);
    return found;
  });
}

bool OvResbundle::getString(const char* id, std::string& text) const {
  if (impl_ == nullptr || id == nullptr) return false;
  return host::core::guarded(false, [&] {
    const auto entry = impl_->texts.find(std::string_view(id));
    if (entry == impl_->texts.end()) return false;
    std::string copy = entry->second;
    text.swap(copy);
    return true;
  });
}

const char* OvResbundle::GetResourceFileName() {
  return host::core::guarded<const char*>("", [] {
    static const std::string kFolder = host::core::findResourceFolder();
    return kFolder.c_str();
  });
}

OvCachedResbundle::OvCachedResbundle(const char* group) {
  if (group == nullptr) return;
  host::core::guardedVoid([this, group] {
    Cache& shared = cache();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    const auto known = shared.bundles.find(group);
    if (known != shared.bundles.end()) {
      bundle_ = known->second;
      return;
    }
    auto opened = std::make_shared<OvResbundle>();
    // A group that is not there is kept too: asking again would read the files again.
    opened->_init(OvResbundle::GetResourceFileName(), group, shared.locale.c_str());
    shared.bundles.emplace(group, opened);
    bundle_ = std::move(opened);
  });
}

OvCachedResbundle::~OvCachedResbundle() = default;

bool OvCachedResbundle::getString(const char* id, std::string& text) const {
  return bundle_ != nullptr && bundle_->getString(id, text);
}

}  // namespace Kavi

void host::core::setProductLocale(const std::string& locale) {
  Cache& shared = cache();
  const std::lock_guard<std::mutex> lock(shared.mutex);
  shared.locale = locale;
  shared.bundles.clear();
}
