#include "host/message/header_block.h"

#include <algorithm>

#include "host/message/ascii.h"
#include "host/message/entity.h"
#include "host/message/file_name.h"

namespace host::message {

HeaderBlock::HeaderBlock(Entity& owner, std::string_view received, std::size_t maxFields)
    : received_(received) {
  const char* const end = received.data() + received.size();
  std::size_t named = 0;
  for (const char* p = received.data(); p < end;) {
    RawField field = readField(p, end);
    if (field.nameLength != 0 && ++named > maxFields) {
      field = {std::string_view(p, static_cast<std::size_t>(end - p)), 0, 0};
    }
    fields_.push_back(std::make_unique<HeaderField>(owner, field));
    p += field.bytes.size();
  }
}

HeaderBlock::~HeaderBlock() = default;

HeaderBlock::Fields HeaderBlock::copyOfFields() const {
  Fields copy;
  copy.reserve(fields_.size());
  for (const auto& field : fields_) copy.push_back(field->clone());
  return copy;
}

std::size_t HeaderBlock::indexOf(std::string_view name, std::size_t from) const {
  for (std::size_t i = from; i < fields_.size(); ++i) {
    if (fields_[i]->hasName(name)) return i;
  }
  return fields_.size();
}

HeaderField* HeaderBlock::find(std::string_view name) const {
  const std::size_t index = indexOf(name);
  return index < fields_.size() ? fields_[index].get() : nullptr;
}

std::size_t HeaderBlock::endPosition() const {
  // A fold without a field in front of it would become the new field's.
  std::size_t position = !fields_.empty() && isBlank(fields_.front()->bytes().front()) ? 1 : 0;
  while (position < fields_.size() && !fields_[position]->nameView().empty()) {
    if (hasBareCr(fields_[position]->bytes())) return position;
    ++position;
  }
  return position;
}

void HeaderBlock::insert(std::size_t index, std::unique_ptr<HeaderField> field) {
  fields_.insert(fields_.begin() + static_cast<std::ptrdiff_t>(index), std::move(field));
}

std::unique_ptr<HeaderField> HeaderBlock::take(std::size_t index) {
  std::unique_ptr<HeaderField> field = std::move(fields_[index]);
  fields_.erase(fields_.begin() + static_cast<std::ptrdiff_t>(index));
  return field;
}

std::size_t HeaderBlock::removeAll(std::string_view name) {
  return std::erase_if(fields_, [&](const auto& field) { return field->hasName(name); });
}

bool HeaderBlock::isModified() const {
  const char* place = received_.data();
  for (const auto& field : fields_) {
    if (!field->isReceivedAt(place)) return true;
    place += field->bytes().size();
  }
  return place != received_.data() + received_.size();
}

}  // namespace host::message
