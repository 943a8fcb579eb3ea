// Entities in a tree, as far as actions look at them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/platform/ov_msg_entity.h"
#include "tests/fakes/header.h"

namespace fakes {

class FileName : public OvMsgFileName {
 public:
  const char* name() const override { return text ? text->c_str() : nullptr; }
  std::optional<std::string> text;
};

/// What an entity answers, and what was done to it.
struct EntityFacts {
  OvMsgEntityKind kind = OvMsgEntityKind::Leaf;
  std::optional<FileName> file;
  bool isBody = false;
  bool refusesRemoval = false;  ///< also where it goes only because it was left without a part
  int contentAnswer = 0;        ///< what setContent answers
  std::string content;          ///< "content type charset encoding", once it was set
  bool addsHeaders = true;      ///< what addHeader answers, and does
  int textAnswer = 0;           ///< what insertTextBody answers; what it was given is in `calls`
  int childAnswer = 0;          ///< the same of insertChild
  int attachAnswer = 0;         ///< the same of attachMessage
  const OvMsgMailMessage* attached = nullptr;  ///< the last message that was attached
};

/// An entity with header fields and children. A removed one stays allocated with the top one.
class Entity : public OvMsgEntity {
 public:
  /// \param label  names the entity in `calls`
  explicit Entity(std::string label = "root");

  EntityFacts& facts() { return facts_; }
  const std::string& label() const { return label_; }
  /// Appends a part. Borrowed: it belongs to this entity.
  Entity* addPart(std::string label, OvMsgEntityKind kind = OvMsgEntityKind::Leaf);
  /// Appends a field. Borrowed: it belongs to this entity.
  Header* addField(std::string name, std::string value);
  /// Appends a place in the header at which there is no field.
  void addGap() { headers_.emplace_back(); }
  /// "name:value" of every field, in order.
  std::vector<std::string> fields() const;
  Header* findField(const char* name) const;

  /// The top of the tree that this entity is or was part of.
  Entity* top() { return top_; }
  /// On the top entity: what the message utilities were asked to do with the tree's entities.
  std::vector<std::string>& calls() { return calls_; }
  /// Whether \p entity is this one or below it. The pointer is compared, never followed.
  bool holds(const OvMsgEntity* entity) const;
  Entity* parent() const { return parent_; }
  bool isEmpty() const { return parts_.empty(); }
  /// Takes this part out of the tree.
  void detach();

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
  std::string label_;
  Entity* top_;
  Entity* parent_ = nullptr;
  EntityFacts facts_;
  std::vector<std::unique_ptr<Header>> headers_;
  std::vector<std::unique_ptr<Entity>> parts_;
  std::vector<std::unique_ptr<Entity>> removed_;
  std::vector<std::string> calls_;
};

}  // namespace fakes
