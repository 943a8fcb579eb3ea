// The check that every message goes through.
#pragma once

#include <string>

namespace message_test {

/// Expects that the message renders as it came, that one new field is the only difference that it
/// makes, and that taking it out again restores the message.
void expectIdentity(const std::string& bytes, const std::string& name);

}  // namespace message_test
