#include "tests/fakes/conversion.h"

#include <iconv.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

namespace {

// The C library's name for what mails call so.
const char* knownName(const char* charset) {
  return strcasecmp(charset, "iso-10646-ucs-2") == 0 ? "ucs-2be" : charset;
}

}  // namespace

int convert(const std::string& text, const char* from, const char* to, std::string& out) {
  if (Conversions::instance().keepsEightBit && strcasecmp(to, "us-ascii") == 0) {
    out = text;
    return OVMSGERR::Ok;
  }
  out.clear();
  std::vector<char> bytes(4 * text.size() + 16);
  const iconv_t converter = iconv_open(knownName(to), knownName(from));
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    return OVMSGERR::UnknownCharset;
  }
  char* source = const_cast<char*>(text.data());
  std::size_t sourceLeft = text.size();
  char* target = bytes.data();
  std::size_t room = bytes.size();
  const bool converted = iconv(converter, &source, &sourceLeft, &target, &room) == 0 &&
                         iconv(converter, nullptr, nullptr, &target, &room) == 0;
  iconv_close(converter);
  if (!converted) {
    return OVMSGERR::MalformedText;
  }
  out.assign(bytes.data(), target);
  return OVMSGERR::Ok;
}

Conversions& Conversions::instance() {
  static Conversions conversions;
  return conversions;
}

void Conversions::clear() {
  // Gives the memory back, too: sweeps count what is left.
  std::vector<std::pair<std::string, std::string>>().swap(refused_);
  std::vector<std::string>().swap(calls_);
  keepsEightBit = false;
}

void Conversions::refuse(const std::string& from, const std::string& to) {
  refused_.emplace_back(from, to);
}

bool Conversions::refuses(const char* from, const char* to) const {
  return std::any_of(refused_.begin(), refused_.end(), [&](const auto& pair) {
    return (pair.first.empty() || pair.first == from) && (pair.second.empty() || pair.second == to);
  });
}

}  // namespace fakes

int OvMsg_CharsetConverterString(const char* text, const char* fromCharset, char* out,
                                 const char* toCharset, unsigned int& room, int flag, int level) {
  if (fakes::platformCallFails()) {
    return OVMSGERR::MalformedText;
  }
  auto& conversions = fakes::Conversions::instance();
  {
    const fakes::Unswept unswept;
    conversions.calls().push_back(std::string(fromCharset) + " " + toCharset + " " +
                                  std::to_string(room) + " " + std::to_string(flag) + " " +
                                  std::to_string(level));
  }
  if (conversions.refuses(fromCharset, toCharset)) {
    return OVMSGERR::UnencodableText;
  }
  std::string converted;
  const int error = fakes::convert(text, fromCharset, toCharset, converted);
  if (error != OVMSGERR::Ok || converted.size() >= room) {
    return error != OVMSGERR::Ok ? error : OVMSGERR::BufferTooSmall;
  }
  std::memcpy(out, converted.c_str(), converted.size() + 1);
  room = static_cast<unsigned int>(converted.size());
  return OVMSGERR::Ok;
}
