// Raw lists of actions taken: any text is read or refused; what was read comes back, and its
// readable form is one line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/core/action_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string raw(reinterpret_cast<const char*>(data), size);
  const auto actions = host::core::parseTakenActions(raw);
  std::string text;
  const bool readable = KaviAction::CreateActionTokenString(raw.c_str(), text);
  if (!actions) return 0;
  if (!readable) std::abort();
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20) std::abort();
  }
  std::string written;
  for (const auto& action : *actions) host::core::appendTakenAction(written, action);
  const auto back = host::core::parseTakenActions(written);
  if (!back || back->size() != actions->size()) std::abort();
  for (std::size_t at = 0; at < back->size(); ++at) {
    if ((*back)[at].type != (*actions)[at].type || (*back)[at].detail != (*actions)[at].detail) {
      std::abort();
    }
  }
  return 0;
}
