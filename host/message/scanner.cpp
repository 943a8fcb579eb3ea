#include "host/message/scanner.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "host/message/ascii.h"
#include "host/message/entity_arena.h"
#include "host/message/header_reader.h"
#include "host/message/mime_values.h"
#include "host/message/transfer_encoding.h"

namespace host::message {

namespace {

constexpr std::size_t kMaxDefects = 1000;

std::string_view slice(const char* begin, const char* end) {
  return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

std::size_t processSeed() {
  static const std::size_t seed =
      (static_cast<std::size_t>(std::random_device{}()) << 32) ^ std::random_device{}();
  return seed;
}

/// Of the value of a Content-Type field of a multipart; white space at its end is none of it.
/// An empty boundary is one, with "--" for its delimiter: other readers see parts there.
std::optional<std::string> boundaryIn(std::string_view contentType) {
  if (!mime::contentType(contentType).starts_with("multipart/")) return std::nullopt;
  auto boundary = mime::contentTypeParameter(contentType, "boundary");
  while (boundary && !boundary->empty() && isSpace(boundary->back())) boundary->pop_back();
  return boundary;
}

/// Whether a line may be a delimiter of some boundary. That of a signature ("-- ") is none.
bool mayHaveDelimiters(std::string_view body) {
  for (std::size_t at = 0; at + 2 < body.size();) {
    if (body.substr(at, 2) == "--" && !isSpace(body[at + 2])) return true;
    at = std::min(body.find('\n', at), body.size()) + 1;
  }
  return false;
}

bool isReadMessageType(std::string_view type) {
  return type == "message/rfc822" || type == "message/global" || type == "message/news";
}

}  // namespace

std::size_t Scanner::BoundaryHash::operator()(std::string_view text) const {
  std::uint64_t hash = seed ^ text.size();
  for (std::size_t at = 0; at < text.size(); at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, std::min<std::size_t>(8, text.size() - at));
    hash = (hash ^ word ^ (seed >> 7)) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 29;
  }
  return hash;
}

Scanner::Scanner(Message& message, EntityArena& arena, const Limits& limits,
                 std::vector<Defect>& defects)
    : message_(message),
      arena_(arena),
      limits_(limits),
      defects_(defects),
      open_(0, BoundaryHash{processSeed()}) {}

Entity* Scanner::scan(std::string_view bytes) {
  begin_ = position_ = floor_ = bytes.data();
  end_ = begin_ + bytes.size();
  Entity& root = arena_.make(message_);
  if (!readEntity(root, true)) {
    report(DefectKind::NoHeader, begin_, "the message has no header");
    root.detached_ = true;
    return nullptr;
  }
  Delimiter delimiter;
  while (!partsExhausted_ && findDelimiter(position_, delimiter)) {
    finishAbove(delimiter.frame, delimiter.contentEnd);
    position_ = delimiter.next;
    if (delimiter.isClose) {
      closeMultipart(delimiter);
    } else {
      startPart(delimiter);
    }
  }
  if (current_ != nullptr) finishLeaf(end_);
  while (!frames_.empty()) finishFrame(end_);
  return &root;
}

// A nested message begins with the header of its root at once; a loop, as they may be nested deep.
bool Scanner::readEntity(Entity& entity, bool mayHaveMboxLine) {
  Declared declared;
  const bool hasHeader = readHeader(entity, mayHaveMboxLine, declared);
  if (!hasHeader && frames_.empty()) return false;
  enterBody(entity, declared);
  while (nestedMessage_ != nullptr) {
    Entity& outer = *nestedMessage_;
    nestedMessage_ = nullptr;
    outer.kind_ = OvMsgEntityKind::Message;
    frames_.push_back(Frame{&outer});
    current_ = nullptr;
    Entity& inner = arena_.make(message_);
    link(outer, inner);
    Declared innerDeclared;
    readHeader(inner, true, innerDeclared);
    enterBody(inner, innerDeclared);
  }
  return true;
}

// Where a blank line ends the lines that may be a header, all of them are header, also lines
// among them that are no fields. Where none does, the body begins with the first line behind the
// last field. Lines without any field are no header at all.
bool Scanner::readHeader(Entity& entity, bool mayHaveMboxLine, Declared& declared) {
  const char* p = position_;
  if (mayHaveMboxLine) {
    const std::size_t mboxLine = mboxLineLength(p, end_);
    entity.lead_ = std::string_view(p, mboxLine);
    p += mboxLine;
  }
  const char* const first = p;
  const char* behindLastField = first;
  const char* firstNameless = nullptr;
  std::size_t count = 0;
  std::size_t blankLine = 0;
  Delimiter ignored;
  while (p < end_) {
    blankLine = blankLineLength(p, end_);
    if (blankLine != 0) break;
    if (*p == '-' && matchDelimiter(p, ignored)) break;
    const RawField field = readField(p, end_);
    if (field.nameLength == 0 && isOwnDelimiter(declared, field.bytes)) {
      firstNameless = p;
      break;
    }
    p += field.bytes.size();
    if (field.nameLength == 0) {
      if (firstNameless == nullptr) firstNameless = field.bytes.data();
      continue;
    }
    behindLastField = p;
    if (++count <= limits_.maxHeaderFields) noteField(declared, field);
  }
  if (count == 0 && p != first) blankLine = 0;  // lines, and none of them a field
  const char* const fieldsEnd = count > 0 && blankLine > 0 ? p : behindLastField;
  const char* const bodyBegin = fieldsEnd + blankLine;
  entity.fields_ = slice(first, fieldsEnd);
  entity.blankLineLength_ = static_cast<std::uint32_t>(blankLine);
  entity.body_ = slice(bodyBegin, bodyBegin);
  entity.tail_ = entity.body_;
  floor_ = bodyBegin;
  position_ = std::max(p, bodyBegin);

  if (hasBareCr(entity.fields_)) {
    report(DefectKind::BareCr, first, "a header holds a CR that is no line break");
  }
  if (firstNameless != nullptr && firstNameless < fieldsEnd) {
    report(DefectKind::NamelessHeaderLine, firstNameless, "a header line is no field");
  }
  if (blankLine == 0 && firstNameless != nullptr) {
    report(DefectKind::MissingBlankLine, fieldsEnd, "no blank line between header and body");
  }
  if (count > limits_.maxHeaderFields) {
    report(DefectKind::TooManyHeaderFields, first, "a header has too many fields");
  }
  return count > 0 || blankLine > 0;
}

// The delimiter line of the multipart whose header is being read: the blank line is missing.
// Without this the first part would vanish in the header.
bool Scanner::isOwnDelimiter(Declared& declared, std::string_view line) {
  if (!line.starts_with("--") || !declared.hasContentType) return false;
  if (!declared.knowsBoundary) {
    declared.boundary = boundaryIn(mime::unfolded(declared.contentType));
    declared.knowsBoundary = true;
  }
  line = line.substr(2, line.find('\n') - 2);
  while (!line.empty() && isSpace(line.back())) line.remove_suffix(1);
  return declared.boundary && line == *declared.boundary;
}

void Scanner::noteField(Declared& declared, const RawField& field) {
  const std::string_view name = field.bytes.substr(0, field.nameLength);
  if (!declared.hasContentType && equalsIgnoreCase(name, "content-type")) {
    declared.hasContentType = true;
    declared.contentType = field.bytes.substr(field.valueOffset);
  } else if (!declared.hasTransferEncoding && equalsIgnoreCase(name, "content-transfer-encoding")) {
    declared.hasTransferEncoding = true;
    declared.transferEncoding = field.bytes.substr(field.valueOffset);
  }
}

void Scanner::enterBody(Entity& entity, const Declared& declared) {
  current_ = &entity;
  std::string type;
  std::string value;
  if (declared.hasContentType) {
    value = mime::unfolded(declared.contentType);
    type = mime::contentType(value);
  } else if (entity.defaultIsMessage_) {
    type = "message/rfc822";
  }
  const bool identity = !declared.hasTransferEncoding ||
                        isIdentity(transferEncodingOf(mime::unfolded(declared.transferEncoding)));
  if (type.starts_with("multipart/")) {
    if (!identity) {
      report(DefectKind::EncodedMultipart, entity.fields_.data(), "a multipart is encoded");
    }
    openMultipart(entity, value, type == "multipart/digest");
  } else if (type == "message/partial") {
    entity.kind_ = OvMsgEntityKind::OpaqueMessage;
  } else if (isReadMessageType(type)) {
    entity.kind_ = OvMsgEntityKind::OpaqueMessage;
    if (!identity) {
      report(DefectKind::EncodedMessage, entity.fields_.data(),
             "a nested message is encoded: what it holds is not looked at");
    } else if (mayDivide(entity)) {
      nestedMessage_ = &entity;
    }
  }
}

bool Scanner::mayDivide(const Entity& entity) {
  if (frames_.size() + 2 > limits_.maxDepth) {
    report(DefectKind::TooDeep, entity.fields_.data(), "parts are nested too deep");
    return false;
  }
  if (arena_.size() < limits_.maxParts) return true;
  exhaustParts(entity.fields_.data());
  return false;
}

void Scanner::exhaustParts(const char* place) {
  if (!partsExhausted_) report(DefectKind::TooManyParts, place, "the message has too many parts");
  partsExhausted_ = true;
}

void Scanner::openMultipart(Entity& entity, const std::string& contentType, bool isDigest) {
  std::optional<std::string> boundary = boundaryIn(contentType);
  if (!boundary) {
    report(DefectKind::MissingBoundary, entity.fields_.data(), "a multipart has no boundary");
    undivided_ = &entity;
    return;
  }
  if (!mayDivide(entity)) return;
  entity.kind_ = OvMsgEntityKind::Multipart;
  longestBoundary_ = std::max(longestBoundary_, boundary->size());
  std::size_t& innermost = open_[*boundary];
  frames_.push_back(Frame{&entity, std::move(*boundary), innermost, true, isDigest});
  innermost = frames_.size();
  current_ = nullptr;
}

void Scanner::startPart(const Delimiter& delimiter) {
  Frame& frame = frames_.back();
  Entity& parent = *frame.entity;
  if (parent.firstChild_ == nullptr)
    parent.body_ = slice(parent.body_.data(), delimiter.contentEnd);
  Entity& part = arena_.make(message_);
  part.lead_ = slice(delimiter.contentEnd, delimiter.next);
  part.defaultIsMessage_ = frame.isDigest;
  link(parent, part);
  readEntity(part, false);
  if (arena_.size() >= limits_.maxParts) exhaustParts(part.lead_.data());
}

void Scanner::closeMultipart(const Delimiter& delimiter) {
  Frame& frame = frames_.back();
  Entity& entity = *frame.entity;
  if (entity.firstChild_ == nullptr)
    entity.body_ = slice(entity.body_.data(), delimiter.contentEnd);
  entity.tail_ = slice(delimiter.contentEnd, delimiter.next);
  forget(frame);
  floor_ = delimiter.lineBegin;
}

void Scanner::finishAbove(std::size_t frame, const char* end) {
  if (current_ != nullptr) finishLeaf(end);
  while (frames_.size() > frame + 1) finishFrame(end);
}

void Scanner::finishFrame(const char* end) {
  Frame& frame = frames_.back();
  Entity& entity = *frame.entity;
  if (entity.kind_ == OvMsgEntityKind::Message) {
    entity.tail_ = slice(end, end);
  } else if (entity.firstChild_ == nullptr) {
    entity.kind_ = OvMsgEntityKind::Leaf;
    entity.body_ = slice(entity.body_.data(), end);
    entity.tail_ = slice(end, end);
    report(DefectKind::MissingParts, entity.fields_.data(), "a multipart has no part");
    reportUnread(entity);
  } else if (frame.isOpen) {
    entity.tail_ = slice(end, end);
    report(DefectKind::UnclosedMultipart, end, "a multipart is not closed");
  } else {
    entity.tail_ = slice(entity.tail_.data(), end);
  }
  if (frame.isOpen) forget(frame);
  frames_.pop_back();
}

void Scanner::finishLeaf(const char* end) {
  current_->body_ = slice(current_->body_.data(), end);
  current_->tail_ = slice(end, end);
  if (current_ == undivided_) reportUnread(*current_);
  current_ = nullptr;
}

// The boundary of the frame means the frame around that has the same one again, or nothing.
void Scanner::forget(Frame& frame) {
  frame.isOpen = false;
  const auto entry = open_.find(frame.boundary);
  if (frame.shadowed != 0) {
    entry->second = frame.shadowed;
  } else {
    open_.erase(entry);
  }
}

// The line break in front of a delimiter line belongs to it (RFC 2046 section 5.1.1), unless it
// already ends a header field, a blank line or another delimiter line.
bool Scanner::findDelimiter(const char* from, Delimiter& found) const {
  if (open_.empty()) return false;
  const char* p = from;
  while (p < end_) {
    if (*p == '-' && matchDelimiter(p, found)) {
      const char* contentEnd = p;
      if (contentEnd > floor_ && contentEnd[-1] == '\n') {
        --contentEnd;
        if (contentEnd > floor_ && contentEnd[-1] == '\r') --contentEnd;
      }
      found.contentEnd = contentEnd;
      return true;
    }
    const void* lf = std::memchr(p, '\n', static_cast<std::size_t>(end_ - p));
    if (lf == nullptr) return false;
    p = static_cast<const char*>(lf) + 1;
  }
  return false;
}

bool Scanner::matchDelimiter(const char* line, Delimiter& found) const {
  if (open_.empty() || end_ - line < 2 || line[1] != '-') return false;
  const void* lf = std::memchr(line, '\n', static_cast<std::size_t>(end_ - line));
  const char* const next = lf == nullptr ? end_ : static_cast<const char*>(lf) + 1;
  const char* textEnd = next;
  while (textEnd > line && isSpace(textEnd[-1])) --textEnd;
  if (textEnd < line + 2) return false;
  const std::string_view text = slice(line + 2, textEnd);
  if (text.size() > longestBoundary_ + 2) return false;
  std::size_t frame = 0;
  if (const auto entry = open_.find(text); entry != open_.end()) frame = entry->second;
  bool isClose = false;
  if (text.ends_with("--")) {
    const auto entry = open_.find(text.substr(0, text.size() - 2));
    if (entry != open_.end() && entry->second > frame) {
      frame = entry->second;
      isClose = true;
    }
  }
  if (frame == 0) return false;
  found.lineBegin = line;
  found.next = next;
  found.frame = frame - 1;
  found.isClose = isClose;
  return true;
}

void Scanner::link(Entity& parent, Entity& child) {
  child.parent_ = &parent;
  child.ordinal_ = ++parent.lastOrdinal_;
  child.previousSibling_ = parent.lastChild_;
  (parent.lastChild_ != nullptr ? parent.lastChild_->nextSibling_ : parent.firstChild_) = &child;
  parent.lastChild_ = &child;
}

// Leaves lie behind each other: all of them together are looked through once.
void Scanner::reportUnread(const Entity& entity) {
  if (!mayHaveDelimiters(entity.body_)) return;
  report(DefectKind::UnreadParts, entity.fields_.data(),
         "a multipart without a usable boundary: what may be its parts is not looked at");
}

void Scanner::report(DefectKind kind, const char* place, std::string text) {
  if (defects_.size() > kMaxDefects) return;
  const auto offset = static_cast<std::size_t>(place - begin_);
  if (defects_.size() == kMaxDefects) {
    defects_.push_back({DefectKind::TooManyDefects, offset, "more defects are not listed"});
    return;
  }
  defects_.push_back({kind, offset, std::move(text)});
}

}  // namespace host::message
