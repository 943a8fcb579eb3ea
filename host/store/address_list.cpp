#include "host/store/address_list.h"

#include <charconv>

namespace host::store {

std::string packAddresses(const std::vector<std::string>& addresses) {
  std::string packed;
  for (const std::string& address : addresses) {
    packed += std::to_string(address.size());
    packed += ':';
    packed += address;
    packed += ',';
  }
  return packed;
}

bool unpackAddresses(std::string_view packed, std::vector<std::string>& addresses) {
  std::vector<std::string> found;
  while (!packed.empty()) {
    std::size_t length = 0;
    const char* last = packed.data() + packed.size();
    const auto [end, fault] = std::from_chars(packed.data(), last, length);
    if (fault != std::errc() || end == last || *end != ':') return false;
    packed.remove_prefix(static_cast<std::size_t>(end - packed.data()) + 1);
    if (length >= packed.size() || packed[length] != ',') return false;
    found.emplace_back(packed.substr(0, length));
    packed.remove_prefix(length + 1);
  }
  addresses.swap(found);
  return true;
}

}  // namespace host::store
