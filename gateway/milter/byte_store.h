// Where a message's bytes gather while they arrive.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/core/file_ops.h"
#include "host/message/buffer.h"

namespace gateway::milter {

/// Keeps bytes in memory up to a bound; with the first byte beyond, all of them go to a file
/// without a name, so that nothing stays when the process dies. One message, one thread.
class ByteStore {
 public:
  /// \param folder       where the file is made; private to the gateway
  /// \param memoryBytes  the most that is kept in memory
  ByteStore(std::string folder, std::size_t memoryBytes)
      : folder_(std::move(folder)), memoryBytes_(memoryBytes) {}

  /// \return false when the file cannot be made or written; the bytes so far are of no use then,
  ///   and `fault` says why.
  bool append(std::string_view bytes);
  /// The bytes, which leave the store. \return null on failure, with `fault` set.
  std::shared_ptr<const host::message::Buffer> take();

  std::size_t size() const { return size_; }
  bool isInFile() const { return file_.isOpen(); }
  const std::string& fault() const { return fault_; }

 private:
  bool openFile();
  bool writeToFile(std::string_view bytes);

  std::string folder_;
  std::size_t memoryBytes_;
  std::string memory_;
  host::core::Descriptor file_;
  std::size_t size_ = 0;
  std::string fault_;
};

}  // namespace gateway::milter
