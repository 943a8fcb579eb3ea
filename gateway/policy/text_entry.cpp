#include "gateway/policy/text_entry.h"

#include "gateway/policy/suggest.h"
#include "gateway/policy/text_file.h"

namespace gateway::policy {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Why \p node is no single text; empty for what is one or nothing at all.
std::string faultOfKind(const Node& node) {
  switch (node.kind) {
    case Node::Kind::Binary:
      return "is not UTF-8 text (write it as plain UTF-8)";
    case Node::Kind::List:
      // A field that is given again makes a list, which has no line.
      return node.line == 0 ? "is given more than once (give one)" : "is a list (write one text)";
    default:
      return {};
  }
}

bool readFile(const ObjectEntry& entry, const TextEntry& wanted, const Node& file,
              std::string& content, std::string& called, const FaultSink& fault) {
  const std::string key(wanted.fileKey);
  if (!entry.folder) {
    fault(file.line,
          key + ": is for policies in files (write " + std::string(wanted.key) + ": instead)");
    return false;
  }
  const bool isAbsolute = file.text.front() == '/';
  const std::string path = isAbsolute ? file.text : *entry.folder + file.text;
  called = "file " + inQuotes(path);
  const FileKind kind = entry.mayNamePipes ? FileKind::Given : FileKind::Regular;
  const std::string reason = file.text.find('\0') == std::string::npos
                                 ? readTextFile(path, kind, wanted.maxBytes, content)
                                 : "has a NUL in its name";
  if (!reason.empty()) {
    fault(file.line,
          called + " " + reason + " (a relative name starts from the folder of the policy)");
    return false;
  }
  if (content.starts_with(kByteOrderMark)) content.erase(0, kByteOrderMark.size());
  return true;
}

}  // namespace

bool readTextEntry(const ObjectEntry& entry, const TextEntry& wanted, std::string& content,
                   int& line, const FaultSink& fault) {
  const std::string owner(wanted.owner);
  const std::string key(wanted.key);
  const std::string fileKey(wanted.fileKey);
  const Node* const text = entry.item.find(wanted.key);
  const Node* const file = entry.item.find(wanted.fileKey);
  line = entry.item.line;
  if ((text == nullptr) == (file == nullptr)) {
    fault(line, text == nullptr
                    ? owner + " has no " + key + " (write " + key + ": or " + fileKey + ":)"
                    : owner + " has a " + key + " and a " + fileKey + " (keep one of them)");
    return false;
  }
  const Node& source = text != nullptr ? *text : *file;
  line = source.line;
  if (const std::string reason = faultOfKind(source); !reason.empty()) {
    fault(line, (text != nullptr ? "the " + key : fileKey + ":") + " " + reason);
    return false;
  }
  if (source.kind != Node::Kind::Scalar || source.text.empty()) {
    fault(line, (text != nullptr ? "the " + key + " is empty" : fileKey + ": names no file") +
                    " (write " + std::string(wanted.example) + ")");
    return false;
  }
  content = source.text;
  std::string called = "the " + key;
  if (file != nullptr && !readFile(entry, wanted, *file, content, called, fault)) return false;
  if (const auto found = findTextFault(content)) {
    const std::string where = file != nullptr ? " in line " + std::to_string(found->line) : "";
    fault(line, called + " has" + where + " " + found->reason);
    return false;
  }
  if (content.size() > wanted.maxBytes) {
    fault(line,
          called + " is longer than " + std::to_string(wanted.maxBytes) + " bytes (shorten it)");
    return false;
  }
  return true;
}

}  // namespace gateway::policy
