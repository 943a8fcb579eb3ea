// Messages and readings that the benchmarks of the message library share.
#pragma once

#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "library/platform/ov_msg_mail_message.h"

namespace bench {

/// A text with two alternatives and, for the rest of \p size, an attachment.
std::string mailWithAttachment(std::size_t size);
/// Two alternatives of about \p size together, the larger one HTML as mail programs write it.
std::string mailWithAlternatives(std::size_t size);

/// Takes a rendered message as a whole.
class CopySink final : public OvMsgSink {
 public:
  bool write(const char* data, std::size_t size) override {
    out.append(data, size);
    return true;
  }
  std::string out;
};

/// What the MIME library reads from \p bytes; to be released.
GMimeMessage* parseWithLibrary(const std::string& bytes);

/// Something done to a message, measured beside the MIME library's reading of it.
struct Contender {
  const char* name;
  void (*function)(benchmark::State&);  ///< its range is the size of the message
  bool isBounded;                       ///< false: shown, but held to no bound
};

/// What the contenders are measured with and held to.
struct Contest {
  std::string (*mail)(std::size_t size);
  std::vector<Contender> contenders;
  std::vector<std::pair<std::size_t, double>> bounds;  ///< size of the message, greatest ratio
};

/// Runs a contest as a program. \return the exit status: 1 when a ratio is above its bound.
int run(int argc, char** argv, const Contest& contest);

}  // namespace bench
