// A message of one entity, for the actions that touch header fields only.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_mail_message.h"

namespace fakes {

/// A field that keeps its name and value as they are given.
class Header : public OvMsgHeader {
 public:
  Header(std::string name, std::string value);

  const char* name() const override;
  const char* value() const override;
  const char* decodedValue(int& hadEncodedWords) const override;
  const char* rawValue() const override;
  const char* charset() const override;
  const char* address() const override;
  int setValue(const char* value, const char* charset) override;
  int setRawValue(const char* value, const char* charset) override;
  int setParameter(const char* name, const char* value) override;

 private:
  std::string name_;
  std::string value_;
  std::string raw_;
};

/// A leaf with header fields; its content cannot be changed (OVMSGERR::NotSupported).
class Entity : public OvMsgEntity {
 public:
  OvMsgEntityKind kind() const override;
  OvMsgEntity* nextEntity() override;
  OvMsgEntity* parentEntity() override;
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

 private:
  std::vector<std::unique_ptr<Header>> headers_;
};

/// What the message utilities answer about a message, and what they were asked.
struct MessageFacts {
  std::optional<std::string> headers;
  std::optional<std::string> charset;
  std::optional<std::string> subject;
  bool subjectAnswer = true;  ///< what getSubject answers after it wrote a subject
  std::optional<std::string> xMailId;
  std::list<std::string> recipients;
  std::string refusedRecipient;    ///< no address: a list that holds it is not set
  std::vector<std::string> calls;  ///< "getSubject us-ascii (null)", "setRcpt a;b; append"
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
  std::unique_ptr<Entity> root_;
  std::string id_ = "0123456789abcdef";
  MessageFacts facts_;
};

}  // namespace fakes
