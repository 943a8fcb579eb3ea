// What distinguishes a message as it stands from the one that was received, part by part.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host::message {
class Entity;
class Message;
}  // namespace host::message

namespace gateway::cli {

/// Wrapped: all that was received stands there unchanged, and something was put around it.
enum class ChangeKind { Added, Removed, Changed, Wrapped };

/// "added", "removed", "changed" or "wrapped".
const char* wordOf(ChangeKind kind);

struct FieldChange {
  ChangeKind kind = ChangeKind::Changed;
  std::string name;
};

/// A part that is not as it was. Parts that came or went with one around them have no entry.
struct PartChange {
  ChangeKind kind = ChangeKind::Changed;
  std::string path;  ///< "1" for the message's own header and body
  std::string name;  ///< declared file name; empty for none
  std::string type;
  std::vector<FieldChange> fields;  ///< of a changed part
  bool content = false;             ///< whether a changed part's content changed
  std::size_t bytesBefore = 0;      ///< of the content, decoded; 0 for what holds other parts
  std::size_t bytesAfter = 0;
};

/// The part of \p after in which the content of \p before stands whole, part by part as it was, as
/// signed content does that gets a text beside it; null when there is none.
const host::message::Entity* wrappedContent(const host::message::Message& before,
                                            const host::message::Message& after);

/// In the order of \p before, then what was added. Of content that was wrapped only what is around
/// it counts as changed. Linear in both messages.
std::vector<PartChange> changedParts(const host::message::Message& before,
                                     const host::message::Message& after);

/// Whether the two hold the same content, as transferred.
bool sameContent(const host::message::Entity& before, const host::message::Entity& after);

}  // namespace gateway::cli
