#include "host/message/stamp_targets.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/header_field.h"
#include "host/message/message.h"

namespace host::message {

namespace {

constexpr std::size_t kMaxDepth = 64;

template <std::size_t N>
bool isOneOf(std::string_view type, const std::array<std::string_view, N>& types) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

/// What is shown, but holds together by a signature or an encryption.
bool isSealed(std::string_view type) {
  constexpr std::array<std::string_view, 4> kTypes{"multipart/signed", "multipart/encrypted",
                                                   "application/pkcs7-mime",
                                                   "application/x-pkcs7-mime"};
  return isOneOf(type, kTypes);
}

/// Multiparts whose parts are no body.
bool isClosed(std::string_view type) {
  constexpr std::array<std::string_view, 5> kTypes{"multipart/appledouble", "multipart/digest",
                                                   "multipart/header-set", "multipart/form-data",
                                                   "multipart/voice-message"};
  return isOneOf(type, kTypes);
}

bool isNamed(const Entity& entity) {
  if (!entity.fileNameText()) return false;
  // The root and the parts of an alternative are what is shown, whatever they are called.
  const Entity* around = entity.parent();
  return around != nullptr && around->contentType() != "multipart/alternative" &&
         around->contentType() != "multipart/related";
}

bool isText(const Entity& entity, std::string_view type) {
  return entity.kind() == OvMsgEntityKind::Leaf && (type == "text/plain" || type == "text/html") &&
         entity.disposition() != "attachment" && !isNamed(entity);
}

std::string contentId(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('<')) text.remove_prefix(1);
  if (text.ends_with('>')) text.remove_suffix(1);
  return std::string(text);
}

/// The part that a reader begins with (RFC 2387 section 3.2).
const Entity* rootOfRelated(const Entity& related) {
  if (const auto start = related.contentTypeParameter("start")) {
    const std::string wanted = contentId(*start);
    for (const Entity* part = related.firstChild(); part != nullptr; part = part->nextSibling()) {
      const HeaderField* id = part->field("content-id");
      if (id != nullptr && contentId(id->unfoldedValue()) == wanted) return part;
    }
  }
  const Entity* const first = related.firstChild();
  const std::string type = lowered(related.contentTypeParameter("type").value_or(""));
  if (type.empty() || first->contentType() == type) return first;
  // Some put the pictures first, and say what the root is.
  for (const Entity* part = first; part != nullptr; part = part->nextSibling()) {
    if (part->contentType() == type) return part;
  }
  return first;
}

/// The multipart that is being looked through.
class Frame {
 public:
  Frame(const Entity& multipart, std::string_view type, OvMsgInsertPlace place, std::size_t found)
      : foundBefore_(found), takesAll_(type == "multipart/alternative") {
    if (type == "multipart/related") {
      parts_.push_back(rootOfRelated(multipart));
    } else if (type == "multipart/report") {
      parts_.push_back(multipart.firstChild());  // what people read (RFC 6522 section 3)
    } else {
      for (const Entity* part = multipart.firstChild(); part != nullptr;
           part = part->nextSibling()) {
        parts_.push_back(part);
      }
      if (!takesAll_ && place == OvMsgInsertPlace::End) std::reverse(parts_.begin(), parts_.end());
    }
  }

  /// The next part to look into; null when there is none, or enough was found.
  const Entity* next(std::size_t found) {
    if (at_ == parts_.size() || (!takesAll_ && found > foundBefore_)) return nullptr;
    return parts_[at_++];
  }

 private:
  std::vector<const Entity*> parts_;
  std::size_t at_ = 0;
  std::size_t foundBefore_;
  bool takesAll_;
};

}  // namespace

std::vector<Entity*> stampTargets(Message& message, OvMsgInsertPlace place) {
  std::vector<Entity*> found;
  std::vector<Frame> frames;
  const Entity* entity = message.firstEntity();
  while (entity != nullptr) {
    const std::string type = entity->contentType();
    if (isText(*entity, type) || (isSealed(type) && entity->disposition() != "attachment")) {
      found.push_back(const_cast<Entity*>(entity));  // it is one of the message's own
    } else if (entity->kind() == OvMsgEntityKind::Multipart && entity->firstChild() != nullptr &&
               !isClosed(type) && entity->disposition() != "attachment" &&
               frames.size() < kMaxDepth) {
      frames.emplace_back(*entity, type, place, found.size());
    }
    entity = nullptr;
    while (entity == nullptr && !frames.empty()) {
      entity = frames.back().next(found.size());
      if (entity == nullptr) frames.pop_back();
    }
  }
  return found;
}

}  // namespace host::message
