#include "gateway/policy/lint.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/condition.h"
#include "gateway/policy/named_objects.h"
#include "gateway/policy/rule_options.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/token_check.h"

namespace gateway::policy {
namespace {

/// What stands in brackets at the start of a regular expression and reads as a word, such as a tag
/// in a subject: more letters than anybody lists for a set, and nothing that repeats it.
std::string wordReadAsSet(const std::string& pattern) {
  constexpr std::size_t kShortestWord = 4;
  const std::size_t close = pattern.find(']');
  if (!pattern.starts_with('[') || close == std::string::npos || close <= kShortestWord) return {};
  const std::string word = pattern.substr(1, close - 1);
  const bool isWord = std::all_of(word.begin(), word.end(),
                                  [](unsigned char c) { return std::isalpha(c) != 0 || c == ' '; });
  const bool isRepeated =
      close + 1 < pattern.size() &&
      std::string_view("*+?{").find(pattern[close + 1]) != std::string_view::npos;
  return isWord && !isRepeated ? word : std::string();
}

class Linter {
 public:
  Linter(const PolicyRows& rows, const SourceLines& lines, Diagnostics& diagnostics)
      : rows_(rows), lines_(lines), diagnostics_(diagnostics) {}

  void run() {
    if (rows_.rules.empty()) {
      diagnostics_.warning(0, "", "there are no rules: every message passes unchanged");
    }
    for (std::size_t i = 0; i < rows_.rules.size(); ++i) lintRule(i);
    for (std::size_t i = 0; i < rows_.objects.size(); ++i) {
      lintObject(i);
      if (used_.count(rows_.objects[i].id) != 0) continue;
      diagnostics_.warning(lines_.ofObject(i), "",
                           "no rule refers to " + inQuotes(rows_.objects[i].name) +
                               " (remove it, or leave it for later)");
    }
  }

 private:
  void warn(int line, std::string message) {
    diagnostics_.warning(line, place_, std::move(message));
  }

  void lintObject(std::size_t index) {
    const NamedObjectRow& row = rows_.objects[index];
    if (row.name.starts_with("OPP:")) {
      diagnostics_.warning(lines_.ofObject(index), "",
                           "name " + inQuotes(row.name) +
                               " is reserved: kavi object refuses those that begin with OPP: "
                               "(choose another)");
    }
    const ObjectKind* kind = findObjectKind(row.type);
    const std::string doubt =
        kind != nullptr ? kind->doubtAbout(row.name, row.setting) : std::string();
    if (doubt.empty()) return;
    diagnostics_.warning(lines_.ofObject(index), "",
                         std::string(kind->word) + " " + inQuotes(row.name) + " " + doubt);
  }

  void lintRule(std::size_t index) {
    const RuleRow& rule = rows_.rules[index];
    const int line = lines_.ofRule(index);
    place_ = "rule " + std::to_string(rule.id);
    if (const auto [first, isNew] = names_.emplace(rule.name, rule.id); !isNew) {
      warn(line, "name " + inQuotes(rule.name) + " is also that of rule " +
                     std::to_string(first->second) + " (reports cannot tell them apart)");
    }
    if (!rule.enabled) warn(line, "is switched off (enabled: false)");
    if (rule.actions.empty() && rule.verdict.kind == RuleVerdict::Kind::None)
      warn(line, "has no actions: matches are reported and nothing is done");
    const auto condition = parseCanonicalText(rule.condition, [](int, const std::string&) {});
    if (condition) lintCondition(*condition, line);
    if (rule.enabled) lintReach(index, condition && condition->kind == Condition::Kind::Always);
    lintActions(index);
    lintPostponing(rule, line);
    lintOptions(rule, line);
    if (condition && !marksAttachments(*condition)) lintMarks(index);
  }

  /// Whether \p condition can hold because of attachments.
  static bool marksAttachments(const Condition& condition) {
    if (condition.kind == Condition::Kind::Not) return false;
    return condition.kind == Condition::Kind::AttachmentName ||
           condition.kind == Condition::Kind::AttachmentType ||
           std::any_of(condition.children.begin(), condition.children.end(), marksAttachments);
  }

  /// Actions on matching attachments of a rule that never matches any.
  void lintMarks(std::size_t index) {
    const RuleRow& rule = rows_.rules[index];
    for (std::size_t i = 0; i < rule.actions.size(); ++i) {
      const ActionRow& action = rule.actions[i];
      std::string which;
      if (action.type != KaviAction::DeleteAttachment ||
          !findAction(action.type)->decode(action.setting, which) || which != "matching") {
        continue;
      }
      warn(lines_.ofAction(index, i),
           "action 'delete_attachments' removes nothing: the rule has no condition on attachments "
           "(add attachment_name or attachment_type, or write all)");
    }
  }

  /// Rules behind one that takes every message.
  void lintReach(std::size_t index, bool always) {
    const RuleRow& rule = rows_.rules[index];
    if (!endOfAll_.empty()) {
      warn(lines_.ofRule(index), "is never reached: " + endOfAll_ + " every message");
      return;
    }
    // A rule whose failure is accepted lets the message go on to those behind it.
    if (!always || (rule.onFailure == OnFailure::Accept && !rule.actions.empty())) return;
    if (rule.verdict.kind != RuleVerdict::Kind::None) {
      endOfAll_ = place_ + " refuses";
    } else if (disposerOf(rule) != nullptr) {
      endOfAll_ = place_ + " takes";
    }
  }

  /// The first action that takes the message out of the stream; null when there is none.
  static const ActionSpec* disposerOf(const RuleRow& rule) {
    for (const ActionRow& action : rule.actions) {
      const ActionSpec* spec = findAction(action.type);
      if (spec != nullptr && spec->disposes) return spec;
    }
    return nullptr;
  }

  /// Whether an action of \p rule, met twice by the same message, does its work twice.
  static bool repeatsItself(const RuleRow& rule) {
    return std::any_of(rule.actions.begin(), rule.actions.end(), [](const ActionRow& action) {
      const ActionSpec* spec = findAction(action.type);
      // The field is set to the same value again, and attachments that were removed are gone.
      return spec != nullptr && !spec->doesNothing && spec->type != KaviAction::InsertXHeaderTag &&
             spec->type != KaviAction::DeleteAttachment;
    });
  }

  /// A postponed message comes back as it was changed so far, and only the rule that postponed it
  /// is skipped then.
  void lintPostponing(const RuleRow& rule, int line) {
    if (!rule.enabled) return;
    const ActionSpec* disposer = disposerOf(rule);
    if (disposer != nullptr && disposer->type == KaviAction::Postpone && !repeating_.empty()) {
      warn(line, "postpones what " + repeating_ +
                     " may have worked on before: that acts again when the mail comes back (put "
                     "the rule that postpones first)");
    }
    // A message that another rule took does not get here.
    const bool goesOn = disposer == nullptr && rule.verdict.kind == RuleVerdict::Kind::None;
    if (goesOn && repeating_.empty() && repeatsItself(rule)) repeating_ = place_;
  }

  void lintOptions(const RuleRow& rule, int line) {
    const ActionSpec* disposer = disposerOf(rule);
    if (rule.onFailure == OnFailure::Accept && rule.actions.empty()) {
      warn(line, "'on_failure: accept' says nothing: the rule has no actions (remove it)");
    }
    if (rule.verdict.kind != RuleVerdict::Kind::None) lintVerdict(rule, disposer, line);
  }

  void lintVerdict(const RuleRow& rule, const ActionSpec* disposer, int line) {
    const std::string called = "verdict '" + std::string(wordOf(rule.verdict.kind)) + "'";
    if (disposer != nullptr) {
      warn(line, called + " comes behind action '" + std::string(disposer->name) +
                     "', which takes the message: the sender is told that it was refused (keep "
                     "one; archive keeps a copy)");
    }
    const ActionSpec* last = rule.actions.empty() ? nullptr : findAction(rule.actions.back().type);
    if (last != nullptr && last->changesMessage) {
      warn(line, called + " refuses the message that action '" + std::string(last->name) +
                     "' changes: nobody sees the change (remove the action)");
    }
    if (const std::string token = firstToken(rule.verdict.text); !token.empty()) {
      warn(line, called + " tells " + token + " as it stands: tokens are not replaced in it");
    }
  }

  void lintActions(std::size_t index) {
    const RuleRow& rule = rows_.rules[index];
    std::map<std::pair<int, std::string>, bool> seen;
    const ActionSpec* disposer = nullptr;
    for (std::size_t i = 0; i < rule.actions.size(); ++i) {
      const ActionSpec* spec = findAction(rule.actions[i].type);
      if (spec == nullptr) continue;
      for (const unsigned int id : spec->objectIds(rule.actions[i].setting)) used_.insert(id);
      const std::string called = "action '" + std::string(spec->name) + "'";
      const int line = lines_.ofAction(index, i);
      if (spec->doesNothing) warn(line, called + " does nothing (remove it)");
      const bool isNew = seen.emplace(std::pair(spec->type, rule.actions[i].setting), true).second;
      if (!isNew && !spec->disposes && !spec->doesNothing) {
        warn(line, called + " stands twice with the same value (remove one)");
      }
      if (disposer != nullptr && spec->disposes) {
        warn(line, called + " and '" + std::string(disposer->name) +
                       "' both dispose of the message (keep one)");
      } else if (disposer != nullptr && spec->changesMessage) {
        warn(line, called + " comes behind '" + std::string(disposer->name) +
                       "', which has disposed of the message: its change is lost (put it first)");
      }
      if (disposer != nullptr && !spec->disposes && !spec->changesMessage && !spec->doesNothing) {
        warn(line, called + " comes behind '" + std::string(disposer->name) +
                       "': when it fails, the message is disposed of and yet " +
                       (rule.onFailure == OnFailure::Accept ? "goes on" : "stays") +
                       " (put it first)");
      }
      if (spec->disposes && disposer == nullptr) disposer = spec;
      const std::string doubt =
          spec->doubt != nullptr ? spec->doubt(rule.actions[i].setting) : std::string();
      if (!doubt.empty()) warn(line, std::string(called).append(" ").append(doubt));
    }
  }

  void lintCondition(const Condition& condition, int line) {
    if (condition.kind == Condition::Kind::AttachmentName) {
      for (const std::string& glob : condition.patterns) lintNameGlob(glob, line);
    } else if (condition.kind != Condition::Kind::AttachmentType) {
      for (const std::string& regex : condition.patterns) lintRegex(regex, line);
    } else {
      for (const std::string& glob : condition.patterns) {
        if (glob.find('/') == std::string::npos && glob.find('*') == std::string::npos) {
          warn(line, "attachment_type " + inQuotes(glob) +
                         " matches no type (write: " + inQuotes("*/" + glob) + ")");
        }
      }
    }
    for (const Condition& child : condition.children) lintCondition(child, line);
  }

  void lintRegex(const std::string& regex, int line) {
    const std::string word = wordReadAsSet(regex);
    if (word.empty()) return;
    warn(line, "regular expression " + inQuotes(regex) + " looks for any one character of '" +
                   word + "' (write: '\\[" + word + "\\]' for the word in brackets)");
  }

  void lintNameGlob(const std::string& glob, int line) {
    if (glob.find(".*\\.") != std::string::npos || (glob.front() == '^' || glob.back() == '$')) {
      warn(line, "attachment_name " + inQuotes(glob) +
                     " looks like a regular expression; names are matched by globs (write: "
                     "'*.exe')");
    } else if (glob.find_first_of("*?[.", glob.front() == '.' ? 1 : 0) == std::string::npos) {
      const std::string extension = (glob.front() == '.' ? "*" : "*.") + glob;
      warn(line, "attachment_name " + inQuotes(glob) +
                     " matches a file of just that name (write: " + inQuotes(extension) +
                     " for an extension)");
    }
  }

  const PolicyRows& rows_;
  const SourceLines& lines_;
  Diagnostics& diagnostics_;
  std::string place_;
  std::string endOfAll_;  ///< the rule that no message gets past, and why, once there is one
  std::string
      repeating_;  ///< the first rule that acts on what goes on, and acts twice if met twice
  std::unordered_map<std::string, unsigned int> names_;
  std::unordered_set<unsigned int> used_;  ///< ids of the objects that actions refer to
};

}  // namespace

void lintPolicy(const PolicyRows& rows, const SourceLines& lines, Diagnostics& diagnostics) {
  Linter(rows, lines, diagnostics).run();
}

}  // namespace gateway::policy
