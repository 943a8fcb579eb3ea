// Real messages, read from outside of the project when a folder is named.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace message_test {

struct CorpusMail {
  std::filesystem::path path;
  std::string bytes;
};

/// Every *.eml below the folder that the environment variable KAVI_MAIL_DIR names, sorted by path;
/// empty when it is not set.
std::vector<CorpusMail> corpusMails();

}  // namespace message_test
