#include "tests/fakes/resources.h"

#include <utility>

#include "library/platform/res_bundle.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

Resources& Resources::instance() {
  static Resources resources;
  return resources;
}

void Resources::clear() {
  // Gives the memory back, too: sweeps count what is left.
  std::vector<Entry>().swap(entries_);
  std::vector<std::string>().swap(calls_);
}

void Resources::set(const std::string& group, const std::string& locale, const std::string& id,
                    const std::string& text) {
  entries_.push_back({group, locale, id, text});
}

const std::vector<std::string>& Resources::calls() const { return calls_; }

void Resources::record(const std::string& call) { calls_.push_back(call); }

const std::string* Resources::find(const std::string& group, const std::string& locale,
                                   const std::string& id) const {
  for (const Entry& entry : entries_) {
    if (entry.group == group && entry.locale == locale && entry.id == id) {
      return &entry.text;
    }
  }
  return nullptr;
}

}  // namespace fakes

namespace Kavi {

struct OvResbundle::Impl {
  std::string group;
  std::string locale;
};

OvResbundle::OvResbundle() : impl_(std::make_unique<Impl>()) {}

OvResbundle::~OvResbundle() {
  const fakes::Unswept unswept;
  fakes::Resources::instance().record("destroy");
}

bool OvResbundle::_init(const char* resourceFile, const char* group, const char* locale) {
  const bool fails = fakes::platformCallFails();
  {
    const fakes::Unswept unswept;
    fakes::Resources::instance().record(std::string("init ") + resourceFile + " " + group + " '" +
                                        locale + "'");
  }
  if (fails) {
    return false;
  }
  impl_->group = group;
  impl_->locale = locale;
  return true;
}

bool OvResbundle::getString(const char* id, std::string& text) const {
  const bool fails = fakes::platformCallFails();
  const std::string* found = nullptr;
  {
    const fakes::Unswept unswept;
    fakes::Resources::instance().record(std::string("get ") + id);
    found = fakes::Resources::instance().find(impl_->group, impl_->locale, id);
  }
  if (fails || found == nullptr) {
    return false;
  }
  text = *found;
  return true;
}

const char* OvResbundle::GetResourceFileName() {
  fakes::platformCallFails();  // has no failure result: may only throw
  return "texts";
}

OvCachedResbundle::OvCachedResbundle(const char* group) {
  fakes::platformCallFails();  // has no failure result: may only throw
  auto bundle = std::make_shared<OvResbundle>();
  bundle->_init("texts", group, "cached");
  bundle_ = std::move(bundle);
}

OvCachedResbundle::~OvCachedResbundle() = default;

bool OvCachedResbundle::getString(const char* id, std::string& text) const {
  return bundle_->getString(id, text);
}

}  // namespace Kavi
