// Composing notifications beside the MIME library's building of the same mails, in the same run:
// without sending, but written out. Prints mails per second and their ratio; ends with 1 when one
// is below 0.7.
#include <gmime/gmime.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "bench/mails.h"
#include "host/core/ini_settings.h"
#include "host/message/message.h"
#include "library/framework/init_action_lib.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/notify.h"
#include "library/platform/log_msg.h"
#include "tests/fakes/adapter.h"

namespace {

using Clock = std::chrono::steady_clock;
using host::message::Buffer;
using host::message::Message;

constexpr double kLeastRatio = 0.7;
constexpr int kRounds = 7;
constexpr std::chrono::milliseconds kRound{150};
constexpr std::size_t kAttached = 50000;
constexpr char kSubject[] = "Rule executables matched";
constexpr char kBody[] =
    "A message from somebody@example.org matched the rule executables.\r\n"
    "It was put into quarantine. Ask the postmaster for it.\r\n";

class Silence final : public Kavi::LogMsg {
 public:
  int getLevel() const override { return 0; }
  void write(int /*level*/, const char* /*format*/, ...) override {}
};

/// Writes out what it is given.
class Writer final : public fakes::Adapter {
 public:
  int resendMessage(unsigned int& /*error*/, OvMsgMailMessage* msg, int /*flag*/) override {
    return take(*msg);
  }
  int deliverMessage(unsigned int& /*error*/, OvMsgMailMessage* msg) override { return take(*msg); }
  std::size_t written = 0;

 private:
  int take(const OvMsgMailMessage& msg) {
    bench::CopySink sink;
    sink.out.reserve(msg.renderedSize());
    msg.render(sink);
    written += sink.out.size();
    return 0;
  }
};

class Ours {
 public:
  explicit Ours(bool attach)
      : message_(Message::parse(Buffer::adopt(bench::mailWithAttachment(kAttached)))) {
    record_.sender = "kavi@gw.example";
    record_.recipients = "admin@a.example";
    record_.subject = kSubject;
    record_.body = kBody;
    record_.attachMessage = attach;
    message_->received();  // parsed once, as for a message whose actions need it
  }
  bool operator()() {
    Kavi::TokenMap<Kavi::ScanToken> tokens;
    tokens.set(Kavi::ScanToken::RuleId, "15");
    bool flag = false;
    return ActNotify::_runNameObj(message_.get(), &message_->received(), flag, tokens, writer_,
                                  &record_);
  }

 private:
  std::unique_ptr<Message> message_;
  uiNotifyArea record_;
  Writer writer_;
};

/// The same mail, as the MIME library's users build it.
class Library {
 public:
  explicit Library(bool attach)
      : attached_(bench::parseWithLibrary(bench::mailWithAttachment(kAttached))), attach_(attach) {}
  ~Library() { g_object_unref(attached_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool operator()() {
    GMimeMessage* message = g_mime_message_new(TRUE);
    g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_FROM, "kavi@gw.example",
                               "kavi@gw.example");
    g_mime_message_add_mailbox(message, GMIME_ADDRESS_TYPE_TO, nullptr, "admin@a.example");
    g_mime_message_set_subject(message, kSubject, nullptr);
    GDateTime* now = g_date_time_new_now_local();
    g_mime_message_set_date(message, now);
    g_date_time_unref(now);
    g_mime_object_set_header(GMIME_OBJECT(message), "Auto-Submitted", "auto-generated", nullptr);
    GMimeTextPart* text = g_mime_text_part_new_with_subtype("plain");
    g_mime_text_part_set_text(text, kBody);
    g_mime_part_set_content_encoding(GMIME_PART(text), GMIME_CONTENT_ENCODING_BASE64);
    if (attach_) {
      GMimeMultipart* mixed = g_mime_multipart_new_with_subtype("mixed");
      g_mime_multipart_add(mixed, GMIME_OBJECT(text));
      GMimeMessagePart* part = g_mime_message_part_new_with_message("rfc822", attached_);
      g_mime_object_set_disposition(GMIME_OBJECT(part), "attachment");
      g_mime_multipart_add(mixed, GMIME_OBJECT(part));
      g_mime_message_set_mime_part(message, GMIME_OBJECT(mixed));
      g_object_unref(part);
      g_object_unref(mixed);
    } else {
      g_mime_message_set_mime_part(message, GMIME_OBJECT(text));
    }
    GMimeStream* out = g_mime_stream_mem_new();
    const gssize size = g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out);
    g_object_unref(out);
    g_object_unref(text);
    g_object_unref(message);
    return size > 0;
  }

 private:
  GMimeMessage* attached_;
  bool attach_;
};

/// Mails per second in one round; 0 when one failed.
double perSecond(const std::function<bool()>& make) {
  const Clock::time_point start = Clock::now();
  int made = 0;
  for (; Clock::now() - start < kRound; ++made) {
    if (!make()) return 0;
  }
  return made / std::chrono::duration<double>(Clock::now() - start).count();
}

bool compare(const char* what, bool attach) {
  Ours ours(attach);
  Library library(attach);
  double best = 0;
  double bestOfLibrary = 0;
  for (int round = 0; round < kRounds; ++round) {
    best = std::max(best, perSecond([&] { return ours(); }));
    bestOfLibrary = std::max(bestOfLibrary, perSecond([&] { return library(); }));
  }
  const double ratio = best / bestOfLibrary;
  const bool good = ratio >= kLeastRatio;
  std::printf("%-34s %9.0f/s, MIME library %9.0f/s, ratio %.2f (at least %.1f)%s\n", what, best,
              bestOfLibrary, ratio, kLeastRatio, good ? "" : " TOO SLOW");
  return good;
}

}  // namespace

int main() {
  g_mime_init();
  host::core::IniSettings settings;
  std::string error;
  settings.loadText("[General-Notification]\nPreferredCharset=utf-8\n", "bench", error);
  static Silence log;
  InitActionLib(settings, log);
  const bool small = compare("notification, small", false);
  const bool large = compare("notification with a 50 kB message", true);
  return small && large ? 0 : 1;
}
