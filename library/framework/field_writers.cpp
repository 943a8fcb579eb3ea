#include "library/framework/field_writers.h"

namespace library {

void appendStringField(std::string& text, const std::string& value) {
  appendNumericField(text, static_cast<unsigned int>(value.size()));
  text += value;
  text += ':';
}

void appendNumericField(std::string& text, unsigned int value) {
  text += std::to_string(value);
  text += ':';
}

}  // namespace library
