// Settings strings of every action and settings class. Input: one byte that chooses the class, then
// the text.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/x_header.h"
#include "library/framework/kavi_action_n.h"

namespace {

class OnNamedObjects : public KaviActionN {
 public:
  OnNamedObjects() : KaviActionN(Stamp, false) {}
};

template <class Action>
std::unique_ptr<KaviAction> make() {
  return std::make_unique<Action>();
}

constexpr std::unique_ptr<KaviAction> (*kMakers[])() = {
    make<ActDelete>,      make<uiDelete>,      make<ActVirusClean>,       make<uiVirusClean>,
    make<ActPostpone>,    make<uiPostpone>,    make<ActInsertXHeaderTag>, make<uiInsertXHeaderTag>,
    make<OnNamedObjects>, make<ActArchive>,    make<ActQuarantine>,       make<ActHandoff>,
    make<uiHandoff>,      make<ActReaddress>,  make<uiReaddress>,         make<ActBcc>,
    make<uiBcc>,          make<ActIBEEncrypt>, make<ActIBEReEncrypt>,     make<ActIBEDecrypt>,
    make<uiIBEEncrypt>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const auto maker = kMakers[data[0] % std::size(kMakers)];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

  const std::unique_ptr<KaviAction> action = maker();
  std::vector<unsigned int> ids;
  action->getNamedObjectIds(text, ids);
  if (!action->construct(text.c_str(), static_cast<unsigned int>(text.size()))) {
    return 0;
  }
  // What was accepted is written back in a form that is accepted, and stays as it is.
  const std::string written = action->serialize();
  const std::unique_ptr<KaviAction> again = maker();
  if (!again->construct(written.c_str(), static_cast<unsigned int>(written.size())) ||
      again->serialize() != written) {
    std::abort();
  }
  return 0;
}
