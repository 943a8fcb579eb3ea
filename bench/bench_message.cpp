// The message library beside the MIME library, in the same run: reading a message, setting an
// X-header and writing it, against the MIME library's reading alone (and its reading and writing).
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/message/message.h"
#include "library/platform/msgu.h"

namespace {

using host::message::Buffer;
using host::message::Message;

std::string fieldsOf(const char* contentType) {
  std::string text =
      "Return-Path: <sender@example.com>\r\n"
      "Received: from mx.example.com (mx.example.com [192.0.2.1])\r\n"
      "\tby gateway.example.net (Postfix) with ESMTPS id 4XyZ1234\r\n"
      "\tfor <recipient@example.net>; Mon, 6 Jan 2025 09:15:00 +0100 (CET)\r\n"
      "Received: from client.example.com (client.example.com [198.51.100.7])\r\n"
      "\tby mx.example.com (Postfix) with ESMTPSA id 9AbC5678; Mon, 6 Jan 2025 09:14:58 +0100\r\n"
      "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.com; s=mail;\r\n"
      "\th=from:to:subject:date; bh=47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=;\r\n"
      "\tb=Zm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFyZm9vYmFy\r\n"
      "From: =?utf-8?B?w4Rybmll?= <sender@example.com>\r\n"
      "To: Recipient <recipient@example.net>\r\n"
      "Cc: \"Other, A.\" <other@example.net>, third@example.org\r\n"
      "Subject: =?utf-8?Q?Quarterly_figures_=E2=82=AC?=\r\n"
      "Date: Mon, 6 Jan 2025 09:14:57 +0100\r\n"
      "Message-ID: <20250106091457.1234@example.com>\r\n"
      "MIME-Version: 1.0\r\n";
  return text + "Content-Type: " + contentType + "\r\n";
}

/// A text with two alternatives and, for the rest of \p size, an attachment.
std::string mailOf(std::size_t size) {
  std::string text = fieldsOf("multipart/mixed; boundary=\"=_outer\"");
  text +=
      "\r\n--=_outer\r\nContent-Type: multipart/alternative; boundary=\"=_inner\"\r\n\r\n"
      "--=_inner\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
  for (int i = 0; i < 12; ++i) text += "The figures of the quarter are attached to this mail.\r\n";
  text += "--=_inner\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<html><body>";
  for (int i = 0; i < 12; ++i) text += "<p>The figures of the quarter are attached.</p>\r\n";
  text +=
      "</body></html>\r\n--=_inner--\r\n\r\n--=_outer\r\n"
      "Content-Type: application/octet-stream; name=\"figures.bin\"\r\n"
      "Content-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"figures.bin\"\r\n\r\n";
  std::string line(76, 'A');
  for (std::size_t i = 0; i < line.size(); ++i) line[i] = static_cast<char>('A' + i % 26);
  line += "\r\n";
  while (text.size() < size) text += line;
  return text + "--=_outer--\r\n";
}

class CopySink final : public OvMsgSink {
 public:
  bool write(const char* data, std::size_t size) override {
    out.append(data, size);
    return true;
  }
  std::string out;
};

void readEditWrite(benchmark::State& state) {
  const auto bytes = Buffer::adopt(mailOf(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    const auto message = Message::parse(bytes);
    if (!msgu::setHeader(message->firstEntity(), "X-Flag", "yes", nullptr)) {
      state.SkipWithError("no header could be set");
      break;
    }
    CopySink sink;
    sink.out.reserve(message->renderedSize());
    message->render(sink);
    benchmark::DoNotOptimize(sink.out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes->size()));
}

GMimeMessage* libraryParse(const std::string& bytes) {
  GMimeStream* stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  g_object_unref(stream);
  return message;
}

void libraryRead(benchmark::State& state) {
  const std::string bytes = mailOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    GMimeMessage* message = libraryParse(bytes);
    benchmark::DoNotOptimize(message);
    g_object_unref(message);
  }
}

void libraryReadEditWrite(benchmark::State& state) {
  const std::string bytes = mailOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    GMimeMessage* message = libraryParse(bytes);
    g_mime_object_set_header(GMIME_OBJECT(message), "X-Flag", "yes", nullptr);
    GMimeStream* out = g_mime_stream_mem_new();
    g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out);
    g_object_unref(out);
    g_object_unref(message);
  }
}

/// Prints the figures, and behind them each as a ratio to the MIME library's reading.
class RatioReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      // The median of the repetitions.
      if (run.aggregate_name != "median") continue;
      times_[run.run_name.function_name][run.run_name.args] = run.GetAdjustedCPUTime();
    }
  }

  /// \return whether every ratio is within its bound.
  bool printRatios() {
    const std::pair<const char*, double> bounds[] = {{"5000", 1.5}, {"50000", 1.5}, {"5000000", 2}};
    bool good = true;
    for (const auto& [size, bound] : bounds) {
      const double base = times_["library_read"][size];
      const double ours = times_["read_edit_write"][size] / base;
      std::printf("%9s bytes: ours %.2f (bound %.1f), the MIME library's own write %.2f\n", size,
                  ours, bound, times_["library_read_edit_write"][size] / base);
      good = good && ours <= bound;
    }
    return good;
  }

 private:
  std::map<std::string, std::map<std::string, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
  g_mime_init();
  benchmark::Initialize(&argc, argv);
  const auto add = [](const char* name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, function)
        ->Arg(5000)
        ->Arg(50000)
        ->Arg(5000000)
        ->Repetitions(5)
        ->ReportAggregatesOnly(true);
  };
  add("library_read", libraryRead);
  add("read_edit_write", readEditWrite);
  add("library_read_edit_write", libraryReadEditWrite);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const bool good = reporter.printRatios();
  benchmark::Shutdown();
  return good ? 0 : 1;
}
