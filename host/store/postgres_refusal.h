// Why a server lets nobody in.
#pragma once

#include <string>

namespace host::store {

/// Asks the server once more, for the code of its refusal: where a connection fails, the client
/// library hands on the text only, in the server's language. Waits some seconds at most.
/// \param location  a connection string as libpq takes it
/// \return PostgreSQL's five signs for it; empty when there is no answer, or it lets in now
std::string refusalOf(const std::string& location);

}  // namespace host::store
