#include "host/message/field_lookup.h"

#include <cstddef>
#include <utility>

#include "host/message/entity.h"
#include "host/message/header_block.h"
#include "host/message/mime_values.h"

namespace host::message {

std::vector<const HeaderField*> fieldsNamed(const Entity& entity, std::string_view name) {
  std::vector<const HeaderField*> found;
  const HeaderBlock& header = entity.header();
  for (std::size_t i = header.indexOf(name); i < header.size(); i = header.indexOf(name, i + 1)) {
    found.push_back(&header.at(i));
  }
  return found;
}

std::vector<std::string> addressList(const HeaderField& field) {
  constexpr std::size_t kMaxAddresses = 65536;
  std::vector<std::string> found;
  for (mime::Address& mailbox : mime::addresses(field.unfoldedValue(), kMaxAddresses)) {
    if (!mailbox.address.empty()) found.push_back(std::move(mailbox.address));
  }
  return found;
}

}  // namespace host::message
