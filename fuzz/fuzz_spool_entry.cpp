// Spool files: any file is read or refused; what was read is written the same, and a file cut short
// is never one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/delivery/spool_entry.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file(reinterpret_cast<const char*>(data), size);
  host::delivery::SpoolEntry entry;
  std::string_view message;
  if (!host::delivery::parseSpoolFile(file, entry, message)) return 0;
  if (message.size() != entry.messageBytes || !entry.window.isValid()) std::abort();
  if (message.data() + message.size() != file.data() + file.size()) std::abort();
  const std::string again = host::delivery::writeSpoolHead(entry) + std::string(message);
  host::delivery::SpoolEntry back;
  std::string_view backMessage;
  if (!host::delivery::parseSpoolFile(again, back, backMessage)) std::abort();
  if (!(back == entry) || backMessage != message) std::abort();
  const std::string_view cut(file.data(), file.size() - 1);
  if (host::delivery::parseSpoolFile(cut, back, backMessage)) std::abort();
  return 0;
}
