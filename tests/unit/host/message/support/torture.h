// Generated messages that are hard on whoever takes them apart.
#pragma once

#include <string>
#include <vector>

namespace message_test {

struct Torture {
  std::string name;
  std::string bytes;
  bool isLarge = false;  ///< megabytes: not for tests that try many variants
};

/// Small messages, each a case of its own, without a last newline where that is part of the case.
std::vector<Torture> smallTortures();

/// Messages that are large in one way. \param share  1 for the full sizes, 10 for a tenth.
std::vector<Torture> largeTortures(std::size_t share);

std::string nestedMultiparts(std::size_t depth, std::size_t linesBetween, const char* newLine);
std::string nestedMessages(std::size_t depth, const char* newLine);
std::string tinyParts(std::size_t count, const char* newLine);
std::string manyHeaders(std::size_t count, const char* newLine);
std::string oneLargeAttachment(std::size_t bytes, const char* newLine);

/// \p lf with every LF as CRLF.
std::string withCrLf(const std::string& lf);

}  // namespace message_test
