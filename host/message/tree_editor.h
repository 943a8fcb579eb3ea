// Edits of a message's tree.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/entity.h"
#include "host/message/transfer_encoding.h"

namespace host::message {

class Message;

/// A content to be put into an entity.
struct NewContent {
  std::string_view bytes;        ///< decoded
  const char* contentType;       ///< without parameters
  const char* charset;           ///< null for none
  const char* transferEncoding;  ///< null leaves the choice
};

/// Edits one message. Every operation either succeeds or leaves the tree as it was, and notes what
/// it changed. Codes are OVMSGERR's.
class TreeEditor {
 public:
  explicit TreeEditor(Message& message) : message_(message) {}

  int setContent(Entity& entity, const NewContent& content);
  /// \p content is UTF-8 and is converted.
  int insertText(Entity& entity, const NewContent& content);
  int insertCopy(Entity& entity, const Entity& source, int position);
  int attach(Entity& entity, const Message& message, int position);

  /// Removes \p entity and every entity around it that is left without a part; a root that is left
  /// without one gets an empty text. Roots themselves cannot be removed.
  int remove(Entity& entity);

 private:
  int encode(const Entity& place, const NewContent& content, std::string& body,
             TransferEncoding& encoding) const;
  void declareContent(Entity& entity, const std::string& contentType,
                      std::string_view transferEncoding);
  void setField(Entity& entity, std::string_view name, std::string_view value);
  /// Puts a multipart/mixed around \p entity, which keeps its content and the fields about it.
  Entity& wrap(Entity& entity);
  void splitFields(Entity& entity, Entity& wrapper, const std::string& boundary);
  void insertPart(Entity& multipart, Entity& part, int position);
  static std::unique_ptr<HeaderField> typeField(Entity& owner, const std::string& boundary,
                                                LineBreak lineBreak);
  static std::string closingLines(const std::string& boundary, const Entity& multipart);
  /// Gives new boundaries to \p multipart and those around it whose boundary occurs in \p part.
  void renewBoundariesIn(Entity& multipart, const Entity& part);
  void renewBoundary(Entity& multipart);
  Entity& copyTree(const Entity& source);
  Entity& copyNode(const Entity& source);
  void detach(Entity& entity);
  /// Gives the delimiter behind \p entity a line break of its own, where it stood right behind a
  /// line that now has something between.
  void ensureBreakBehind(Entity& entity);
  void giveBreak(Entity& owner, std::string_view& delimiter);

  Message& message_;
};

/// The boundaries of \p entity and of all multiparts around it.
std::set<std::string, std::less<>> boundariesAround(const Entity* entity);

/// A boundary that occurs nowhere else.
std::string newBoundary();
std::string delimiterLine(std::string_view boundary, LineBreak lineBreak);

/// Text of the boundary parameter in effect; empty when \p multipart has none.
std::string boundaryOf(const Entity& multipart);

}  // namespace host::message
