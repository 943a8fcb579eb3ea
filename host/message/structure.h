// What the scanner is told and what it reports: limits and defects.
#pragma once

#include <cstddef>
#include <string>

namespace host::message {

/// Bounds on the structure that the scanner takes apart. What lies beyond a bound stays in the
/// message as content that is not divided further, and is reported as a defect: nothing is hidden.
/// The defaults lie far above any mail that a person or a program sends, and keep the tree of the
/// worst message within a few hundred megabytes.
struct Limits {
  std::size_t maxDepth = 65536;            ///< entities inside each other, the root counted
  std::size_t maxParts = 4u << 20;         ///< entities of a message
  std::size_t maxHeaderFields = 1u << 17;  ///< fields of one header; the rest is one nameless field
};

enum class DefectKind : int {
  NoHeader = 1,         ///< the message has no header: it has no root entity
  NamelessHeaderLine,   ///< a header line that is no field
  MissingBlankLine,     ///< a body that no blank line divides from its header
  MissingBoundary,      ///< a multipart without boundary parameter: read as a leaf
  MissingParts,         ///< a multipart whose boundary never appears: read as a leaf
  UnclosedMultipart,    ///< no closing delimiter
  BareCr,               ///< a CR in a header that ends no line; some readers end one there
  EncodedMultipart,     ///< a multipart under base64 or quoted-printable; read as it stands
  EncodedMessage,       ///< a nested message under base64 or quoted-printable; not taken apart
  TooDeep,              ///< beyond Limits::maxDepth
  TooManyParts,         ///< beyond Limits::maxParts
  TooManyHeaderFields,  ///< beyond Limits::maxHeaderFields
  TooManyDefects,       ///< more defects than are listed
  UnreadParts,          ///< a multipart read as a leaf, with lines that may be delimiters
};

/// One thing in a received message that its format does not allow or that lies beyond a limit.
struct Defect {
  DefectKind kind;
  std::size_t offset;  ///< into the received bytes
  std::string text;    ///< for a log line, in English
};

/// One edit of a message.
struct Change {
  enum class Kind : int {
    HeaderAdded = 1,
    HeaderChanged,
    HeaderRemoved,
    PartAdded,
    PartChanged,
    PartRemoved,
  };
  Kind kind;
  std::string what;        ///< the field's name; of a part its file name, else its content type
  std::string entityPath;  ///< place of the entity, as Entity::path
};

}  // namespace host::message
