// The header fields of one entity.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/message/edit_plan.h"
#include "host/message/header_field.h"

namespace host::message {

class FileName;

/// The fields of an entity, in order. Owned by the entity, made when its header is first looked at.
class HeaderBlock {
 public:
  /// Reads \p received; what lies beyond \p maxFields becomes one nameless field.
  HeaderBlock(Entity& owner, std::string_view received, std::size_t maxFields);
  ~HeaderBlock();

  std::size_t size() const { return fields_.size(); }
  HeaderField& at(std::size_t index) const { return *fields_[index]; }
  HeaderField* find(std::string_view name) const;
  /// The index of the first field named \p name at or behind \p from; size() when there is none.
  std::size_t indexOf(std::string_view name, std::size_t from = 0) const;

  /// Where a new field goes when no place is asked for: the end, but before the first line that is
  /// no field, and before a field with a bare CR in it. Many readers take the body to begin there;
  /// a field behind it is one that they never see.
  std::size_t endPosition() const;
  void insert(std::size_t index, std::unique_ptr<HeaderField> field);
  std::unique_ptr<HeaderField> take(std::size_t index);
  using Fields = std::vector<std::unique_ptr<HeaderField>>;
  Fields& fields() { return fields_; }
  /// Fields that say and render the same.
  Fields copyOfFields() const;
  /// Makes room for \p count more fields, so that inserting them cannot fail.
  void makeRoomFor(std::size_t count) { makeRoom(fields_, count); }
  template <class Condition>
  void removeIf(Condition condition) {
    std::erase_if(fields_, [&](const auto& field) { return condition(*field); });
  }
  /// \return how many there were.
  std::size_t removeAll(std::string_view name);

  /// Whether the fields are anything else than the received bytes.
  bool isModified() const;

  std::unique_ptr<FileName>& fileName() { return fileName_; }

 private:
  std::string_view received_;
  Fields fields_;
  std::unique_ptr<FileName> fileName_;
};

}  // namespace host::message
