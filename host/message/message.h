// A message as a tree of entities on shared, immutable bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/buffer.h"
#include "host/message/entity.h"
#include "host/message/envelope.h"
#include "host/message/structure.h"
#include "library/platform/api.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

class Checkpoint;
class EntityArena;

/// One message, received or composed. Its tree's leaves are slices of shared buffers; until the
/// first edit the slices in rendering order are the received bytes. Not shared between threads.
class KAVI_API Message final : public OvMsgMailMessage {
 public:
  /// Takes \p bytes apart. Succeeds for any bytes; what is wrong with them is in `defects`. Time
  /// and memory are linear in the size. The message has no envelope until `setEnvelope`.
  /// \throw std::bad_alloc, std::system_error without a source of randomness for the id.
  static std::unique_ptr<Message> parse(std::shared_ptr<const Buffer> bytes,
                                        const Limits& limits = {});
  /// A new message with an empty root entity and an empty envelope; its line breaks are CRLF.
  static std::unique_ptr<Message> create();

  ~Message() override;
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  const char* id() const override { return id_.c_str(); }
  Entity* firstEntity() override { return root_; }
  const Entity* firstEntity() const override { return root_; }
  bool isSmimeSigned() const override;
  bool isPgpSigned() const override;
  OvMsgMailSessionInfo* sessionInfo() const override;
  int insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int flags,
                 const char* sourceCharset, const char* destinationCharset) override;
  int render(OvMsgSink& sink) const override;
  std::size_t renderedSize() const override;

  /// The rendered message.
  std::string toString() const;

  /// The message as it was received, under the same id and with the envelope first set: a second
  /// tree on the same bytes, made when first asked for, and owned by this message. Of a composed
  /// message it is empty.
  Message& received();
  const Message& received() const;
  /// The bytes as received; empty for a composed message.
  std::string_view receivedBytes() const { return source_->view(); }

  bool hasEnvelope() const { return envelope_.has_value(); }
  /// The envelope; an empty one when there is none.
  const Envelope& envelope() const;
  void setEnvelope(Envelope envelope);

  /// Whether rendering now differs from the received bytes; always true for a composed message.
  bool changed() const;
  /// Every edit so far, in order, those included that were taken back; only ever grows.
  std::span<const Change> changes() const { return changes_; }
  /// What is wrong with the received bytes, in order of discovery; at most a thousand entries.
  std::span<const Defect> defects() const { return defects_; }

  /// Whether \p entity is in the tree now. The pointer is compared, never followed.
  bool contains(const OvMsgEntity* entity) const;
  /// The number of entities in the tree now.
  std::size_t entityCount() const;

  /// Texts that msgu handed out last as pointers; they live until the next call.
  struct LastAnswers {
    std::string charset;
    std::string mailId;
  };
  LastAnswers& lastAnswers() { return lastAnswers_; }

 private:
  friend class Checkpoint;
  friend class Entity;
  friend class HeaderField;
  friend class SessionInfo;
  friend class TreeEditor;

  explicit Message(std::shared_ptr<const Buffer> source);

  /// An entity that is not in the tree yet.
  Entity& newEntity();
  /// Keeps \p bytes alive as long as the message and returns them as a slice.
  std::string_view keep(std::string bytes);
  void keepBuffersOf(const Message& other);
  void readSource();
  void note(Change::Kind kind, std::string what, const Entity& entity);

  std::shared_ptr<const Buffer> source_;
  std::vector<std::shared_ptr<const Buffer>> buffers_;
  std::unique_ptr<EntityArena> arena_;
  Entity* root_ = nullptr;
  Limits limits_;
  LineBreak lineBreak_;  ///< of the first line; for entities that have none of their own
  bool composed_ = false;
  std::string id_;
  std::optional<Envelope> envelope_;
  std::optional<Envelope> receivedEnvelope_;
  std::vector<Change> changes_;
  std::vector<Defect> defects_;
  mutable std::unique_ptr<Message> received_;
  LastAnswers lastAnswers_;
};

}  // namespace host::message
