// The file name object of an entity.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "library/platform/ov_msg_header.h"

namespace host::message {

/// A declared file name, decoded to UTF-8.
class FileName final : public OvMsgFileName {
 public:
  explicit FileName(std::string text) : text_(std::move(text)) {}
  const char* name() const override { return text_.empty() ? nullptr : text_.c_str(); }
  void set(std::string text) { text_ = std::move(text); }

 private:
  std::string text_;
};

}  // namespace host::message
