#include <algorithm>
#include <utility>
#include <vector>

#include "gateway/cli/report.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using engine::ActionReport;
using engine::RuleReport;
using engine::Verdict;
using host::core::printable;
using host::message::Change;

constexpr std::size_t kMaxListed = 5;
/// Lines of a mail that an action made: its header and the beginning of its text.
constexpr std::size_t kShownMailLines = 40;

const char* wordOf(Change::Kind kind) {
  switch (kind) {
    case Change::Kind::HeaderAdded:
      return "header added";
    case Change::Kind::HeaderChanged:
      return "header changed";
    case Change::Kind::HeaderRemoved:
      return "header removed";
    case Change::Kind::PartAdded:
      return "part added";
    case Change::Kind::PartChanged:
      return "part changed";
    case Change::Kind::PartRemoved:
      return "part removed";
  }
  return "changed";
}

/// "a, b, c and 4 more".
std::string listed(const std::vector<std::string>& texts) {
  std::string out;
  for (std::size_t i = 0; i < std::min(texts.size(), kMaxListed); ++i) {
    if (i != 0) out += ", ";
    out += printable(texts[i]);
  }
  if (texts.size() > kMaxListed)
    out += " and " + std::to_string(texts.size() - kMaxListed) + " more";
  return out;
}

std::string address(const std::string& text) { return "<" + printable(text) + ">"; }

/// "header added: X-Flag (+13 bytes)".
std::string changesOf(const ActionReport& action) {
  std::vector<std::string> texts;
  for (const Change& change : action.changes) {
    std::string text = std::string(wordOf(change.kind)) + ": " + change.what;
    if (change.entityPath != "1") text += " in part " + change.entityPath;
    texts.push_back(std::move(text));
  }
  std::string out = listed(texts);
  if (action.bytesAfter != action.bytesBefore) {
    const bool more = action.bytesAfter > action.bytesBefore;
    const std::size_t bytes =
        more ? action.bytesAfter - action.bytesBefore : action.bytesBefore - action.bytesAfter;
    out += (more ? " (+" : " (-") + counted(bytes, "byte", "bytes") + ")";
  }
  return out;
}

class TextReport {
 public:
  TextReport(const MessageResult& result, const Style& style, bool verbose)
      : result_(result), style_(style), verbose_(verbose) {}

  std::string write() {
    out_ += style_.bold(printable(result_.name));
    if (result_.ran) out_ += style_.dim("  " + counted(result_.bytes, "byte", "bytes"));
    out_ += '\n';
    if (result_.ran) writeRun();
    if (!result_.error.empty()) row("error", style_.bad(printable(result_.error)));
    return std::move(out_);
  }

 private:
  void row(std::string_view label, const std::string& text) {
    out_ += "  " + style_.dim(padded(label, 9)) + text + "\n";
  }

  void writeRun() {
    const auto& envelope = result_.envelope.envelope;
    row("from", address(envelope.sender.value_or("")) + source(result_.envelope.senderSource));
    row("to", recipients(envelope.recipients) + source(result_.envelope.recipientsSource));
    if (verbose_ || result_.outcome.verdict == Verdict::Failed) {
      for (const auto& defect : result_.defects) {
        row("note", style_.doubtful(printable(defect.text)) +
                        style_.dim(" at byte " + withThousands(defect.offset)));
      }
    }
    writeReprocessing();
    for (const RuleReport& rule : result_.outcome.rules) writeRule(rule);
    if (result_.outcome.rules.empty()) row("rules", "none matched");
    row("verdict", verdict());
    if (result_.outputRecipients) row("goes to", recipients(*result_.outputRecipients));
    out_ += changesText(result_, style_);
    if (!result_.output.empty()) row("output", printable(result_.output));
    for (const AdapterCall& call : result_.calls) {
      if (!call.file.empty()) row("filed", printable(call.file));
      if (!call.reason.empty()) row("adapter", call.operation + ": " + style_.bad(call.reason));
    }
  }

  static std::string recipients(const std::vector<std::string>& addresses) {
    std::vector<std::string> texts;
    for (const std::string& address : addresses) texts.push_back("<" + address + ">");
    return texts.empty() ? "nobody" : listed(texts);
  }

  void writeReprocessing() {
    const host::delivery::Reprocessing& fields = result_.outcome.reprocessing;
    if (fields.honoured) {
      std::string ids;
      for (const unsigned int id : fields.rules) ids += " " + std::to_string(id);
      row("rescan", "came back for scanning, skips" + ids);
    } else if (!fields.refusal.empty()) {
      row("rescan", style_.doubtful("reprocessing fields taken out: " + printable(fields.refusal)));
    }
  }

  std::string source(const std::string& where) const { return style_.dim(" (" + where + ")"); }

  void writeRule(const RuleReport& rule) {
    std::string text = style_.bold(std::to_string(rule.id)) + " " + printable(rule.name);
    if (!rule.attachments.empty()) text += style_.dim("  for ") + listed(rule.attachments);
    if (rule.skipped) {
      text += style_.dim("  matched, but skipped: the message came back because of it");
    } else if (!rule.reached)
      text += style_.dim("  matched, but not reached");
    row("rule", text);
    for (const ActionReport& action : rule.actions) writeAction(action);
    if (rule.failureAccepted) writeAccepted(rule);
  }

  void writeAccepted(const RuleReport& rule) {
    const std::string margin(11, ' ');
    out_ += margin + style_.bad("failure accepted") + " (" + printable(engine::whatFailed(rule)) +
            "): goes on as it stood before this rule\n";
    const std::vector<std::string> effects = engine::lastingEffects(rule);
    if (!effects.empty()) out_ += margin + "not undone: " + listed(effects) + "\n";
  }

  void writeAction(const ActionReport& action) {
    std::string called = std::string(action.spec->name);
    if (!action.value.empty()) called += ": " + printable(action.value);
    std::string text = std::string(11, ' ') + padded(called, 28) + " ";
    if (!action.result) {
      text += style_.bad("failed");
      if (!action.failure.empty()) text += ": " + printable(action.failure);
    } else {
      const std::string changes = changesOf(action);
      text += action.disposed ? style_.doubtful("done, disposed of") : style_.good("done");
      if (!changes.empty()) text += ", " + changes;
      if (changes.empty() && !action.disposed) text += style_.dim(", nothing changed");
    }
    out_ += text + "\n";
    for (const engine::HandOver& handOver : action.handOvers) {
      if (handOver.rules.empty()) continue;
      out_ += std::string(13, ' ') + style_.dim("rules to skip: ") + printable(handOver.rules) +
              style_.dim(" as handed over, ") +
              (action.rulesLeft.empty() ? "none" : printable(action.rulesLeft)) +
              style_.dim(" left in the stream") + "\n";
    }
    for (const engine::HandOver& handOver : action.handOvers) {
      if (handOver.mail) {
        writeMail(*handOver.mail);
      } else if (isSent(handOver)) {
        writeEnvelope(handOver.operation, handOver.sender, handOver.recipients);
      }
    }
    for (const host::trap::RecordedTrap& trap : action.traps) {
      out_ += std::string(13, ' ') + style_.dim("trap to ") + printable(trap.server) +
              (trap.version == SNMPTrapVersion::V2c ? ", SNMPv2c" : ", SNMPv1") + ", type " +
              std::to_string(trap.specificType) + ": " + printable(trap.text) + "\n";
    }
    for (const auto& line : action.log) {
      // A failure gives its reason even when nobody asked for the log.
      if (!verbose_ && (action.result || line.level > 2)) continue;
      out_ += std::string(13, ' ') + style_.dim("log " + std::to_string(line.level) + "  ") +
              printable(line.text) + "\n";
    }
  }

  static bool isSent(const engine::HandOver& handOver) {
    const std::string& what = handOver.operation;
    return handOver.error == 0 && (what == "resend" || what == "deliver" || what == "handoff");
  }

  /// "WHAT from <a@x.example> to <b@x.example>".
  void writeEnvelope(const std::string& what, const std::string& sender,
                     const std::vector<std::string>& rcpt) {
    out_ += std::string(13, ' ') + style_.dim(what + " from ") + address(sender) +
            style_.dim(" to ") + recipients(rcpt) + "\n";
  }

  /// A mail that an action made: whom it goes to and, when asked for, how it begins.
  void writeMail(const engine::OwnMail& mail) {
    const std::string margin(13, ' ');
    writeEnvelope("mail", mail.sender, mail.recipients);
    if (!verbose_) return;
    std::size_t lines = 0;
    for (std::size_t at = 0; at < mail.bytes.size(); ++lines) {
      const std::size_t end = std::min(mail.bytes.find('\n', at), mail.bytes.size());
      std::string_view line(mail.bytes.data() + at, end - at);
      if (line.ends_with('\r')) line.remove_suffix(1);
      if (lines < kShownMailLines) out_ += margin + "  " + printable(line) + "\n";
      at = end + 1;
    }
    if (lines > kShownMailLines) {
      out_ += margin + "  " +
              style_.dim("... " + std::to_string(lines - kShownMailLines) + " more lines") + "\n";
    }
  }

  std::string verdict() const {
    switch (result_.outcome.verdict) {
      case Verdict::Unchanged:
        return style_.good("unchanged") + ": goes on byte for byte as it came";
      case Verdict::Changed:
        return style_.notable("changed") + ": goes on with " +
               counted(result_.outputBytes, "byte", "bytes");
      case Verdict::Disposed:
        return style_.doubtful("disposed of") + ": does not go on";
      case Verdict::Rejected:
        return style_.doubtful("rejected") + ": does not go on" + answer();
      case Verdict::TempFailed:
        return style_.doubtful("refused for now") + ": does not go on, stays with its sender" +
               answer();
      case Verdict::Failed:
        break;
    }
    std::string text = style_.bad("failed") + ": stands as it came";
    if (result_.outcome.disposed) text += ", though an action had disposed of it";
    if (!result_.outcome.failure.empty()) text += " (" + printable(result_.outcome.failure) + ")";
    return text;
  }

  /// What a rule's verdict tells the sender.
  std::string answer() const {
    return " (rule " + std::to_string(result_.outcome.verdictRule) + ": " +
           printable(result_.outcome.verdictText) + ")";
  }

  const MessageResult& result_;
  const Style& style_;
  bool verbose_;
  std::string out_;
};

}  // namespace

std::string textReport(const MessageResult& result, const Style& style, bool verbose) {
  return TextReport(result, style, verbose).write();
}

void Summary::add(const MessageResult& result) {
  if (!result.ran) {
    ++unreadable_;
    return;
  }
  ++messages_;
  if (!result.error.empty()) ++unwritten_;
  switch (result.outcome.verdict) {
    case Verdict::Unchanged:
      ++unchanged_;
      break;
    case Verdict::Changed:
      ++changed_;
      break;
    case Verdict::Disposed:
      ++disposed_;
      break;
    case Verdict::Rejected:
      ++rejected_;
      break;
    case Verdict::TempFailed:
      ++tempFailed_;
      break;
    case Verdict::Failed:
      ++failed_;
      break;
  }
  for (const RuleReport& rule : result.outcome.rules) ++matches_[{rule.id, rule.name}];
}

std::string Summary::brief() const {
  std::string text =
      std::to_string(changed_) + " changed, " + std::to_string(disposed_) + " disposed of";
  if (rejected_ != 0) text += ", " + std::to_string(rejected_) + " rejected";
  if (tempFailed_ != 0) text += ", " + std::to_string(tempFailed_) + " refused for now";
  if (failed_ != 0) text += ", " + std::to_string(failed_) + " failed";
  if (unreadable_ != 0) text += ", " + std::to_string(unreadable_) + " unreadable";
  return text;
}

std::string Summary::text(const Style& style, double seconds) const {
  char time[32];
  static_cast<void>(std::snprintf(time, sizeof time, "%.2f s", seconds));
  std::string out =
      style.bold(counted(messages_, "message", "messages")) + style.dim(" in ") + time;
  out += ": " + style.good(withThousands(unchanged_) + " unchanged");
  out += ", " + style.notable(withThousands(changed_) + " changed");
  out += ", " + style.doubtful(withThousands(disposed_) + " disposed of");
  if (rejected_ != 0) out += ", " + style.doubtful(withThousands(rejected_) + " rejected");
  if (tempFailed_ != 0) {
    out += ", " + style.doubtful(withThousands(tempFailed_) + " refused for now");
  }
  if (failed_ != 0) out += ", " + style.bad(withThousands(failed_) + " failed");
  if (unreadable_ != 0) out += ", " + style.bad(withThousands(unreadable_) + " unreadable");
  if (unwritten_ != 0) out += ", " + style.bad(withThousands(unwritten_) + " not written");
  out += '\n';
  for (const auto& [rule, count] : matches_) {
    out += "  rule " + std::to_string(rule.first) + " " + printable(rule.second) +
           style.dim("  matched " + counted(count, "message", "messages")) + "\n";
  }
  return out;
}

}  // namespace gateway::cli
