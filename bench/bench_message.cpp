// The message library beside the MIME library, in the same run: reading a message, setting an
// X-header and writing it, against the MIME library's reading alone (and its reading and writing).
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <string>

#include "bench/mails.h"
#include "host/message/message.h"
#include "library/platform/msgu.h"

namespace {

using host::message::Buffer;
using host::message::Message;

void readEditWrite(benchmark::State& state) {
  const auto bytes =
      Buffer::adopt(bench::mailWithAttachment(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    const auto message = Message::parse(bytes);
    if (!msgu::setHeader(message->firstEntity(), "X-Flag", "yes", nullptr)) {
      state.SkipWithError("no header could be set");
      break;
    }
    bench::CopySink sink;
    sink.out.reserve(message->renderedSize());
    message->render(sink);
    benchmark::DoNotOptimize(sink.out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes->size()));
}

void libraryReadEditWrite(benchmark::State& state) {
  const std::string bytes = bench::mailWithAttachment(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    GMimeMessage* message = bench::parseWithLibrary(bytes);
    g_mime_object_set_header(GMIME_OBJECT(message), "X-Flag", "yes", nullptr);
    GMimeStream* out = g_mime_stream_mem_new();
    g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out);
    g_object_unref(out);
    g_object_unref(message);
  }
}

}  // namespace

int main(int argc, char** argv) {
  return bench::run(argc, argv,
                    {bench::mailWithAttachment,
                     {{"read_edit_write", readEditWrite, true},
                      {"library_read_edit_write", libraryReadEditWrite, false}},
                     {{5000, 1.5}, {50000, 1.5}, {5000000, 2}}});
}
