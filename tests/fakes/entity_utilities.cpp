// The message utilities that find and remove entities, on the fakes. What is done to an entity is
// written down at the top of its tree, what is asked about a message at the message.
#include <string>

#include "library/platform/msgu.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/message.h"

namespace {

// Writes down one call. Every message and every entity of the test program is a fake.
void note(fakes::Entity& entity, const char* call) {
  const fakes::Unswept unswept;
  entity.top()->calls().push_back(std::string(call) + " " + entity.label());
}

// Takes a part out of the tree, and the parts around it that it leaves empty.
bool remove(fakes::Entity& entity) {
  if (entity.facts().refusesRemoval || entity.parent() == nullptr) {
    return false;
  }
  fakes::Entity* const parent = entity.parent();
  entity.detach();
  return !parent->isEmpty() || parent->parent() == nullptr || remove(*parent);
}

}  // namespace

namespace msgu {

bool findContentType(OvMsgMailMessage* msg, const char* type, std::list<OvMsgEntity*>& found,
                     bool nested) {
  if (fakes::platformCallFails() || msg == nullptr) {
    return false;
  }
  fakes::MessageFacts& facts = static_cast<fakes::Message*>(msg)->facts();
  facts.calls.push_back(std::string("findContentType ") + type + (nested ? " nested" : ""));
  found.insert(found.end(), facts.ofLookedUpType.begin(), facts.ofLookedUpType.end());
  return facts.lookupAnswer;
}

bool existEntity(OvMsgMailMessage* msg, OvMsgEntity* entity) {
  if (fakes::platformCallFails() || msg == nullptr || entity == nullptr) {
    return false;
  }
  fakes::Entity* const root = static_cast<fakes::Message*>(msg)->root();
  return root != nullptr && root->holds(entity);
}

bool isBody(OvMsgMailMessage* msg, OvMsgEntity* entity) {
  return existEntity(msg, entity) && static_cast<fakes::Entity*>(entity)->facts().isBody;
}

bool removeEntityAndDummyParent(OvMsgEntity* entity, const char* reserved) {
  if (fakes::platformCallFails() || entity == nullptr || *reserved != '\0') {
    return false;
  }
  auto& fake = static_cast<fakes::Entity&>(*entity);
  note(fake, "remove");
  return remove(fake);
}

bool removeRootEntity(OvMsgEntity* entity, const char* charset) {
  if (fakes::platformCallFails() || entity == nullptr) {
    return false;
  }
  auto& fake = static_cast<fakes::Entity&>(*entity);
  note(fake, (std::string("removeRoot ") + charset).c_str());
  return !fake.facts().refusesRemoval;
}

}  // namespace msgu
