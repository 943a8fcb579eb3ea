#include "tests/fakes/message.h"

#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/handles.h"
#include "tests/fakes/session.h"

namespace fakes {

Message::Message(bool withRoot) : root_(withRoot ? std::make_unique<Entity>() : nullptr) {}

std::vector<std::string> Message::fields() {
  return root_ != nullptr ? root_->fields() : std::vector<std::string>();
}

const char* Message::id() const {
  platformCallFails();  // as the next four: has no failure result, may only throw
  return id_.c_str();
}
OvMsgEntity* Message::firstEntity() {
  platformCallFails();
  return root_.get();
}
const OvMsgEntity* Message::firstEntity() const {
  platformCallFails();
  return root_.get();
}
bool Message::isSmimeSigned() const {
  platformCallFails();
  const Unswept unswept;
  facts_.calls.emplace_back("isSmimeSigned");
  return facts_.smimeSigned;
}
bool Message::isPgpSigned() const {
  platformCallFails();
  const Unswept unswept;
  facts_.calls.emplace_back("isPgpSigned");
  return facts_.pgpSigned;
}
OvMsgMailSessionInfo* Message::sessionInfo() const {
  if (platformCallFails() || !facts_.hasSession) {
    return nullptr;
  }
  auto* const session = new Session(facts_);
  ++Handles::instance().sessions;
  return session;
}

int Message::insertText(OvMsgInsertPlace place, const OvMsgResourceLocator* text, int flags,
                        const char* sourceCharset, const char* destinationCharset) {
  if (platformCallFails()) {
    return OVMSGERR::NoBody;
  }
  const Unswept unswept;
  facts_.calls.push_back("insertText " + std::to_string(static_cast<int>(place)) + " " +
                         std::to_string(flags) + " " + sourceCharset + " " +
                         (destinationCharset != nullptr ? destinationCharset : "(null)") + " '" +
                         std::string(text->data(), text->size()) + "'");
  return facts_.insertionAnswer;
}

int Message::render(OvMsgSink& sink) const {
  const std::string fields = rendered();
  return sink.write(fields.data(), fields.size()) ? OVMSGERR::Ok : OVMSGERR::WriteFailed;
}
std::size_t Message::renderedSize() const { return rendered().size(); }

std::string Message::rendered() const {
  std::string text;
  for (const std::string& field : root_ != nullptr ? root_->fields() : std::vector<std::string>()) {
    text += field + "\r\n";
  }
  return text;
}

}  // namespace fakes
