#include "gateway/policy/rule_options.h"

#include <algorithm>
#include <cctype>

#include "gateway/policy/suggest.h"

namespace gateway::policy {
namespace {

constexpr char kExample[] = "(write: verdict: {reject: We do not take such mail})";

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

/// "550", "550-", "5.7.1": what the gateway puts in front by itself.
bool beginsWithCode(std::string_view text) {
  const std::string_view word = text.substr(0, text.find_first_of(" -"));
  if (word.size() < 3 || !isDigit(word[0])) return false;
  const bool isReply = word.size() == 3 && isDigit(word[1]) && isDigit(word[2]);
  const bool isEnhanced =
      word[1] == '.' &&
      std::all_of(word.begin(), word.end(), [](char c) { return isDigit(c) || c == '.'; }) &&
      std::count(word.begin(), word.end(), '.') == 2;
  return isReply || isEnhanced;
}

}  // namespace

std::string_view wordOf(OnFailure onFailure) {
  return onFailure == OnFailure::Accept ? "accept" : "tempfail";
}

std::string_view wordOf(RuleVerdict::Kind kind) {
  switch (kind) {
    case RuleVerdict::Kind::None:
      break;
    case RuleVerdict::Kind::Reject:
      return "reject";
    case RuleVerdict::Kind::TempFail:
      return "tempfail";
  }
  return {};
}

bool readOnFailure(const Node& value, OnFailure& onFailure, const FaultSink& fault) {
  for (const OnFailure each : {OnFailure::TempFail, OnFailure::Accept}) {
    if (value.kind != Node::Kind::Scalar || value.text != wordOf(each)) continue;
    onFailure = each;
    return true;
  }
  fault(value.line,
        value.kind == Node::Kind::Scalar
            ? "'on_failure' is " + inQuotes(value.text) + " " +
                  remedyFor(value.text, {wordOf(OnFailure::Accept), wordOf(OnFailure::TempFail)})
            : "'on_failure' is one word (write accept or tempfail)");
  return false;
}

bool readVerdict(const Node& value, RuleVerdict& verdict, const FaultSink& fault) {
  if (value.kind != Node::Kind::Map || value.members.empty()) {
    fault(value.line, std::string("a verdict is an answer with its text ") + kExample);
    return false;
  }
  if (value.members.size() > 1) {
    fault(value.line, "a verdict has one key, this one has " + inQuotes(value.members[0].key) +
                          " and " + inQuotes(value.members[1].key) + " (keep one)");
    return false;
  }
  const Node::Member& member = value.members.front();
  RuleVerdict found;
  for (const auto kind : {RuleVerdict::Kind::Reject, RuleVerdict::Kind::TempFail}) {
    if (member.key == wordOf(kind)) found.kind = kind;
  }
  if (found.kind == RuleVerdict::Kind::None) {
    fault(member.line, "unknown verdict " + inQuotes(member.key) + " " +
                           remedyFor(member.key, {wordOf(RuleVerdict::Kind::Reject),
                                                  wordOf(RuleVerdict::Kind::TempFail)}));
    return false;
  }
  if (member.value->kind != Node::Kind::Scalar) {
    fault(member.line, "verdict '" + member.key + "' needs a text " + kExample);
    return false;
  }
  found.text = member.value->text;
  if (const std::string wrong = verdictFault(found); !wrong.empty()) {
    fault(member.line, wrong);
    return false;
  }
  verdict = std::move(found);
  return true;
}

std::string verdictTextFault(std::string_view text) {
  if (text.empty()) return std::string("is empty ") + kExample;
  if (text.find_first_of("\r\n") != std::string_view::npos) {
    return "has a line break: it is told in one line (in YAML, '>-' makes one line of several)";
  }
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) {
    return "holds a character that is no printable ASCII, which is all that mail servers may tell "
           "each other (write it without)";
  }
  if (text.front() == ' ' || text.back() == ' ')
    return "begins or ends with a blank (leave it out)";
  if (text.size() > kMaxVerdictText) {
    return "has " + std::to_string(text.size()) + " characters (at most " +
           std::to_string(kMaxVerdictText) + ": a reply is one short line)";
  }
  if (beginsWithCode(text)) {
    return "begins with a code, " + inQuotes(text.substr(0, text.find(' '))) +
           " (leave it out: the gateway puts 550 5.7.1 or 451 4.7.1 in front)";
  }
  return {};
}

std::string verdictFault(const RuleVerdict& verdict) {
  if (verdict.kind == RuleVerdict::Kind::None) return {};
  const std::string fault = verdictTextFault(verdict.text);
  if (fault.empty()) return {};
  return "the text of verdict '" + std::string(wordOf(verdict.kind)) + "' " + fault;
}

}  // namespace gateway::policy
