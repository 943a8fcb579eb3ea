#include "host/delivery/spool_entry.h"

#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "library/platform/blob.h"

namespace host::delivery {

namespace {

using Fields = std::map<std::string, std::string>;

constexpr std::string_view kMagic = "kavi-spool-1 ";
constexpr std::size_t kFixedFields = 7;  // kind, id, queued, bytes, from, to, rcpts

std::string recipientKey(std::size_t index) { return "rcpt" + std::to_string(index); }

// Takes fields out of a record, remembering whether all were there and whole.
class FieldReader {
 public:
  explicit FieldReader(const Fields& fields) : fields_(fields) {}

  void text(const char* key, std::string& value) {
    if (const std::string* found = find(key)) value = *found;
  }

  template <class Number>
  void number(const char* key, Number& value) {
    const std::string* found = find(key);
    if (found != nullptr && !whole(*found, value)) good_ = false;
  }

  void timeOfDay(const char* key, unsigned char& hour, unsigned char& minute) {
    const std::string* found = find(key);
    if (found == nullptr) return;
    const std::string_view text = *found;
    good_ = good_ && text.size() == 5 && text[2] == ':' && whole(text.substr(0, 2), hour) &&
            whole(text.substr(3), minute);
  }

  bool good() const { return good_; }

 private:
  const std::string* find(const char* key) {
    const auto field = fields_.find(key);
    if (field == fields_.end()) good_ = false;
    return field == fields_.end() ? nullptr : &field->second;
  }

  template <class Number>
  static bool whole(std::string_view text, Number& value) {
    const char* last = text.data() + text.size();
    const auto [end, fault] = std::from_chars(text.data(), last, value);
    return fault == std::errc() && end == last;
  }

  const Fields& fields_;
  bool good_ = true;
};

bool readEnvelopeFields(const Fields& fields, Envelope& envelope) {
  std::size_t known = kFixedFields;
  const auto sender = fields.find("sender");
  if (sender != fields.end()) {
    envelope.sender = sender->second;
    ++known;
  }
  if (fields.contains("passes")) ++known;
  if (fields.contains("rule")) ++known;
  std::size_t count = 0;
  FieldReader(fields).number("rcpts", count);
  // Every other field is a recipient: a count that does not fit is refused before it is counted.
  if (fields.size() < known || fields.size() - known != count) return false;
  envelope.recipients.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    const auto recipient = fields.find(recipientKey(index));
    if (recipient == fields.end()) return false;
    envelope.recipients.push_back(recipient->second);
  }
  return true;
}

std::optional<Fields> readHead(std::string_view head) {
  if (head.substr(0, kMagic.size()) != kMagic) return std::nullopt;
  const std::string record(head.substr(kMagic.size()));
  const char* cursor = record.c_str();
  Fields fields;
  if (!Blob::readBlob(cursor, fields)) return std::nullopt;
  if (cursor != record.c_str() + record.size()) return std::nullopt;
  return fields;
}

}  // namespace

bool SpoolEntry::isForScanning() const {
  return kind == kResentKind || (kind == kPostponedKind && rule != 0);
}

std::string writeSpoolHead(const SpoolEntry& entry) {
  Fields fields{{"kind", entry.kind},
                {"id", entry.messageId},
                {"queued", std::to_string(entry.queuedAt)},
                {"bytes", std::to_string(entry.messageBytes)},
                {"from", entry.window.fromText()},
                {"to", entry.window.toText()},
                {"rcpts", std::to_string(entry.envelope.recipients.size())}};
  if (entry.passes != 0) fields["passes"] = std::to_string(entry.passes);
  if (entry.rule != 0) fields["rule"] = std::to_string(entry.rule);
  if (entry.envelope.sender) fields["sender"] = *entry.envelope.sender;
  for (std::size_t index = 0; index < entry.envelope.recipients.size(); ++index) {
    fields[recipientKey(index)] = entry.envelope.recipients[index];
  }
  std::string record;
  Blob::writeBlob(record, fields);
  if (record.empty()) throw std::bad_alloc();
  return std::string(kMagic) + record + "\n";
}

bool parseSpoolHead(std::string_view head, SpoolEntry& entry, std::size_t& headBytes) {
  const std::size_t end = head.substr(0, kMaxSpoolHeadBytes).find('\n');
  if (end == std::string_view::npos) return false;
  const std::optional<Fields> fields = readHead(head.substr(0, end));
  if (!fields) return false;
  SpoolEntry read;
  FieldReader reader(*fields);
  reader.text("kind", read.kind);
  reader.text("id", read.messageId);
  reader.number("queued", read.queuedAt);
  reader.number("bytes", read.messageBytes);
  reader.timeOfDay("from", read.window.fromHour, read.window.fromMinute);
  reader.timeOfDay("to", read.window.toHour, read.window.toMinute);
  if (fields->contains("passes")) reader.number("passes", read.passes);
  if (fields->contains("rule")) reader.number("rule", read.rule);
  if (!reader.good() || !read.window.isValid()) return false;
  if (!readEnvelopeFields(*fields, read.envelope)) return false;
  entry = std::move(read);
  headBytes = end + 1;
  return true;
}

bool parseSpoolFile(std::string_view file, SpoolEntry& entry, std::string_view& message) {
  SpoolEntry read;
  std::size_t headBytes = 0;
  if (!parseSpoolHead(file, read, headBytes)) return false;
  const std::string_view body = file.substr(headBytes);
  if (body.size() != read.messageBytes) return false;
  entry = std::move(read);
  message = body;
  return true;
}

}  // namespace host::delivery
