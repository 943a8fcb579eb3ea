// Edits of a message's tree.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/edit_plan.h"
#include "host/message/entity.h"
#include "host/message/transfer_encoding.h"

namespace host::message {

class HeaderField;
class Message;

/// A content to be put into an entity.
struct NewContent {
  std::string_view bytes;        ///< decoded
  const char* contentType;       ///< without parameters
  const char* charset;           ///< null for none
  const char* transferEncoding;  ///< null leaves the choice
};

/// A body as it is transferred, and what declares it.
struct NewBody {
  std::string bytes;
  TransferEncoding encoding;
  std::string charset = {};  ///< empty leaves the declaration alone
};

/// A text part that is to be made.
struct NewTextPart {
  std::string_view text;  ///< UTF-8
  std::string charset;
  const char* attachmentName;  ///< null for a part that is shown
};

using Boundaries = std::set<std::string, std::less<>>;

/// Edits one message. Every operation either succeeds or leaves the tree as it was, also when it
/// throws, and notes what it changed. Codes are OVMSGERR's.
class TreeEditor {
 public:
  explicit TreeEditor(Message& message) : message_(message) {}

  int setContent(Entity& entity, const NewContent& content);
  /// \p content is in its charset or, when it names none, in the one that \p entity declares, or
  /// else in UTF-8; bytes that are no text in it become "?".
  int insertText(Entity& entity, const NewContent& content);
  int insertCopy(Entity& entity, const Entity& source, int position);
  int attach(Entity& entity, const Message& message, int position);

  /// Removes \p entity and every entity around it that is left without a part; a root that is left
  /// without one gets an empty text. Roots themselves cannot be removed.
  int remove(Entity& entity);

  // One edit of several places: planned one by one, then committed. Nothing changes before, and a
  // plan that is not committed never happened.

  /// Plans another body for a leaf, under its other fields.
  void planBody(Entity& entity, NewBody body);
  /// Plans a text part in front of \p entity or behind it: among its neighbours in a
  /// multipart/mixed, else in a new one around both. Of one multipart/mixed only one child may be
  /// asked for in a plan.
  int planTextBeside(Entity& entity, const NewTextPart& text, bool isBefore);
  /// Plans a text part as the first or the last one of \p multipart.
  int planTextInside(Entity& multipart, const NewTextPart& text, bool isFirst);
  void commit();

 private:
  int makeTextPart(const Entity& place, const NewTextPart& text, Entity*& part);
  void planAttached(Entity& part);
  int planContent(Entity& entity, const NewContent& content);
  void planDeclaration(Entity& entity, const NewContent& content, TransferEncoding encoding);
  void planField(Entity& entity, std::string_view name, std::string_view value);

  /// \p part is not in the tree yet. An entity that is no multipart becomes one.
  void insert(Entity& entity, Entity& part, int position);
  void planInsertion(Entity& multipart, Entity& part, int position);
  void planWrapping(Entity& entity, Entity& part, bool partIsFirst);
  void planFieldSplit(Entity& entity, Entity& wrapper, const Entity& part,
                      const std::string& boundary);
  /// Declares the encoding of \p part for \p place and all around it, where that lets more through.
  void planEncodingAround(Entity& place, const Entity& part);
  /// Gives new boundaries to \p place and those around it of which \p part holds a delimiter.
  /// \return the boundary that \p place will have.
  std::string planBoundaries(Entity& place, const Entity& part);
  std::string planNewBoundary(Entity& multipart);
  void planBreakBehind(const Entity& entity);
  void planBreak(Entity& owner, std::string_view& delimiter);

  Entity& copyTree(const Entity& source);
  Entity& copyNode(const Entity& source);
  static std::string closingLines(const std::string& boundary, LineBreak lineBreak,
                                  const Entity* parent);
  std::unique_ptr<HeaderField> newField(Entity& owner, std::string_view name,
                                        std::string_view value, LineBreak lineBreak) const;
  void note(Change::Kind kind, const Entity& entity, const Entity& place);

  static void link(Entity& parent, Entity* previous, Entity& part, Entity* next);
  static void detach(Entity& entity);

  Message& message_;
  EditPlan plan_;
};

/// The boundaries of \p entity and of all multiparts around it.
Boundaries boundariesAround(const Entity* entity);
/// Those of \p boundaries of which \p part, written out, holds a delimiter line.
Boundaries boundariesIn(const Entity& part, const Boundaries& boundaries);
bool holdsDelimiter(std::string_view bytes, const Boundaries& boundaries);

/// The boundary of \p multipart; empty when it declares none.
std::string boundaryOf(const Entity& multipart);
/// A boundary that occurs nowhere else.
std::string newBoundary();
std::string delimiterLine(std::string_view boundary, LineBreak lineBreak);

}  // namespace host::message
