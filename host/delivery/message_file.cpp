#include "host/delivery/message_file.h"

namespace host::delivery {

namespace {

class FileSink final : public OvMsgSink {
 public:
  explicit FileSink(core::AtomicFile& file) : file_(file) {}

  bool write(const char* data, std::size_t size) override {
    error_ = file_.write(data, size);
    written_ += size;
    return error_ == core::FileError::None;
  }

  core::FileError error() const { return error_; }
  std::size_t written() const { return written_; }

 private:
  core::AtomicFile& file_;
  core::FileError error_ = core::FileError::None;
  std::size_t written_ = 0;
};

}  // namespace

AdapterError writeMessage(const OvMsgMailMessage& msg, core::AtomicFile& file,
                          std::size_t& written) {
  FileSink sink(file);
  const int rendered = msg.render(sink);
  written = sink.written();
  if (sink.error() != core::FileError::None) return adapterErrorOf(sink.error());
  return rendered == 0 ? AdapterError::None : AdapterError::MessageUnreadable;
}

}  // namespace host::delivery
