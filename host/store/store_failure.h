// How a failure travels inside this folder.
#pragma once

#include <exception>
#include <string>
#include <utility>

#include "host/store/store_status.h"

namespace host::store {

/// Thrown below an operation of the store, and turned into its status there.
class StoreFailure : public std::exception {
 public:
  /// \param isUncertain  whether what was asked for may have been done all the same
  StoreFailure(StoreError error, std::string detail, bool isUncertain = false)
      : error_(error), detail_(std::move(detail)), isUncertain_(isUncertain) {}

  StoreError error() const { return error_; }
  bool isUncertain() const { return isUncertain_; }
  const char* what() const noexcept override { return detail_.c_str(); }

 private:
  StoreError error_;
  std::string detail_;
  bool isUncertain_;
};

/// The sentence for people: "adding a message to the index of /x/y: disk full; make room ...".
std::string failureText(const std::string& doing, const std::string& location, StoreError error,
                        const std::string& detail);

}  // namespace host::store
