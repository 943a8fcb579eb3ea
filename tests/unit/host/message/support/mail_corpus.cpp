#include "tests/unit/host/message/support/mail_corpus.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace message_test {

std::vector<CorpusMail> corpusMails() {
  std::vector<CorpusMail> mails;
  const char* folder = std::getenv("KAVI_MAIL_DIR");
  if (folder == nullptr || *folder == '\0') return mails;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().extension() != ".eml") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    mails.push_back({entry.path(), std::string(std::istreambuf_iterator<char>(file), {})});
  }
  std::sort(mails.begin(), mails.end(),
            [](const CorpusMail& a, const CorpusMail& b) { return a.path < b.path; });
  return mails;
}

}  // namespace message_test
