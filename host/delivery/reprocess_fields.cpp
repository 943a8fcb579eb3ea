#include "host/delivery/reprocess_fields.h"

#include <algorithm>

#include "host/message/ascii.h"
#include "host/message/header_reader.h"
#include "host/message/mime_values.h"

namespace host::delivery {

using message::RawField;

namespace {

bool isBreak(char c) { return c == '\r' || c == '\n'; }

// Line breaks in a row, as CrLfEncoder counts them.
struct Breaks {
  std::size_t bytes = 0;
  std::size_t count = 0;
};

// Those at the begin of `text`, up to the first LF.
Breaks breaksAt(std::string_view text) {
  const std::size_t crs = std::min(text.find_first_not_of('\r'), text.size());
  if (crs < text.size() && text[crs] == '\n') return {crs + 1, 1};
  return {crs, crs};
}

// The length of the line break at the begin of `text`; 0 when there is none.
std::size_t breakLength(std::string_view text) {
  const Breaks breaks = breaksAt(text);
  return breaks.count > 1 ? 1 : breaks.bytes;
}

std::size_t lineLength(std::string_view text) {
  const auto end = std::find_if(text.begin(), text.end(), isBreak);
  return static_cast<std::size_t>(end - text.begin());
}

bool isField(std::string_view line) {
  const char* begin = line.data();
  return message::readField(begin, begin + line.size()).nameLength != 0;
}

// Calls `visit` with every field of a header that has CR LF line breaks.
template <class Visit>
void forEachField(std::string_view header, Visit visit) {
  const char* p = header.data();
  const char* const end = p + header.size();
  while (p < end) {
    const RawField field = message::readField(p, end);
    visit(field);
    p += field.bytes.size();
  }
}

}  // namespace

DividedMail::DividedMail(std::string_view mail) : mail_(mail) {
  std::string_view left = mail;
  if (left.starts_with("From ")) {
    const std::size_t line = lineLength(left);
    leadBytes_ = line + breakLength(left.substr(line));
    left.remove_prefix(leadBytes_);
  }
  while (!left.empty() && breakLength(left) == 0) {
    const std::string_view line = left.substr(0, lineLength(left));
    const bool continues = !header_.empty() && message::isBlank(line[0]);
    if (!continues && !isField(line)) break;
    header_ += line;
    header_ += "\r\n";
    left.remove_prefix(line.size());
    left.remove_prefix(breakLength(left));
  }
  restOffset_ = mail.size() - left.size();
  bodyOffset_ = restOffset_ + breakLength(left);
}

std::vector<std::string> DividedMail::values(std::string_view name) const {
  std::vector<std::string> values;
  forEachField(header_, [&](const RawField& field) {
    if (!message::equalsIgnoreCase(field.bytes.substr(0, field.nameLength), name)) return;
    values.push_back(message::mime::unfolded(field.bytes.substr(field.valueOffset)));
  });
  return values;
}

std::string DividedMail::headerWithout(const std::vector<std::string_view>& names) const {
  std::string header;
  header.reserve(header_.size());
  forEachField(header_, [&](const RawField& field) {
    const std::string_view name = field.bytes.substr(0, field.nameLength);
    const bool unwanted = std::any_of(names.begin(), names.end(), [&](std::string_view other) {
      return message::equalsIgnoreCase(name, other);
    });
    if (!unwanted) header += field.bytes;
  });
  return header;
}

Sha256Sum bodyDigest(std::string_view body) {
  Sha256 sum;
  std::size_t breaks = 0;  // seen, and not counted before something follows
  while (!body.empty()) {
    if (const Breaks found = breaksAt(body); found.count > 0) {
      breaks += found.count;
      body.remove_prefix(found.bytes);
      continue;
    }
    constexpr std::string_view kBreaks = "\n\n\n\n\n\n\n\n\n\n\n\n\n\n\n\n";
    for (; breaks > 0; breaks -= std::min(breaks, kBreaks.size())) {
      sum.update(kBreaks.substr(0, breaks));
    }
    const std::string_view line = body.substr(0, lineLength(body));
    sum.update(line);
    body.remove_prefix(line.size());
  }
  return sum.finish();
}

}  // namespace host::delivery
