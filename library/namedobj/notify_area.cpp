#include "library/namedobj/notify_area.h"

#include <cstddef>

#include "library/framework/field_readers.h"
#include "library/framework/field_writers.h"
#include "library/framework/guard.h"

namespace {

constexpr std::size_t kResultReserve = 1024;
constexpr unsigned int kFirstDerivedType = 3;
constexpr unsigned int kPlainType = 26;  // the one type above that is not derived

/// Reads the fields of one settings string, one after the other.
class FieldCursor {
 public:
  FieldCursor(const char* setting, unsigned int length)
      : start_(setting), cursor_(setting), length_(length), remaining_(length) {}

  bool read(std::string& text) {
    return library::_get_string_data(text, cursor_, end_, remaining_);
  }

  bool read(unsigned int& number) {
    long value = 0;
    if (!readLong(value)) {
      return false;
    }
    number = static_cast<unsigned int>(value);
    return true;
  }

  bool read(bool& flag) {
    long value = 0;
    if (!readLong(value)) {
      return false;
    }
    flag = value != 0;
    return true;
  }

 private:
  // The library's reader takes the end of the text for a 0.
  bool readLong(long& value) {
    return *cursor_ != '\0' && static_cast<std::size_t>(cursor_ - start_) < length_ &&
           library::_get_numeric_data(value, cursor_, end_);
  }

  const char* start_;
  const char* cursor_;
  char* end_ = nullptr;
  unsigned int length_;
  unsigned int remaining_;
};

}  // namespace

uiNotifyArea::uiNotifyArea() = default;
uiNotifyArea::~uiNotifyArea() = default;

bool uiNotifyArea::construct(const char* setting, unsigned int length) {
  return library::guarded("uiNotifyArea::construct", false, [&] {
    if (setting == nullptr || *setting == '\0') {
      return false;
    }
    FieldCursor fields(setting, length);
    for (std::string* text : {&name, &sender, &recipients, &subject, &body, &trapMessage}) {
      if (!fields.read(*text)) {
        return false;
      }
    }
    if (!fields.read(notifySender) || !fields.read(notifyRecipients) || !fields.read(sendTrap) ||
        !fields.read(derived) || !fields.read(type) || !fields.read(attachMessage) ||
        !fields.read(attachModifiedMessage)) {
      return false;
    }
    // What the text said of it does not count.
    derived = type >= kFirstDerivedType && type != kPlainType;
    return true;
  });
}

std::string uiNotifyArea::serialize() {
  return library::guarded("uiNotifyArea::serialize", std::string(), [&] {
    std::string text;
    text.reserve(kResultReserve);
    for (const std::string* field : {&name, &sender, &recipients, &subject, &body, &trapMessage}) {
      library::appendStringField(text, *field);
    }
    for (const bool flag : {notifySender, notifyRecipients, sendTrap, derived}) {
      library::appendNumericField(text, flag ? 1 : 0);
    }
    library::appendNumericField(text, type);
    library::appendNumericField(text, attachMessage ? 1 : 0);
    library::appendNumericField(text, attachModifiedMessage ? 1 : 0);
    return text;
  });
}

unsigned int uiNotifyArea::getType() const { return NotificationType; }
