// A list of addresses as one value of a row.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host::store {

/// Every address as "length:bytes,", one behind the other. Addresses may hold any bytes.
std::string packAddresses(const std::vector<std::string>& addresses);

/// \return false, with \p addresses as it was, if \p packed is not what `packAddresses` makes.
bool unpackAddresses(std::string_view packed, std::vector<std::string>& addresses);

}  // namespace host::store
