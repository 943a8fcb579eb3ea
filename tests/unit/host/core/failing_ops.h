// File operations that fail where a test wants.
#pragma once

#include <cerrno>
#include <string>
#include <vector>

#include "host/core/file_ops.h"

namespace testing_host {

/// Does the real thing, but for the call that is to fail. Counts from 1.
class FailingOps final : public host::core::FileOps {
 public:
  /// Lets the \p call -th call fail with \p errnoValue; 0 lets all succeed.
  void failCall(unsigned int call, int errnoValue) {
    failingCall_ = call;
    errno_ = errnoValue;
    calls_.clear();
  }
  /// Lets every call named \p name fail.
  void failAll(const std::string& name, int errnoValue) {
    failingName_ = name;
    errno_ = errnoValue;
    calls_.clear();
  }
  const std::vector<std::string>& calls() const { return calls_; }
  bool fired() const { return failingCall_ != 0 && calls_.size() >= failingCall_; }

  int openFolder(const std::string& path, int parent) override {
    return fails("openFolder") ? -errno_ : FileOps::openFolder(path, parent);
  }
  int makeFolder(const std::string& path, int parent) override {
    return fails("makeFolder") ? -errno_ : FileOps::makeFolder(path, parent);
  }
  int openFile(int folder, const std::string& name, int flags) override {
    return fails("openFile") ? -errno_ : FileOps::openFile(folder, name, flags);
  }
  ssize_t read(int file, char* data, std::size_t size) override {
    return fails("read") ? -errno_ : FileOps::read(file, data, size);
  }
  /// A write that is to fail still writes half of its bytes, as a disk that fills up does.
  ssize_t write(int file, const char* data, std::size_t size) override {
    if (!fails("write")) return FileOps::write(file, data, size);
    FileOps::write(file, data, size / 2);
    return -errno_;
  }
  int sync(int descriptor) override { return fails("sync") ? -errno_ : FileOps::sync(descriptor); }
  int rename(int folder, const std::string& from, const std::string& to) override {
    return fails("rename") ? -errno_ : FileOps::rename(folder, from, to);
  }
  int unlink(int folder, const std::string& name) override {
    calls_.push_back("unlink");  // cleaning up goes on when another call has failed
    return FileOps::unlink(folder, name);
  }
  int lock(int file, bool wait) override {
    return fails("lock") ? -errno_ : FileOps::lock(file, wait);
  }

 private:
  bool fails(const char* name) {
    calls_.push_back(name);
    return calls_.size() == failingCall_ || failingName_ == name;
  }

  unsigned int failingCall_ = 0;
  std::string failingName_;
  int errno_ = EIO;
  std::vector<std::string> calls_;
};

}  // namespace testing_host
