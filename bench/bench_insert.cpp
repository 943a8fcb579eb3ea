// Stamping a message beside the MIME library, in the same run: reading it, putting a text into its
// body and writing it, against the MIME library's reading alone.
#include <benchmark/benchmark.h>

#include <array>
#include <fstream>
#include <string>
#include <string_view>

#include "bench/mails.h"
#include "host/message/message.h"
#include "library/platform/ov_msg_functions.h"

namespace {

using host::message::Buffer;
using host::message::Message;

constexpr char kText[] =
    "This message is confidential and intended for the addressee only.\r\n"
    "If you are not the addressee \xE2\x80\x93 please tell the sender & delete it.\r\n";

std::string mailOf(std::size_t size) {
  return size < 1000000 ? bench::mailWithAlternatives(size) : bench::mailWithAttachment(size);
}

void stamp(benchmark::State& state, OvMsgInsertPlace place) {
  const auto bytes = Buffer::adopt(mailOf(static_cast<std::size_t>(state.range(0))));
  OvMsgResourceLocator* const text =
      OvMsg_CreateResourceLocator(kText, kOvMsgMemoryResource, sizeof kText - 1, sizeof kText, 1);
  for (auto _ : state) {
    const auto message = Message::parse(bytes);
    if (message->insertText(place, text, 20, "utf-8", nullptr) != 0) {
      state.SkipWithError("no text could be inserted");
      break;
    }
    bench::CopySink sink;
    sink.out.reserve(message->renderedSize());
    message->render(sink);
    benchmark::DoNotOptimize(sink.out.data());
  }
  OvMsg_DeleteResourceLocator(text);
}

void stampTop(benchmark::State& state) { stamp(state, OvMsgInsertPlace::Top); }
void stampEnd(benchmark::State& state) { stamp(state, OvMsgInsertPlace::End); }

constexpr std::array<std::size_t, 3> kSizes{5000, 50000, 5000000};

/// For comparisons with other programs.
int writeMails(const std::string& folder) {
  for (const std::size_t size : kSizes) {
    std::ofstream file(folder + "/" + std::to_string(size) + ".eml", std::ios::binary);
    file << mailOf(size);
    if (!file.flush()) return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "--write-mails") return writeMails(argv[2]);
  return bench::run(argc, argv,
                    {mailOf,
                     {{"stamp_top", stampTop, true}, {"stamp_end", stampEnd, true}},
                     {{kSizes[0], 2}, {kSizes[1], 3}, {kSizes[2], 2.5}}});
}
