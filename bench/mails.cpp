#include "bench/mails.h"

#include <cstdio>
#include <map>

namespace bench {

namespace {

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

constexpr char kReading[] = "library_read";

/// Prints the figures, and behind them the medians as ratios to the MIME library's reading.
class MedianReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      times_[run.run_name.function_name][run.run_name.args] = run.GetAdjustedCPUTime();
    }
  }

  /// \return whether every ratio is within its bound.
  bool printRatios(const Contest& contest) {
    bool good = true;
    for (const auto& [size, bound] : contest.bounds) {
      const std::string arguments = std::to_string(size);
      std::printf("%9zu bytes, bound %.1f:", size, bound);
      for (const Contender& contender : contest.contenders) {
        const double ratio = times_[contender.name][arguments] / times_[kReading][arguments];
        std::printf(" %s %.2f%s", contender.name, ratio, contender.isBounded ? "" : " (no bound)");
        good = good && (!contender.isBounded || ratio <= bound);
      }
      std::printf("\n");
    }
    return good;
  }

 private:
  std::map<std::string, std::map<std::string, double>> times_;
};

}  // namespace

std::string mailWithAttachment(std::size_t size) {
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

std::string mailWithAlternatives(std::size_t size) {
  std::string text = fieldsOf("multipart/alternative; boundary=\"=_inner\"");
  text +=
      "\r\n--=_inner\r\nContent-Type: text/plain; charset=utf-8\r\n"
      "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
  const std::size_t plainEnd = text.size() + (size - text.size()) / 4;
  while (text.size() < plainEnd) {
    text += "The figures of the quarter are attached to this mail =E2=80=93 as ever.\r\n";
  }
  text +=
      "--=_inner\r\nContent-Type: text/html; charset=utf-8\r\n"
      "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
      "<!DOCTYPE html>\r\n<html><head><meta http-equiv=3D\"Content-Type\" content=3D\"text/html; "
      "=\r\n"
      "charset=3Dutf-8\"><style>p {margin: 0}</style></head>\r\n<body bgcolor=3D\"#ffffff\">\r\n";
  while (text.size() < size) {
    text +=
        "<p class=3D\"MsoNormal\" style=3D\"margin:0\"><span lang=3D\"EN\">The figures of =\r\n"
        "the quarter are attached to this mail</span> &ndash; <b>as ever</b>.</p>\r\n";
  }
  return text + "</body></html>\r\n--=_inner--\r\n";
}

GMimeMessage* parseWithLibrary(const std::string& bytes) {
  GMimeStream* stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  g_object_unref(stream);
  return message;
}

int run(int argc, char** argv, const Contest& contest) {
  g_mime_init();
  benchmark::Initialize(&argc, argv);
  const auto add = [&](const char* name, const auto& function) {
    auto* entry = benchmark::RegisterBenchmark(name, function);
    for (const auto& [size, bound] : contest.bounds) entry->Arg(static_cast<int64_t>(size));
    entry->Repetitions(5)->ReportAggregatesOnly(true);
  };
  add(kReading, [&](benchmark::State& state) {
    const std::string bytes = contest.mail(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) g_object_unref(parseWithLibrary(bytes));
  });
  for (const Contender& contender : contest.contenders) add(contender.name, contender.function);
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const bool good = reporter.printRatios(contest);
  benchmark::Shutdown();
  return good ? 0 : 1;
}

}  // namespace bench
