#include "gateway/cli/object_target.h"

#include <algorithm>
#include <charconv>

#include "gateway/cli/operation_result.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/table.h"
#include "gateway/policy/suggest.h"

namespace gateway::cli {
namespace {

using host::store::ObjectRecord;
using host::store::StoreError;
using host::store::StoreStatus;

/// The words of a kind in one form: with "_", and of one of them.
std::string normalised(std::string_view word) {
  std::string text(word);
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == ' ' || c == '-'; }, '_');
  if (text.ends_with('s')) text.pop_back();
  return text;
}

/// \return NotFound for an object of another owner, too
StoreStatus findById(host::store::ObjectStore& store, std::uint32_t id,
                     std::optional<std::uint32_t> owner, ObjectRecord& object) {
  StoreStatus status = store.findObject(id, object);
  if (status.ok() && owner && object.owner != *owner) status.error = StoreError::NotFound;
  return status;
}

int missing(const std::string& what) {
  complain("there is no " + what + " (" + objectRemedy(StoreError::NotFound) + ")");
  return ExitFailed;
}

int outcomeOf(const StoreStatus& status, const std::string& what) {
  if (status.ok()) return ExitDone;
  if (status.error == StoreError::NotFound) return missing(what);
  complain(status.text);
  return ExitFailed;
}

}  // namespace

std::string kindWord(std::uint32_t type) {
  const policy::ObjectKind* kind = policy::findObjectKind(type);
  return kind != nullptr ? normalised(kind->word) : std::to_string(type);
}

const policy::ObjectKind* requireKind(const std::string& word) {
  if (const auto code = parseId(word)) {
    if (const policy::ObjectKind* kind = policy::findObjectKind(*code)) return kind;
  }
  std::vector<std::string> words;
  for (const policy::ObjectKind& kind : policy::allObjectKinds()) {
    words.push_back(normalised(kind.word));
    if (words.back() == normalised(word)) return &kind;
  }
  complain("unknown type of object " + policy::inQuotes(word) + " " +
           policy::remedyFor(word, {words.begin(), words.end()}));
  return nullptr;
}

std::optional<std::uint32_t> parseId(std::string_view text) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  if (text.empty() || fault != std::errc() || rest != end) return std::nullopt;
  return number;
}

int findTarget(host::store::ObjectStore& store, const std::vector<std::string>& arguments,
               std::optional<std::uint32_t> owner, ObjectRecord& object, std::size_t& used) {
  if (arguments.empty()) {
    complain("no object is named (write its ID, or its TYPE and NAME)");
    return ExitUsage;
  }
  if (const auto id = parseId(arguments[0])) {
    used = 1;
    return outcomeOf(findById(store, *id, owner, object), "object " + arguments[0]);
  }
  const policy::ObjectKind* kind = requireKind(arguments[0]);
  if (kind == nullptr) return ExitUsage;
  if (arguments.size() < 2) {
    complain("which " + std::string(kind->word) + "? (write its NAME behind the type)");
    return ExitUsage;
  }
  used = 2;
  std::uint32_t id = 0;
  StoreStatus status =
      store.findObjectNamed(owner.value_or(policy::kPolicyOwner), kind->type, arguments[1], id);
  if (status.ok()) status = store.findObject(id, object);
  return outcomeOf(status, std::string(kind->word) + " " + nameText(arguments[1]));
}

}  // namespace gateway::cli
