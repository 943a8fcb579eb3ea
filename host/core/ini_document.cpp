#include "host/core/ini_document.h"

#define SI_NO_CONVERSION  // bytes are kept as they stand
#include <SimpleIni.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/core/file_ops.h"
#include "host/core/input_file.h"
#include "host/core/text_escape.h"

namespace host::core {

namespace {

constexpr std::size_t kMaxReportedFaults = 10;
constexpr std::size_t kQuotedBytes = 40;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string lowered(std::string_view name) {
  std::string out(name);
  std::transform(out.begin(), out.end(), out.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return out;
}

std::string quoted(std::string_view text) {
  const bool cut = text.size() > kQuotedBytes;
  return "'" + printable(text.substr(0, kQuotedBytes)) + (cut ? "...'" : "'");
}

bool isBlankOrComment(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t");
  return first == std::string_view::npos || line[first] == ';' || line[first] == '#';
}

// Takes one line off `text`; LF, CR LF and CR end a line.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end);
  if (text.substr(0, 2) == "\r\n") {
    text.remove_prefix(2);
  } else if (!text.empty()) {
    text.remove_prefix(1);
  }
  return line;
}

// Reads `path` whole into `text`. Returns the reason when it cannot be read, else "".
std::string readFile(const std::string& path, std::string& text) {
  FileOps& ops = FileOps::system();
  Descriptor file;
  const int fault = openInput(path, file);
  if (fault == kNoRegularFile) return "it is no regular file";
  if (fault != 0) return std::strerror(fault);
  const int result = ops.readAll(file.get(), IniDocument::kMaxBytes, text);
  if (result == -EFBIG)
    return "it is larger than " + std::to_string(IniDocument::kMaxBytes) + " bytes";
  return result < 0 ? std::strerror(-result) : "";
}
}  // namespace

// Hands the text to the INI library line by line: the library says what a line is and what it
// holds, and every fault can name its line.
class IniDocument::Parser {
 public:
  Parser(const std::string& origin, std::map<Name, Value>& values)
      : origin_(origin), values_(values) {}

  void takeLine(std::string_view line) {
    ++line_;
    if (isBlankOrComment(line)) return;
    if (line.find('\0') != std::string_view::npos) {
      fault("the line holds a NUL byte; save the file as plain text (UTF-8)");
      return;
    }
    CSimpleIniA parsed(true, false, false);
    if (parsed.LoadData(line.data(), line.size()) < 0) throw std::bad_alloc();
    CSimpleIniA::TNamesDepend sections;
    parsed.GetAllSections(sections);
    if (sections.empty()) {
      fault(quoted(line) +
            " is no section, key or comment; write [section], key = value, or put "
            "';' in front");
      return;
    }
    takeEntry(parsed, sections.front().pItem);
  }

  const std::string& faults() const { return faults_; }

 private:
  void takeEntry(const CSimpleIniA& parsed, const char* section) {
    CSimpleIniA::TNamesDepend keys;
    parsed.GetAllKeys(section, keys);
    if (keys.empty()) {
      section_ = section;
      return;
    }
    const char* key = keys.front().pItem;
    const char* value = parsed.GetValue(section, key, "");
    const auto [place, isNew] =
        values_.try_emplace({lowered(section_), lowered(key)}, Value{value, line_});
    if (isNew) return;
    fault("key " + quoted(key) + " of section " + quoted(section_) + " was already set in line " +
          std::to_string(place->second.line) + "; remove one of the two");
  }

  void fault(const std::string& text) {
    if (++faultCount_ > kMaxReportedFaults) return;
    if (!faults_.empty()) faults_ += '\n';
    faults_ += printable(origin_) + ":" + std::to_string(line_) + ": " + text;
  }

  const std::string& origin_;
  std::map<Name, Value>& values_;
  std::string section_;
  std::size_t line_ = 0;
  std::size_t faultCount_ = 0;
  std::string faults_;
};

bool IniDocument::parse(std::string_view text, const std::string& origin, std::string& error) {
  if (text.size() > kMaxBytes) {
    error = printable(origin) + ": the text is larger than " + std::to_string(kMaxBytes) +
            " bytes; settings files are small: check the file name";
    return false;
  }
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  std::map<Name, Value> values;
  Parser parser(origin, values);
  while (!text.empty()) parser.takeLine(core::takeLine(text));
  if (!parser.faults().empty()) {
    error = parser.faults();
    return false;
  }
  values_.swap(values);
  error.clear();
  return true;
}

bool IniDocument::load(const std::string& path, std::string& error) {
  std::string text;
  const std::string reason = readFile(path, text);
  if (!reason.empty()) {
    error = printable(path) + ": cannot be read: " + reason +
            "; check that the file exists and that this user may read it";
    return false;
  }
  return parse(text, path, error);
}

const std::string* IniDocument::find(std::string_view section, std::string_view key) const {
  const auto entry = values_.find({lowered(section), lowered(key)});
  return entry == values_.end() ? nullptr : &entry->second.text;
}

std::vector<IniName> IniDocument::names() const {
  std::vector<IniName> names;
  names.reserve(values_.size());
  for (const auto& [name, value] : values_) names.push_back({name.first, name.second, value.line});
  return names;
}

void IniDocument::set(std::string_view section, std::string_view key, std::string value) {
  Value& entry = values_[{lowered(section), lowered(key)}];
  entry.text.swap(value);
  entry.line = 0;
}

}  // namespace host::core
