// An entity of a message: header fields and a body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/entity_state.h"
#include "library/platform/api.h"
#include "library/platform/ov_msg_entity.h"

class OvMsgSink;

namespace host::message {

class Checkpoint;
class HeaderBlock;
class HeaderField;
class Message;

/// The one implementation of OvMsgEntity. In a message's bytes an entity is, in this order: the
/// delimiter line in front of it (of a root: the mbox "From " line), its header fields, the blank
/// line, its body (of a multipart: the preamble, then the children), and the tail of a multipart
/// (closing delimiter and epilogue). Each is a slice of a buffer that the message keeps.
class KAVI_API Entity final : public OvMsgEntity, private EntityState {
 public:
  OvMsgEntityKind kind() const override { return kind_; }
  Entity* nextEntity() override;
  Entity* parentEntity() override { return parent_; }
  bool isSubordinate() const override;
  int headerCount() const override;
  OvMsgHeader* headerAt(int index) override;
  OvMsgHeader* header(const char* name) override;
  bool addHeader(int position, const char* name, const char* value, const char* charset) override;
  bool removeHeader(const char* name) override;
  bool removeHeaderAt(int index) override;
  OvMsgFileName* fileName() override;
  int setContent(const OvMsgResourceLocator* content, const char* contentType, const char* charset,
                 const char* transferEncoding) override;
  int insertTextBody(const OvMsgResourceLocator* text, const char* contentType, const char* charset,
                     const char* transferEncoding) override;
  int insertChild(const OvMsgEntity* child, int position) override;
  int attachMessage(const OvMsgMailMessage* message, int position) override;

  /// The content type in effect, lower case: the declared one, else the default of the place
  /// (RFC 2045 section 5.2, RFC 2046 section 5.1.5).
  std::string contentType() const;
  /// The Content-Type value without parameters, as written; empty when there is none.
  std::string declaredContentType() const;
  /// A parameter of Content-Type, decoded to UTF-8 (RFC 2231); nothing when it is absent.
  std::optional<std::string> contentTypeParameter(const char* name) const;
  /// The declared file name in UTF-8; nothing when there is none or it is empty.
  std::optional<std::string> fileNameText() const;
  /// The Content-Disposition value without parameters, lower case; empty when there is none.
  std::string disposition() const;
  /// The Content-Transfer-Encoding, lower case; "7bit" when there is none.
  std::string transferEncoding() const;

  /// The place in the tree: "1" for the root, "1.2" for its second child. Numbers are those of
  /// arrival: they do not move when a part before them goes.
  std::string path() const;
  /// The last number of `path`.
  std::uint32_t ordinal() const { return ordinal_; }
  /// False once the entity was removed.
  bool isAttached() const { return !detached_; }

  /// The body as transferred, without decoding; of a multipart its preamble.
  std::string_view body() const { return body_; }
  /// The style of the body's line breaks; that of the header where it has none.
  LineBreak lineBreakOfBody() const;
  /// The fields as they stand, without the blank line.
  std::string headerText() const;
  /// The content with its transfer encoding undone; at most \p limit bytes. Of a Leaf or an
  /// OpaqueMessage; of others empty.
  std::string decodedContent(std::size_t limit = std::string_view::npos) const;
  std::size_t decodedSize() const;
  /// Writes the decoded content in pieces. \return false when \p sink refused one.
  bool decodeTo(OvMsgSink& sink) const;

  // Walking without change.
  const Entity* next() const;
  const Entity* parent() const { return parent_; }
  const Entity* firstChild() const { return firstChild_; }
  const Entity* nextSibling() const { return nextSibling_; }
  const HeaderField* field(std::string_view name) const;
  const HeaderBlock& header() const;
  Message& message() const { return *message_; }

  explicit Entity(Message& message);
  ~Entity();
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

 private:
  friend class Checkpoint;
  friend class HeaderBlock;
  friend class HeaderField;
  friend class Message;
  friend class Renderer;
  friend class Scanner;
  friend class TreeEditor;

  HeaderBlock& block() const;
  std::optional<std::string> fieldValue(std::string_view name) const;
  std::optional<std::string> declaredFileName() const;
  /// Marks this entity and all around it as no longer one slice.
  void touch();
  LineBreak lineBreak() const;
  std::string describe() const;

  Message* message_;
  mutable std::unique_ptr<HeaderBlock> block_;  ///< made when the header is first looked at
};

}  // namespace host::message
