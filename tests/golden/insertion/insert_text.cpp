// Puts a text into messages, as the stamp action does, for tests that look at the bytes.
//
// usage: insert_text [--attachment] [--destination CHARSET] top|end TEXT_FILE IN OUT [IN OUT...]
//
// Ends with 1 when an insertion failed; its OUT is then the message as it stands, and the reason
// goes to standard error.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "host/message/message.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_functions.h"

namespace {

using host::message::Buffer;
using host::message::Message;

struct Options {
  OvMsgInsertPlace place = OvMsgInsertPlace::Top;
  const char* destination = nullptr;
  std::string text;
  std::vector<std::string> files;
};

bool readOptions(int argc, char** argv, Options& options) {
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--attachment") {
      OvMsg_SetDisclaimerAttachmentAsDefault(1);
    } else if (word == "--destination" && i + 1 < argc) {
      options.destination = argv[++i];
    } else {
      words.emplace_back(word);
    }
  }
  if (words.size() < 4 || words.size() % 2 != 0) return false;
  options.place = words[0] == "end" ? OvMsgInsertPlace::End : OvMsgInsertPlace::Top;
  std::string error;
  const auto text = Buffer::readFile(words[1], error);
  if (text == nullptr) {
    std::cerr << error << "\n";
    return false;
  }
  options.text = text->view();
  options.files.assign(words.begin() + 2, words.end());
  return true;
}

int insertInto(const Options& options, const std::string& in, const std::string& out) {
  std::string error;
  auto bytes = Buffer::readFile(in, error);
  if (bytes == nullptr) {
    std::cerr << error << "\n";
    return 2;
  }
  const auto message = Message::parse(std::move(bytes));
  const auto size = static_cast<unsigned>(options.text.size());
  OvMsgResourceLocator* text =
      OvMsg_CreateResourceLocator(options.text.data(), kOvMsgMemoryResource, size, size, 1);
  const int code = message->insertText(options.place, text, 20, "utf-8", options.destination);
  OvMsg_DeleteResourceLocator(text);
  std::ofstream(out, std::ios::binary) << message->toString();
  if (code != OVMSGERR::Ok) std::cerr << in << ": " << OVMSGERR::I2A(code) << "\n";
  return code == OVMSGERR::Ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!readOptions(argc, argv, options)) {
    std::cerr << "usage: insert_text [--attachment] [--destination CHARSET] top|end TEXT_FILE "
                 "IN OUT [IN OUT...]\n";
    return 2;
  }
  int status = 0;
  for (std::size_t i = 0; i + 1 < options.files.size(); i += 2) {
    status = std::max(status, insertInto(options, options.files[i], options.files[i + 1]));
  }
  return status;
}
