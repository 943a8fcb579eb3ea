#include "host/delivery/smtp_transfer.h"

#include <curl/curl.h>

#include <cerrno>
#include <new>

namespace host::delivery {

namespace {

constexpr long kKeptConnections = 8;
constexpr int kPollMs = 1000;
// The library allocates twice that for each message; more than this makes the C library return
// the memory to the system each time.
constexpr long kUploadBytes = 32L << 10;

struct EasyDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct MultiDeleter {
  void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, ListDeleter>;

void require(bool done) {
  if (!done) throw std::bad_alloc();
}

void append(List& list, const std::string& text) {
  curl_slist* longer = curl_slist_append(list.get(), text.c_str());
  require(longer != nullptr);
  static_cast<void>(list.release());
  list.reset(longer);
}

// The library puts "<" and ">" around what it is given. To announce 8-bit content the parameters
// are written behind a bracket of our own, and the last one is such that the library's closing
// bracket may belong to it: an envelope id, whose xtext may hold any visible character (RFC 3461
// section 4.4). Addresses are checked: none brings brackets of its own.
std::string reversePath(const Submission& submission) {
  const std::string sender = submission.envelope.sender.value_or("");
  if (!submission.announceEightBit) return "<" + sender + ">";
  const std::string id = submission.id.empty() ? "kavi" : submission.id;
  return sender + "> BODY=8BITMIME ENVID=<" + id;
}

// Sessions without TLS fail as such, whatever the library calls it.
bool isTlsFailure(CURLcode code) {
  switch (code) {
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_ENGINE_INITFAILED:
      return true;
    default:
      return false;
  }
}

AdapterError errorOfReply(const SmtpDialogue& dialogue) {
  const bool recipient = dialogue.stage() == SmtpStage::Recipient;
  const int category = dialogue.replyCode() / 100;
  if (category == 4) {
    return recipient ? AdapterError::RecipientRefusedForNow : AdapterError::RefusedForNow;
  }
  if (category == 5) {
    return recipient ? AdapterError::RecipientRefusedForGood : AdapterError::RefusedForGood;
  }
  return AdapterError::BadReply;
}

AdapterError errorOf(CURLcode code, CURL* handle, const SmtpDialogue& dialogue) {
  if (code == CURLE_OK) return AdapterError::None;
  if (code == CURLE_OUT_OF_MEMORY) return AdapterError::OutOfMemory;
  if (code == CURLE_ABORTED_BY_CALLBACK) return AdapterError::MessageUnreadable;
  if (code == CURLE_COULDNT_RESOLVE_HOST) return AdapterError::Unresolved;
  if (code == CURLE_OPERATION_TIMEDOUT) return AdapterError::TimedOut;
  if (code == CURLE_LOGIN_DENIED) return AdapterError::LoginFailed;
  if (isTlsFailure(code)) return AdapterError::TlsFailed;
  if (code == CURLE_COULDNT_CONNECT) {
    long reason = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &reason);
    if (reason == ECONNREFUSED) return AdapterError::ConnectionRefused;
    // Accepted, and gone before the library noticed that.
    return reason == ECONNRESET ? AdapterError::ConnectionLost : AdapterError::Unreachable;
  }
  if (dialogue.replyCode() != 0) return errorOfReply(dialogue);
  return dialogue.reply().empty() ? AdapterError::ConnectionLost : AdapterError::BadReply;
}

}  // namespace

struct SmtpEngine::Handles {
  std::unique_ptr<CURLM, MultiDeleter> multi;
  std::unique_ptr<CURL, EasyDeleter> easy;
};

// One transaction while it runs. The library reads the message when it wants to; a message larger
// than the feed's buffer is written by the feed, which in turn lets the library run when its buffer
// is full.
class SmtpEngine::Transfer {
 public:
  Transfer(Handles& handles, const SmtpSession& session, Submission* submission,
           SmtpDialogue& dialogue)
      : easy_(handles.easy.get()),
        multi_(handles.multi.get()),
        session_(session),
        submission_(submission),
        dialogue_(dialogue) {
    curl_easy_reset(easy_);
    setServer();
    setSecurity();
    setCallbacks();
    if (submission_ != nullptr) {
      submission_->feed.rewind();
      setMail();
    } else {
      set(CURLOPT_CUSTOMREQUEST, "NOOP");
      set(CURLOPT_NOBODY, 1L);
    }
  }

  ~Transfer() {
    if (added_) curl_multi_remove_handle(multi_, easy_);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  SmtpOutcome run() {
    require(curl_multi_add_handle(multi_, easy_) == CURLM_OK);
    added_ = true;
    if (submission_ != nullptr && !submission_->feed.isBuffered()) {
      pump([this] { return wanting_; });
      if (!done_) submission_->feed.stream([this] { return drain(); });
      resume();
    }
    pump([] { return false; });
    return outcome();
  }

 private:
  template <class Value>
  void set(CURLoption option, Value value) {
    require(curl_easy_setopt(easy_, option, value) == CURLE_OK);
  }

  void setServer() {
    const SmtpDestination& to = session_.to;
    const bool bracketed = to.host.find(':') != std::string::npos;
    const std::string host = bracketed ? "[" + to.host + "]" : to.host;
    const char* scheme = to.tls == SmtpTls::Implicit ? "smtps://" : "smtp://";
    const std::string url =
        scheme + host + ":" + std::to_string(to.port) + "/" + session_.helloName;
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    set(CURLOPT_PROXY, "");  // whatever the environment says
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // a name server that does not answer holds nobody up
    const SmtpTimeouts& timeouts = session_.timeouts;
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeouts.connectMs));
    set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(timeouts.commandMs + 999) / 1000);
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(timeouts.totalMs));
    set(CURLOPT_FRESH_CONNECT, session_.freshConnection ? 1L : 0L);
  }

  void setSecurity() {
    const SmtpDestination& to = session_.to;
    if (to.tls != SmtpTls::Off) {
      set(CURLOPT_USE_SSL, to.tls == SmtpTls::Opportunistic ? CURLUSESSL_TRY : CURLUSESSL_ALL);
      set(CURLOPT_SSL_VERIFYPEER, to.verifyPeer ? 1L : 0L);
      set(CURLOPT_SSL_VERIFYHOST, to.verifyPeer ? 2L : 0L);
      if (!to.caFile.empty()) set(CURLOPT_CAINFO, to.caFile.c_str());
    }
    if (!to.user.empty()) {
      set(CURLOPT_USERNAME, to.user.c_str());
      set(CURLOPT_PASSWORD, to.password.c_str());
    }
  }

  void setCallbacks() {
    set(CURLOPT_HEADERFUNCTION, &Transfer::onReply);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Transfer::onReply);
    set(CURLOPT_WRITEDATA, static_cast<void*>(nullptr));
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_VERBOSE, 1L);
    set(CURLOPT_DEBUGFUNCTION, &Transfer::onTrace);
    set(CURLOPT_DEBUGDATA, this);
  }

  void setMail() {
    set(CURLOPT_MAIL_FROM, reversePath(*submission_).c_str());
    for (const std::string& recipient : submission_->envelope.recipients) {
      append(recipients_, "<" + recipient + ">");
    }
    set(CURLOPT_MAIL_RCPT, recipients_.get());
    set(CURLOPT_UPLOAD, 1L);
    set(CURLOPT_UPLOAD_BUFFERSIZE, kUploadBytes);
    set(CURLOPT_READFUNCTION, &Transfer::onRead);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(submission_->feed.wireBytes()));
  }

  // Lets the library run until the transaction ends or `reached` answers true.
  template <class Condition>
  void pump(Condition reached) {
    while (!done_ && !reached()) {
      heedBreakOff();
      int running = 0;
      if (curl_multi_perform(multi_, &running) != CURLM_OK) {
        result_ = CURLE_OUT_OF_MEMORY;
        done_ = true;
        return;
      }
      int queued = 0;
      while (const CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        result_ = message->data.result;
        done_ = true;
      }
      if (!done_ && !reached()) curl_multi_poll(multi_, nullptr, 0, kPollMs, nullptr);
    }
  }

  // To take the transfer out of the library's hands would end the message where it is and wait for
  // an answer; a time that is over closes the connection.
  void heedBreakOff() {
    if (brokenOff_ || !session_.timeouts.breakOff.stop_requested()) return;
    brokenOff_ = true;
    curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, 1L);
  }

  // Called now and then, also while the library itself waits for the answer to the final dot.
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    static_cast<Transfer*>(self)->heedBreakOff();
    return 0;
  }

  void resume() {
    wanting_ = false;
    if (!done_) curl_easy_pause(easy_, CURLPAUSE_CONT);
  }

  bool drain() {
    resume();
    pump([this] { return submission_->feed.isEmpty(); });
    return !done_;
  }

  std::size_t read(char* out, std::size_t room) {
    MailFeed& feed = submission_->feed;
    dialogue_.onBody();
    if (feed.isBroken()) return CURL_READFUNC_ABORT;
    if (feed.isEmpty() && !feed.isComplete()) {
      wanting_ = true;
      return CURL_READFUNC_PAUSE;
    }
    const std::size_t size = feed.read(out, room);
    // The library knows the size: behind the last byte it sends the final dot without asking.
    if (feed.isEmpty() && feed.isComplete()) dialogue_.onEnd();
    return size;
  }

  static std::size_t onRead(char* out, std::size_t size, std::size_t count, void* self) {
    return static_cast<Transfer*>(self)->read(out, size * count);
  }

  static std::size_t onReply(char* data, std::size_t size, std::size_t count, void* self) {
    if (self != nullptr) static_cast<Transfer*>(self)->noteReply({data, size * count});
    return size * count;
  }

  static int onTrace(CURL*, curl_infotype kind, char* data, std::size_t size, void* self) {
    if (kind == CURLINFO_HEADER_OUT) static_cast<Transfer*>(self)->noteCommand({data, size});
    return 0;
  }

  // Nothing is thrown through the library: what cannot be noted for lack of memory is not noted.
  void noteReply(std::string_view line) noexcept {
    try {
      dialogue_.onReplyLine(line);
    } catch (...) {
      return;
    }
  }

  void noteCommand(std::string_view line) noexcept {
    try {
      dialogue_.onCommand(line);
    } catch (...) {
      return;
    }
  }

  SmtpOutcome outcome() const {
    SmtpOutcome outcome;
    outcome.server = session_.to.text();
    outcome.error = errorOf(result_, easy_, dialogue_);
    outcome.stage = dialogue_.stage();
    curl_off_t connectedUs = 0;
    curl_easy_getinfo(easy_, CURLINFO_CONNECT_TIME_T, &connectedUs);
    const bool connected = connectedUs > 0 || outcome.error == AdapterError::ConnectionLost;
    if (outcome.stage == SmtpStage::Connect && connected) outcome.stage = SmtpStage::Greeting;
    outcome.replyCode = dialogue_.replyCode();
    if (outcome.error == AdapterError::TimedOut) {
      // A reply to an earlier command says nothing about why time ran out.
      outcome.replyCode = outcome.replyCode >= 400 ? outcome.replyCode : 0;
      if (brokenOff_) outcome.error = AdapterError::BrokenOff;
    }
    outcome.reply = dialogue_.reply();
    const std::size_t named = dialogue_.recipient();
    if (outcome.stage == SmtpStage::Recipient && !outcome.isSent() && named > 0 &&
        named <= submission_->envelope.recipients.size()) {
      outcome.address = submission_->envelope.recipients[named - 1];
    }
    return outcome;
  }

  CURL* easy_;
  CURLM* multi_;
  const SmtpSession& session_;
  Submission* submission_;
  SmtpDialogue& dialogue_;
  List recipients_;
  CURLcode result_ = CURLE_OK;
  bool added_ = false;
  bool done_ = false;
  bool brokenOff_ = false;
  bool wanting_ = false;  ///< the library waits for more of the message
};

SmtpEngine::SmtpEngine() : handles_(std::make_unique<Handles>()) {
  static const bool kReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  require(kReady);
  handles_->multi.reset(curl_multi_init());
  handles_->easy.reset(curl_easy_init());
  require(handles_->multi != nullptr && handles_->easy != nullptr);
  curl_multi_setopt(handles_->multi.get(), CURLMOPT_MAXCONNECTS, kKeptConnections);
}

SmtpEngine::~SmtpEngine() = default;

SmtpOutcome SmtpEngine::run(const SmtpSession& session, Submission* submission,
                            SmtpDialogue& dialogue) {
  return Transfer(*handles_, session, submission, dialogue).run();
}

}  // namespace host::delivery
