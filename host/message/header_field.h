// One header field.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/message/header_reader.h"
#include "library/platform/api.h"
#include "library/platform/ov_msg_header.h"

namespace host::message {

class Entity;

/// A received slice, or the text that replaced it. A field that is set back to its received value
/// is the received slice again.
class KAVI_API HeaderField final : public OvMsgHeader {
 public:
  const char* name() const override;
  const char* value() const override;
  const char* decodedValue(int& hadEncodedWords) const override;
  const char* rawValue() const override;
  const char* charset() const override;
  const char* address() const override;
  int setValue(const char* value, const char* charset) override;
  int setRawValue(const char* value, const char* charset) override;
  int setParameter(const char* name, const char* value) override;

  /// The field as it stands; it lacks its line break only at the end of a message.
  std::string_view bytes() const { return present_ ? std::string_view(*present_) : received_; }
  /// Empty for a line that is no field.
  std::string_view nameView() const { return bytes().substr(0, nameLength_); }
  /// Everything behind the colon; of a nameless line all of it.
  std::string_view rawValueView() const { return bytes().substr(valueOffset_); }
  bool hasName(std::string_view name) const;
  /// The whole value unfolded and trimmed, with its parameters.
  std::string unfoldedValue() const;
  /// The value without parameters when the field is one that has them.
  std::string properValue() const;
  /// The value in UTF-8 with its encoded words decoded.
  std::string decodedUtf8() const;
  /// Whether the bytes are those at \p place in the received message.
  bool isReceivedAt(const char* place) const { return !present_ && received_.data() == place; }

  /// Becomes what \p other is, and leaves that one without a text. Cannot fail.
  void takeText(HeaderField& other);
  /// Another field of the same owner that says and renders the same.
  std::unique_ptr<HeaderField> clone() const;
  void setOwner(Entity& owner) { owner_ = &owner; }

  /// A received field. \param field  a slice of a buffer that the message keeps.
  HeaderField(Entity& owner, const RawField& field);
  /// A new field. \param text  the whole field, its line break included.
  HeaderField(Entity& owner, std::string text);
  ~HeaderField();
  HeaderField(const HeaderField&) = delete;
  HeaderField& operator=(const HeaderField&) = delete;

 private:
  friend class HeaderBlock;
  friend class TreeEditor;
  struct Texts;

  Texts& texts() const;
  void take(const RawField& field);
  /// Becomes the received field again, or \p text, and says so to the message.
  void change(bool isReceived, std::string text);

  Entity* owner_;
  std::string_view received_;             ///< empty for a new field
  std::unique_ptr<std::string> present_;  ///< what replaced the received slice
  std::size_t nameLength_ = 0;
  std::size_t valueOffset_ = 0;
  mutable std::unique_ptr<Texts> texts_;  ///< what was last handed out
};

}  // namespace host::message
