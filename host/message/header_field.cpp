#include "host/message/header_field.h"

#include <algorithm>

#include "host/message/address.h"
#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/entity.h"
#include "host/message/field_text.h"
#include "host/message/guard.h"
#include "host/message/message.h"
#include "host/message/mime_values.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

struct HeaderField::Texts {
  std::string name;
  std::string value;
  std::string decoded;
  std::string raw;
  std::string charset;
  std::string address;
};

namespace {

bool hasParameters(std::string_view name) {
  return equalsIgnoreCase(name, "content-type") || equalsIgnoreCase(name, "content-disposition");
}

RawField reread(std::string_view bytes) {
  return readField(bytes.data(), bytes.data() + bytes.size());
}

std::string_view rawValueOf(const RawField& field) { return field.bytes.substr(field.valueOffset); }

std::string properValueOf(const RawField& field) {
  std::string value = mime::unfolded(rawValueOf(field));
  if (!hasParameters(field.bytes.substr(0, field.nameLength))) return value;
  return std::string(mime::properValue(value));
}

/// A C string ends at a NUL: what stands behind one would be lost to who asks.
void blankNuls(std::string& text) { std::replace(text.begin(), text.end(), '\0', ' '); }

}  // namespace

HeaderField::HeaderField(Entity& owner, const RawField& field)
    : owner_(&owner), received_(field.bytes) {
  take(field);
}

HeaderField::HeaderField(Entity& owner, std::string text)
    : owner_(&owner), present_(std::make_unique<std::string>(std::move(text))) {
  take(reread(*present_));
}

HeaderField::~HeaderField() = default;

std::unique_ptr<HeaderField> HeaderField::clone() const {
  auto copy =
      std::make_unique<HeaderField>(*owner_, RawField{received_, nameLength_, valueOffset_});
  if (present_ != nullptr) copy->present_ = std::make_unique<std::string>(*present_);
  return copy;
}

void HeaderField::take(const RawField& field) {
  nameLength_ = field.nameLength;
  valueOffset_ = field.valueOffset;
}

HeaderField::Texts& HeaderField::texts() const {
  if (texts_ == nullptr) texts_ = std::make_unique<Texts>();
  return *texts_;
}

bool HeaderField::hasName(std::string_view name) const {
  return nameLength_ != 0 && equalsIgnoreCase(nameView(), name);
}

std::string HeaderField::unfoldedValue() const { return mime::unfolded(rawValueView()); }

std::string HeaderField::properValue() const {
  return properValueOf({bytes(), nameLength_, valueOffset_});
}

std::string HeaderField::decodedUtf8() const { return decodedText(unfoldedValue()); }

const char* HeaderField::name() const {
  return guarded<const char*>(nullptr, [&]() -> const char* {
    if (nameLength_ == 0) return nullptr;
    texts().name = nameView();
    return texts().name.c_str();
  });
}

const char* HeaderField::value() const {
  return guarded<const char*>(nullptr, [&] {
    texts().value = properValue();
    blankNuls(texts().value);
    return texts().value.c_str();
  });
}

const char* HeaderField::decodedValue(int& hadEncodedWords) const {
  hadEncodedWords = 0;
  return guarded<const char*>(nullptr, [&] {
    const std::string value = unfoldedValue();
    hadEncodedWords = charsetOfWords(value).empty() ? 0 : 1;
    texts().decoded = decodedBytes(value);
    blankNuls(texts().decoded);
    return texts().decoded.c_str();
  });
}

const char* HeaderField::rawValue() const {
  return guarded<const char*>(nullptr, [&] {
    texts().raw = bytes();
    blankNuls(texts().raw);
    return texts().raw.c_str();
  });
}

const char* HeaderField::charset() const {
  return guarded<const char*>(nullptr, [&]() -> const char* {
    texts().charset = charsetOfWords(unfoldedValue());
    return texts().charset.empty() ? nullptr : texts().charset.c_str();
  });
}

const char* HeaderField::address() const {
  return guarded<const char*>(nullptr, [&]() -> const char* {
    const auto found = mime::addresses(unfoldedValue(), 1);
    if (found.empty() || !isMailAddress(found.front().address)) return nullptr;
    texts().address = found.front().address;
    return texts().address.c_str();
  });
}

int HeaderField::setValue(const char* value, const char* charset) {
  return guardedCode([&]() -> int {
    if (value == nullptr || nameLength_ == 0) return OVMSGERR::InvalidArgument;
    const bool terminated = bytes().ends_with('\n');
    std::string text;
    // Without a charset, text that is not ASCII stays in that of the words it replaces.
    const std::string own =
        charset == nullptr && !isAscii(value) ? charsetOfWords(unfoldedValue()) : std::string();
    const auto compose = [&](const char* in) {
      return composeField({nameView(), value, in}, owner_->lineBreak(), terminated, text);
    };
    const bool inOwn = !own.empty() && compose(own.c_str()) == OVMSGERR::Ok;
    if (inOwn) {
      charset = own.c_str();
    } else if (const int code = compose(charset); code != OVMSGERR::Ok) {
      return code;
    }
    bool isReceived = false;
    if (!received_.empty()) {
      const RawField original = reread(received_);
      const std::string originalValue = mime::unfolded(rawValueOf(original));
      if (charset == nullptr) {
        const std::string plain = mime::unfolded(value);
        isReceived = plain == originalValue || plain == properValueOf(original);
      } else {
        std::string utf8;
        const std::string originalCharset = charsetOfWords(originalValue);
        isReceived = (originalCharset.empty() || equalsIgnoreCase(originalCharset, charset)) &&
                     convertCharset(mime::unfolded(value), charset, "utf-8", OnMisfit::Fail,
                                    OnMisfit::Fail, utf8) == OVMSGERR::Ok &&
                     utf8 == decodedText(originalValue);
      }
    }
    change(isReceived, std::move(text));
    return OVMSGERR::Ok;
  });
}

int HeaderField::setRawValue(const char* value, const char* /*charset*/) {
  return guardedCode([&]() -> int {
    if (value == nullptr || nameLength_ == 0) return OVMSGERR::InvalidArgument;
    const std::string raw = withSafeBreaks(value, owner_->lineBreak());
    std::string text(nameView());
    text += ':';
    text += raw;
    if (bytes().ends_with('\n')) text += owner_->lineBreak().text();
    std::string_view original = received_.empty() ? received_ : rawValueOf(reread(received_));
    while (!original.empty() && (original.back() == '\n' || original.back() == '\r')) {
      original.remove_suffix(1);
    }
    change(!received_.empty() && original == raw, std::move(text));
    return OVMSGERR::Ok;
  });
}

int HeaderField::setParameter(const char* name, const char* value) {
  return guardedCode([&]() -> int {
    if (name == nullptr || value == nullptr || nameLength_ == 0 || !isFieldName(name)) {
      return OVMSGERR::InvalidArgument;
    }
    if (!isUtf8(value)) return OVMSGERR::MalformedText;
    const auto changed =
        mime::withParameter(nameView(), unfoldedValue(), name,
                            withSafeBreaks(value, LineBreak{}).c_str(), owner_->lineBreak().text());
    if (!changed) return OVMSGERR::MalformedText;
    std::string text(nameView());
    text.append(": ").append(*changed);
    if (bytes().ends_with('\n')) text += owner_->lineBreak().text();
    const bool isReceived = !received_.empty() && mime::unfolded(rawValueOf(reread(received_))) ==
                                                      mime::unfolded(*changed);
    change(isReceived, std::move(text));
    return OVMSGERR::Ok;
  });
}

void HeaderField::change(bool isReceived, std::string text) {
  if (isReceived ? present_ == nullptr : bytes() == text) return;
  auto present = isReceived ? nullptr : std::make_unique<std::string>(std::move(text));
  owner_->message().note(Change::Kind::HeaderChanged, std::string(nameView()), *owner_);
  present_ = std::move(present);
  take(reread(bytes()));
  owner_->touch();
}

void HeaderField::takeText(HeaderField& other) {
  present_ = std::move(other.present_);
  take(reread(bytes()));
}

}  // namespace host::message
