#include "gateway/milter/tell.h"

#include <algorithm>
#include <string>

namespace gateway::milter {
namespace {

/// libmilter takes everything as char*, and changes nothing of it.
char* plain(const std::string& text) { return const_cast<char*>(text.c_str()); }

std::string bracketed(const std::string& address) { return "<" + address + ">"; }

bool tellEdit(SMFICTX* context, const HeaderEdit& edit) {
  const int index = static_cast<int>(edit.index);
  switch (edit.kind) {
    case HeaderEdit::Kind::Change:
      return smfi_chgheader(context, plain(edit.name), index, plain(edit.value)) == MI_SUCCESS;
    case HeaderEdit::Kind::Delete:
      return smfi_chgheader(context, plain(edit.name), index, nullptr) == MI_SUCCESS;
    case HeaderEdit::Kind::Insert:
      break;
  }
  return smfi_insheader(context, index, plain(edit.name), plain(edit.value)) == MI_SUCCESS;
}

/// Sends a body in pieces of one packet each: small slices would cost a packet of their own.
class SendingSink final : public BodySink {
 public:
  SendingSink(SMFICTX* context, std::size_t headerBytes)
      : BodySink(headerBytes), context_(context) {}

  /// Sends what is left; an empty body has to be said, too.
  bool finish() { return isDivided() && (sent_ && waiting_.empty() ? true : send()); }

 private:
  static constexpr std::size_t kPacket = 65'535;

  bool writeBody(std::string_view piece) override {
    while (!piece.empty()) {
      const std::size_t part = std::min(piece.size(), kPacket - waiting_.size());
      waiting_.append(piece.substr(0, part));
      piece.remove_prefix(part);
      if (waiting_.size() == kPacket && !send()) return false;
    }
    return true;
  }

  bool send() {
    auto* bytes = reinterpret_cast<unsigned char*>(waiting_.data());
    sent_ = true;
    const int result = smfi_replacebody(context_, bytes, static_cast<int>(waiting_.size()));
    waiting_.clear();
    return result == MI_SUCCESS;
  }

  SMFICTX* context_;
  std::string waiting_;
  bool sent_ = false;
};

bool tellBody(SMFICTX* context, const host::message::Message& message) {
  SendingSink sink(context, headerOf(message).size());
  return message.render(sink) == 0 && sink.finish();
}

bool tellEnvelope(SMFICTX* context, const ChangeSet& changes) {
  for (const std::string& address : changes.removed) {
    if (smfi_delrcpt(context, plain(bracketed(address))) != MI_SUCCESS) return false;
  }
  for (const std::string& address : changes.added) {
    if (smfi_addrcpt(context, plain(bracketed(address))) != MI_SUCCESS) return false;
  }
  return !changes.sender ||
         smfi_chgfrom(context, plain(bracketed(*changes.sender)), nullptr) == MI_SUCCESS;
}

}  // namespace

bool tellChanges(SMFICTX* context, const ChangeSet& changes,
                 const host::message::Message& message) {
  for (const HeaderEdit& edit : changes.headers) {
    if (!tellEdit(context, edit)) return false;
  }
  return tellEnvelope(context, changes) && (!changes.body || tellBody(context, message));
}

sfsistat tellAnswer(SMFICTX* context, const Answer& answer) {
  if (answer.kind == Answer::Kind::Continue) return SMFIS_CONTINUE;
  if (answer.kind == Answer::Kind::Discard) return SMFIS_DISCARD;
  smfi_setreply(context, plain(answer.code()), plain(answer.enhancedCode()),
                plain(replyText(answer.text)));
  return answer.kind == Answer::Kind::Reject ? SMFIS_REJECT : SMFIS_TEMPFAIL;
}

}  // namespace gateway::milter
