#include "gateway/cli/operation_result.h"

#include <algorithm>
#include <iterator>

#include "host/core/text_escape.h"
#include "host/store/configured_store.h"
#include "library/namedobj/name_object_access.h"

namespace gateway::cli {
namespace {

using host::store::StoreError;
using Access = NameObjectAccess;

struct CodeRow {
  int code;
  const char* word;
  const char* meaning;
  bool isStore;  ///< the store said more about it
};

constexpr CodeRow kCodes[] = {
    {Access::Success, "Success", "", false},
    {Access::MissingArgument, "MissingArgument",
     "a name, a settings string or a list of ids is missing or empty (give one)", false},
    {Access::ReservedName, "ReservedName",
     "names that begin with \"OPP:\" are reserved (choose another)", false},
    {Access::AddRefused, "AddRefused", "the store did not add the object", true},
    {Access::ModifyRefused, "ModifyRefused", "the store did not change the object", true},
    {Access::ListFailed, "ListFailed", "the store could not list the objects", true},
    {Access::ReadFailed, "ReadFailed", "the store could not read an object", true},
    {Access::kRemoveFailed, "RemoveFailed", "the store did not answer", false},
};

struct ErrorRow {
  StoreError error;
  const char* word;
  const char* remedy;
};

constexpr ErrorRow kErrors[] = {
    {StoreError::None, "Success", ""},
    {StoreError::InvalidArgument, "InvalidArgument", ""},
    {StoreError::NotFound, "NotFound", "kavi object list shows what is there"},
    {StoreError::Conflict, "Conflict", "try again"},
    {StoreError::InUse, "InUse", ""},
    {StoreError::NameTaken, "NameTaken", "choose another name, or update that object"},
    {StoreError::Unavailable, "Unavailable", ""},
    {StoreError::Busy, "Busy", ""},
    {StoreError::Full, "Full", ""},
    {StoreError::ReadOnly, "ReadOnly", ""},
    {StoreError::Permission, "Permission", ""},
    {StoreError::Damaged, "Damaged", ""},
    {StoreError::TooNew, "TooNew", ""},
    {StoreError::InputOutput, "InputOutput", ""},
    {StoreError::OutOfMemory, "OutOfMemory", ""},
    {StoreError::Internal, "Internal", ""},
};

const CodeRow* findCode(int code) {
  const auto* row = std::find_if(std::begin(kCodes), std::end(kCodes),
                                 [code](const CodeRow& known) { return known.code == code; });
  return row == std::end(kCodes) ? nullptr : row;
}

const ErrorRow& errorRow(StoreError error) {
  const auto* row = std::find_if(std::begin(kErrors), std::end(kErrors),
                                 [error](const ErrorRow& known) { return known.error == error; });
  return row == std::end(kErrors) ? *std::prev(std::end(kErrors)) : *row;
}

std::string withRemedy(std::string text, StoreError error) {
  if (const char* remedy = objectRemedy(error); *remedy != '\0') {
    text += std::string(" (") + remedy + ")";
  }
  return text;
}

}  // namespace

OperationResult resultOf(int code) {
  const CodeRow* row = findCode(code);
  if (row == nullptr) return {code, "unknown", "a result that this program does not know"};
  OperationResult result{code, row->word, row->meaning};
  const host::store::StoreStatus status = host::store::lastObjectOperation();
  if (row->isStore && !status.ok()) {
    result.meaning = withRemedy(result.meaning + ": " + status.text, status.error);
  }
  return result;
}

OperationResult removalOf(int code) {
  if (code == Access::kRemoveFailed) return resultOf(code);
  const host::store::StoreStatus status = host::store::lastObjectOperation();
  OperationResult result{code, errorRow(static_cast<StoreError>(code)).word, ""};
  if (code != 0) {
    result.meaning =
        withRemedy("the store did not remove the object: " + status.text, status.error);
  }
  return result;
}

std::string resultText(const OperationResult& result) {
  std::string text = "result " + std::to_string(result.code) + " (" + result.word + ")";
  if (!result.meaning.empty()) text += ": " + host::core::printable(result.meaning);
  return text;
}

const char* objectRemedy(StoreError error) { return errorRow(error).remedy; }

}  // namespace gateway::cli
