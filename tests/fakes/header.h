// A header field that answers what a test has put into it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/platform/ov_msg_header.h"

namespace fakes {

/// What a field answers beyond its name and value, and how it was written.
struct HeaderFacts {
  bool hasName = true;
  bool hasValue = true;
  std::optional<std::string> decoded;  ///< as bytes of `charset`; none: the value
  bool hadEncodedWords = false;
  std::optional<std::string> charset;
  bool hasRawValue = true;
  std::string raw;            ///< the field's line, as the constructor or the last write left it
  unsigned int refusals = 0;  ///< how many of the coming writes fail
  int parameterAnswer = 0;    ///< what setParameter answers
  std::vector<std::string> parameters;  ///< "name=value" of those set
  std::vector<std::string> writes;      ///< each attempt: "value [charset]", "raw [(null)]"
};

/// A field that keeps its name and value as they are given. A text that it hands out dies with the
/// next call on it, as the real ones may.
class Header : public OvMsgHeader {
 public:
  Header(std::string name, std::string value);

  HeaderFacts& facts() { return facts_; }
  const std::string& nameText() const { return name_; }
  const std::string& valueText() const { return value_; }
  /// Replaces the value, as a write does.
  void assign(const char* value);

  const char* name() const override;
  const char* value() const override;
  const char* decodedValue(int& hadEncodedWords) const override;
  const char* rawValue() const override;
  const char* charset() const override;
  const char* address() const override;
  int setValue(const char* value, const char* charset) override;
  int setRawValue(const char* value, const char* charset) override;
  int setParameter(const char* name, const char* value) override;

 private:
  const char* handOut(const std::string& text) const;
  bool accepts(const char* value, const char* charset);

  std::string name_;
  std::string value_;
  HeaderFacts facts_;
  mutable std::unique_ptr<std::string> handedOut_;
};

}  // namespace fakes
