// Finds the structure of a message in one pass over its bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/message/entity.h"
#include "host/message/header_reader.h"
#include "host/message/structure.h"

namespace host::message {

class EntityArena;

/// Builds the tree of a message (RFC 5322, RFC 2045, RFC 2046). One instance per message. Time is
/// linear in the input, whatever the number of open multiparts; nothing recurses.
class Scanner {
 public:
  Scanner(Message& message, EntityArena& arena, const Limits& limits, std::vector<Defect>& defects);

  /// \param bytes  kept alive by the message.
  /// \return the root entity, null when the message has none.
  Entity* scan(std::string_view bytes);

 private:
  /// An entity that has children and whose end is not found yet.
  struct Frame {
    Entity* entity;
    std::string boundary = {};  ///< of a multipart
    std::size_t shadowed = 0;   ///< 1 + index of the frame around with the same boundary, 0: none
    bool isOpen = false;        ///< a multipart whose closing delimiter is not found yet
    bool isDigest = false;
  };
  /// A delimiter line of an open multipart.
  struct Delimiter {
    const char* contentEnd = nullptr;  ///< where what stands before it ends
    const char* lineBegin = nullptr;   ///< at the two dashes
    const char* next = nullptr;        ///< behind the line
    std::size_t frame = 0;
    bool isClose = false;
  };
  /// What the header of an entity says about its body.
  struct Declared {
    std::string_view contentType;              ///< raw value of the first Content-Type
    std::string_view transferEncoding;         ///< the same of Content-Transfer-Encoding
    std::optional<std::string> boundary = {};  ///< known once it was asked for
    bool knowsBoundary = false;
    bool hasContentType = false;
    bool hasTransferEncoding = false;
  };
  /// Randomly seeded, so that nobody can make boundaries that share a bucket.
  struct BoundaryHash {
    using is_transparent = void;
    std::size_t seed;
    std::size_t operator()(std::string_view text) const;
  };

  bool readEntity(Entity& entity, bool mayHaveMboxLine);
  bool readHeader(Entity& entity, bool mayHaveMboxLine, Declared& declared);
  static bool isOwnDelimiter(Declared& declared, std::string_view line);
  static void noteField(Declared& declared, const RawField& field);
  void enterBody(Entity& entity, const Declared& declared);
  bool mayDivide(const Entity& entity);
  void exhaustParts(const char* place);
  void openMultipart(Entity& entity, const std::string& contentType, bool isDigest);
  void startPart(const Delimiter& delimiter);
  void closeMultipart(const Delimiter& delimiter);
  void finishAbove(std::size_t frame, const char* end);
  void finishFrame(const char* end);
  void finishLeaf(const char* end);
  void forget(Frame& frame);
  bool findDelimiter(const char* from, Delimiter& found) const;
  bool matchDelimiter(const char* line, Delimiter& found) const;
  static void link(Entity& parent, Entity& child);
  void reportUnread(const Entity& entity);
  void report(DefectKind kind, const char* place, std::string text);

  Message& message_;
  EntityArena& arena_;
  const Limits& limits_;
  std::vector<Defect>& defects_;
  const char* begin_ = nullptr;
  const char* end_ = nullptr;
  const Entity* undivided_ = nullptr;  ///< the last multipart that is read as a leaf
  const char* position_ = nullptr;     ///< a line begin; every line before it is taken
  const char* floor_ = nullptr;        ///< no delimiter takes bytes from before it
  Entity* current_ = nullptr;          ///< a leaf whose end is not found yet
  Entity* nestedMessage_ = nullptr;    ///< a message/rfc822 whose root is to be read next
  std::vector<Frame> frames_;
  /// 1 + index of the innermost open frame with that boundary.
  std::unordered_map<std::string, std::size_t, BoundaryHash, std::equal_to<>> open_;
  std::size_t longestBoundary_ = 0;
  bool partsExhausted_ = false;
};

}  // namespace host::message
