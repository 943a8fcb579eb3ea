// A message that answers what a test has put into it.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "library/platform/ov_msg_mail_message.h"
#include "tests/fakes/entity.h"

namespace fakes {

/// What the message and the message utilities answer, and what they were asked.
struct MessageFacts {
  std::optional<std::string> headers;
  std::optional<std::string> charset;
  std::optional<std::string> subject;
  bool subjectAnswer = true;  ///< what getSubject answers after it wrote a subject
  std::optional<std::string> xMailId;
  std::list<std::string> recipients;
  std::string refusedRecipient;  ///< no address: a list that holds it is not set
  bool smimeSigned = false;
  bool pgpSigned = false;
  std::list<OvMsgEntity*> ofLookedUpType;  ///< what findContentType finds
  bool lookupAnswer = true;                ///< what findContentType answers
  int insertionAnswer = 0;                 ///< what insertText answers
  bool hasSession = true;                  ///< whether there is an envelope to be had
  std::optional<std::string> sender;       ///< the envelope's; none: it was never set
  std::string senderName;                  ///< the sender's display name
  int senderAnswer = 0;                    ///< what setSender answers
  bool hidesSenderAddress = false;         ///< the sender is there, its address is not
  bool listsRecipients = true;             ///< what getRcpt answers
  std::vector<std::string> calls;          ///< "getSubject us-ascii (null)", "setRcpt a;b; append"
};

/// A message with a root entity, or (`Message(false)`) without one.
class Message : public OvMsgMailMessage {
 public:
  explicit Message(bool withRoot = true);

  Entity* root() { return root_.get(); }
  MessageFacts& facts() { return facts_; }
  void setId(std::string id) { id_ = std::move(id); }
  /// Every "name:value" of the root entity, in order.
  std::vector<std::string> fields();

  const char* id() const override;
  OvMsgEntity* firstEntity() override;
  const OvMsgEntity* firstEntity() const override;
  bool isSmimeSigned() const override;
  bool isPgpSigned() const override;
  OvMsgMailSessionInfo* sessionInfo() const override;
  int insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int flags,
                 const char* sourceCharset, const char* destinationCharset) override;
  int render(OvMsgSink& sink) const override;
  std::size_t renderedSize() const override;

 private:
  std::string rendered() const;

  std::unique_ptr<Entity> root_;
  std::string id_ = "0123456789abcdef";
  mutable MessageFacts facts_;
};

}  // namespace fakes
