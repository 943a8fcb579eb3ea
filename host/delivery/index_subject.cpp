#include "host/delivery/index_subject.h"

#include <cstddef>

#include "library/platform/msgu.h"

namespace host::delivery {

namespace {

constexpr std::size_t kMaxSubjectBytes = std::size_t{8} * 1024;

}  // namespace

std::string indexSubject(OvMsgMailMessage& msg) {
  std::string subject;
  // The charset of the mail is the first one asked, and its bytes are text in almost any.
  if (!msgu::getSubject(&msg, msgu::getCharset(&msg), "utf-8", subject)) return {};
  if (subject.size() <= kMaxSubjectBytes) return subject;
  std::size_t end = kMaxSubjectBytes;
  while (end > 0 && (static_cast<unsigned char>(subject[end]) & 0xC0) == 0x80) --end;
  return subject.substr(0, end);
}

}  // namespace host::delivery
