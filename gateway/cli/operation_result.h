// What the operations on named objects answer, in words.
#pragma once

#include <string>

#include "host/store/store_status.h"

namespace gateway::cli {

/// How an operation of NameObjectAccess, or a step behind it, ended.
struct OperationResult {
  int code = 0;         ///< 0 for success
  std::string word;     ///< "AddRefused"
  std::string meaning;  ///< what it means here, and the remedy; empty for success

  bool ok() const { return code == 0; }
};

/// The result code of every operation but `remove`, with what the store said when it is behind it.
OperationResult resultOf(int code);

/// The result of `remove`: the store's own code.
OperationResult removalOf(int code);

/// "result 1015 (ReservedName): names that begin with OPP: ...".
std::string resultText(const OperationResult& result);

/// What a person can do about an error of the store with named objects; empty when its own text
/// says so already.
const char* objectRemedy(host::store::StoreError error);

}  // namespace gateway::cli
