#include "gateway/policy/matcher.h"

#include <algorithm>

#include "gateway/scan/message_facts.h"

namespace gateway::policy {
namespace {

using Kind = Condition::Kind;

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

Patterns compile(const Condition& condition) {
  const bool globs =
      condition.kind == Kind::AttachmentName || condition.kind == Kind::AttachmentType;
  return globs ? Patterns::glob(condition.patterns) : Patterns::regex(condition.patterns);
}

bool anyMatches(const Patterns& patterns, const std::vector<std::string>& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [&patterns](const std::string& text) { return patterns.matches(text); });
}

}  // namespace

std::vector<std::string> nameForms(const std::string& fileName) {
  std::vector<std::string> forms = {fileName};
  std::string bare = fileName;
  if (const std::size_t folder = bare.find_last_of("/\\"); folder != std::string::npos) {
    bare.erase(0, folder + 1);
  }
  const std::size_t last = bare.find_last_not_of(". \t");
  bare.erase(last == std::string::npos ? 0 : last + 1);
  if (!bare.empty() && bare != fileName) forms.push_back(bare);
  return forms;
}

Matcher::Matcher(const Condition& condition)
    : kind_(condition.kind),
      name_(lowered(condition.name)),
      patterns_(compile(condition)),
      anyValue_(condition.kind == Kind::Header && condition.patterns.empty()),
      over_(condition.over.value_or(0)),
      under_(condition.under.value_or(0)),
      hasOver_(condition.over.has_value()),
      hasUnder_(condition.under.has_value()),
      marks_(condition.kind == Kind::AttachmentName || condition.kind == Kind::AttachmentType) {
  children_.reserve(condition.children.size());
  for (const Condition& child : condition.children) {
    children_.emplace_back(child);
    marks_ = marks_ || children_.back().marks_;
  }
}

bool Matcher::matches(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const {
  marked.clear();
  if (!holds(facts, marked)) {
    marked.clear();
    return false;
  }
  std::sort(marked.begin(), marked.end());
  marked.erase(std::unique(marked.begin(), marked.end()), marked.end());
  return true;
}

bool Matcher::holds(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const {
  switch (kind_) {
    case Kind::Always:
      return true;
    case Kind::Header: {
      const std::vector<std::string>& values = facts.headers(name_);
      return anyValue_ ? !values.empty() : anyMatches(patterns_, values);
    }
    case Kind::Subject:
      return anyMatches(patterns_, facts.subjects());
    case Kind::Sender:
      return patterns_.matches(facts.sender());
    case Kind::Recipient:
      return anyMatches(patterns_, facts.recipients());
    case Kind::Size:
      return (!hasOver_ || facts.size() > over_) && (!hasUnder_ || facts.size() < under_);
    case Kind::AttachmentName:
    case Kind::AttachmentType:
      return marksAttachments(facts, marked);
    case Kind::All:
      return holdsForAll(facts, marked);
    case Kind::Any:
      return holdsForAny(facts, marked);
    case Kind::Not: {
      std::vector<std::size_t> ignored;
      return !children_.front().holds(facts, ignored);
    }
  }
  return false;
}

bool Matcher::holdsForAll(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const {
  const std::size_t before = marked.size();
  for (const Matcher& child : children_) {
    if (child.holds(facts, marked)) continue;
    marked.resize(before);
    return false;
  }
  return true;
}

bool Matcher::holdsForAny(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const {
  bool held = false;
  for (const Matcher& child : children_) {
    // Once one holds, the others are asked for the attachments that they mark only.
    if (!held || child.marks_) held = child.holds(facts, marked) || held;
  }
  return held;
}

bool Matcher::marksAttachments(const scan::MessageFacts& facts,
                               std::vector<std::size_t>& marked) const {
  const std::size_t before = marked.size();
  const std::vector<scan::Attachment>& attachments = facts.attachments();
  for (std::size_t i = 0; i < attachments.size(); ++i) {
    const scan::Attachment& attachment = attachments[i];
    const bool match = kind_ == Kind::AttachmentType
                           ? anyMatches(patterns_, attachment.types)
                           : std::any_of(attachment.fileNames.begin(), attachment.fileNames.end(),
                                         [this](const std::string& name) {
                                           return anyMatches(patterns_, nameForms(name));
                                         });
    if (match) marked.push_back(i);
  }
  return marked.size() != before;
}

}  // namespace gateway::policy
