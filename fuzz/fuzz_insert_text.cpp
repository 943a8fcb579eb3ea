// Any text put into any message, at either place, in any charset.
//
// Input: one byte of options, three texts that end in NUL (the text, the source charset, the
// destination charset), and the message.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "host/message/message.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"

namespace {

using fuzz::require;

using host::message::Buffer;
using host::message::Change;
using host::message::Entity;
using host::message::Message;

constexpr std::size_t kLongestLine = 998;

std::string takeText(std::string_view& input) {
  const std::size_t end = std::min(input.find('\0'), input.size());
  std::string text(input.substr(0, end));
  input.remove_prefix(std::min(end + 1, input.size()));
  return text;
}

/// The content of every leaf of a message.
std::map<const Entity*, std::string_view> bodiesOf(Message& message) {
  std::map<const Entity*, std::string_view> bodies;
  for (Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    if (entity->kind() == OvMsgEntityKind::Leaf) bodies[entity] = entity->body();
  }
  return bodies;
}

/// Whether a line of \p body is too long; of what the insertion did not write nobody says so.
bool hasLongLine(std::string_view body) {
  while (!body.empty()) {
    const std::size_t lf = std::min(body.find('\n'), body.size());
    std::string_view line = body.substr(0, lf);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.size() > kLongestLine) return true;
    body.remove_prefix(std::min(lf + 1, body.size()));
  }
  return false;
}

void checkParts(Message& message, const std::map<const Entity*, std::string_view>& before) {
  std::size_t touched = 0;
  for (Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    if (entity->kind() != OvMsgEntityKind::Leaf) continue;
    const auto old = before.find(entity);
    if (old != before.end() && old->second.data() == entity->body().data()) {
      require(old->second.size() == entity->body().size(), "a body that was cut");
      continue;
    }
    ++touched;
    require(!hasLongLine(entity->body()), "a line that is too long");
  }
  for (const auto& [entity, body] : before) {
    require(message.contains(entity), "a part that is gone");
  }
  require(touched > 0, "nothing changed");
  require(touched <= message.changes().size(), "a change that was not noted");
}

void checkAgain(const Message& message, const std::string& written) {
  const auto again = Message::parse(Buffer::copyOf(written));
  require(again->firstEntity() != nullptr, "a result without a root");
  require(again->entityCount() >= message.entityCount(), "a result that hides parts");
  require(again->toString() == written, "a result that reads as something else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto options = static_cast<unsigned>(input.front());
  input.remove_prefix(1);
  const std::string text = takeText(input);
  const std::string source = takeText(input);
  const std::string destination = takeText(input);

  OvMsg_SetDisclaimerAttachmentAsDefault((options & 2) != 0 ? 1 : 0);
  const auto message = Message::parse(Buffer::copyOf(input));
  const auto before = bodiesOf(*message);
  const auto length = static_cast<unsigned>(text.size());
  OvMsgResourceLocator* resource =
      OvMsg_CreateResourceLocator(text.data(), kOvMsgMemoryResource, length, length, 1);
  const int code = message->insertText(
      (options & 1) != 0 ? OvMsgInsertPlace::Top : OvMsgInsertPlace::End, resource, 20,
      source.empty() ? "utf-8" : source.c_str(), destination.c_str());
  OvMsg_DeleteResourceLocator(resource);

  const std::string written = message->toString();
  if (code != OVMSGERR::Ok || text.empty()) {
    require(written == input, "a failure that changed the message");
    require(!message->changed(), "a failure that counts as a change");
    return 0;
  }
  checkParts(*message, before);
  checkAgain(*message, written);
  return 0;
}
