#include "gateway/cli/object_target.h"

#include <algorithm>
#include <charconv>

#include "gateway/cli/operation_result.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/table.h"
#include "gateway/policy/suggest.h"

namespace gateway::cli {
namespace {

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
               std::optional<std::uint32_t> owner, std::uint32_t& id, std::size_t& used) {
  if (arguments.empty()) {
    complain("no object is named (write its ID, or its TYPE and NAME)");
    return ExitUsage;
  }
  if (const auto number = parseId(arguments[0])) {
    used = 1;
    id = *number;
    return ExitDone;
  }
  const policy::ObjectKind* kind = requireKind(arguments[0]);
  if (kind == nullptr) return ExitUsage;
  if (arguments.size() < 2) {
    complain("which " + std::string(kind->word) + "? (write its NAME behind the type)");
    return ExitUsage;
  }
  used = 2;
  const StoreStatus status =
      store.findObjectNamed(owner.value_or(policy::kPolicyOwner), kind->type, arguments[1], id);
  if (status.ok()) return ExitDone;
  if (status.error == StoreError::NotFound) {
    complain("there is no " + std::string(kind->word) + " " + nameText(arguments[1]) + " (" +
             objectRemedy(status.error) + ")");
  } else {
    complain(status.text);
  }
  return ExitFailed;
}

}  // namespace gateway::cli
