#include "host/message/declared_names.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <unordered_set>
#include <utility>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/entity.h"
#include "host/message/field_lookup.h"
#include "host/message/header_field.h"
#include "host/message/mime_values.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

/// Texts without doubles, in order.
class Distinct {
 public:
  /// With a NUL in it, as decoding may bring one: whole, with a blank there, and as readers in C
  /// see it, cut. Also without dots at the end, which some systems drop from names of files.
  void add(std::string text) {
    const std::size_t nul = text.find('\0');
    const std::string front = text.substr(0, nul);
    std::replace(text.begin(), text.end(), '\0', ' ');
    addOne(text);
    if (nul != std::string::npos) addOne(front);
    if (text.ends_with('.'))
      addOne(std::string_view(text).substr(0, text.find_last_not_of(" .") + 1));
  }
  std::vector<std::string> take() { return std::move(texts_); }

 private:
  void addOne(std::string_view text) {
    const std::string_view plain = trimmed(text);
    if (plain.empty() || !seen_.insert(std::string(plain)).second) return;
    texts_.emplace_back(plain);
  }

  std::unordered_set<std::string> seen_;
  std::vector<std::string> texts_;
};

/// What stands between two ";", and whether a quotation mark in it is never closed.
struct Segment {
  std::string_view text;
  bool unclosed = false;
};

/// The segment that begins at \p at. \param quotes  whether a ";" inside quotes ends none
Segment segmentAt(std::string_view value, std::size_t at, bool quotes) {
  bool quoted = false;
  std::size_t end = at;
  for (; end < value.size(); ++end) {
    if (value[end] == ';' && !quoted) break;
    if (value[end] == '\\' && quoted) {
      ++end;
    } else if (value[end] == '"' && quotes) {
      quoted = !quoted;
    }
  }
  end = std::min(end, value.size());
  return {value.substr(at, end - at), quoted};
}

/// The value of a parameter as readers may take it, likeliest first.
std::vector<std::string> readingsOf(std::string_view value) {
  std::vector<std::string> readings;
  if (!value.starts_with('"')) {
    readings.emplace_back(value);
    const std::size_t stop = value.find_first_of(" \t\"(,");
    if (stop != std::string_view::npos) readings.emplace_back(value.substr(0, stop));
    if (value.starts_with('(') && value.find(')') != std::string_view::npos) {
      readings.emplace_back(value.substr(value.find(')') + 1));
    }
    return readings;
  }
  std::string escaped;
  std::size_t at = 1;
  for (; at < value.size() && value[at] != '"'; ++at) {
    if (value[at] == '\\' && at + 1 < value.size()) ++at;
    escaped += value[at];
  }
  readings.push_back(std::move(escaped));
  // Some keep the backslashes, as in a path.
  readings.emplace_back(value.substr(1, std::min(at, value.size()) - 1));
  return readings;
}

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned int byte = 0;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(text.data() + i + 1, text.data() + i + 3, byte, 16).ptr ==
            text.data() + i + 3) {
      out += static_cast<char>(byte);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string inUtf8(const std::string& bytes, std::string_view charset) {
  std::string utf8;
  if (!charset.empty() && convertCharset(bytes, charset, "utf-8", OnMisfit::QuestionMark,
                                         OnMisfit::QuestionMark, utf8) == OVMSGERR::Ok) {
    return utf8;
  }
  return decodedText(bytes);
}

/// Divides "charset'language'text" (RFC 2231 section 4). \return the text.
std::string_view extendedText(std::string_view value, std::string_view& charset) {
  const std::size_t first = value.find('\'');
  const std::size_t second = first == std::string_view::npos ? first : value.find('\'', first + 1);
  if (second == std::string_view::npos) return value;
  charset = value.substr(0, first);
  return value.substr(second + 1);
}

/// A piece of a name that is spread over parameters (RFC 2231 section 3).
struct Piece {
  std::string value;
  bool extended = false;
};

/// One name's pieces by number; of those that share a number, the first and the last.
class Pieces {
 public:
  void add(unsigned int number, Piece piece) {
    first_.emplace(number, piece);
    last_.insert_or_assign(number, std::move(piece));
  }
  void addNamesTo(Distinct& names) const {
    for (const auto* pieces : {&first_, &last_}) {
      names.add(join(*pieces, false));
      names.add(join(*pieces, true));
    }
  }

 private:
  static std::string join(const std::map<unsigned int, Piece>& pieces, bool untilGap) {
    std::string bytes;
    std::string_view charset;
    unsigned int expected = 0;
    for (const auto& [number, piece] : pieces) {
      if (untilGap && number != expected++) break;
      std::string_view text = piece.value;
      if (piece.extended && number == 0) text = extendedText(text, charset);
      bytes += piece.extended ? percentDecoded(text) : std::string(text);
    }
    return inUtf8(bytes, charset);
  }

  std::map<unsigned int, Piece> first_;
  std::map<unsigned int, Piece> last_;
};

class NameCollector {
 public:
  void collect(std::string_view value) {
    bool quotes = true;
    for (std::size_t at = 0; at < value.size();) {
      const Segment segment = segmentAt(value, at, quotes);
      addParameter(segment.text);
      // A quotation mark that is never closed: for some readers it spans all that follows, for
      // others the next ";" ends it.
      const bool again = segment.unclosed && segment.text.find(';') != std::string_view::npos;
      if (again) quotes = false;
      at += again ? 0 : segment.text.size() + 1;
    }
  }

  std::vector<std::string> take() {
    for (const auto& [base, pieces] : pieces_) pieces.addNamesTo(names_);
    return names_.take();
  }

 private:
  /// Parameters that stand between two ";": one, or several where a ";" is missing.
  void addParameter(std::string_view segment) {
    for (bool isFirst = true;; isFirst = false) {
      const std::size_t equals = segment.find('=');
      if (equals == std::string_view::npos) return;
      std::string key = lowered(trimmed(segment.substr(0, equals)));
      key.erase(0, key.find_last_of(" \t") + 1);
      segment = trimmed(segment.substr(equals + 1));
      const std::size_t end = valueEnd(segment);
      const std::string base = key.substr(0, key.find('*'));
      if (base == "name" || base == "filename") {
        // All of the segment may be one value with blanks in it.
        addValue(base, std::string_view(key).substr(base.size()),
                 isFirst ? segment : segment.substr(0, end));
      }
      segment.remove_prefix(end);
    }
  }

  /// Behind the closing quotation mark, or the first blank of a value without.
  static std::size_t valueEnd(std::string_view text) {
    std::size_t at = text.starts_with('"') ? 1 : 0;
    const char stop = at == 1 ? '"' : ' ';
    while (at < text.size() && text[at] != stop && (stop == '"' || !isBlank(text[at]))) {
      at += text[at] == '\\' && stop == '"' ? 2 : 1;
    }
    return std::min(at + 1, text.size());
  }

  /// \param suffix  "", "*", "*3" or "*3*"
  void addValue(const std::string& base, std::string_view suffix, std::string_view value) {
    std::vector<std::string> readings = readingsOf(value);
    const bool extended = suffix.ends_with('*');
    if (suffix.size() <= 1) {
      for (const std::string& reading : readings) {
        if (extended) addExtended(reading);
        names_.add(decodedText(reading));
        addAsWritten(reading, extended);
      }
      return;
    }
    suffix.remove_prefix(1);
    if (extended) suffix.remove_suffix(1);
    unsigned int number = 0;
    const char* end = suffix.data() + suffix.size();
    const auto [rest, fault] = std::from_chars(suffix.data(), end, number);
    if (fault != std::errc() || rest != end) return;
    pieces_[base].add(number, {std::move(readings.front()), extended});
  }

  /// Some readers decode no encoded words, some decode "%XX" in a plain parameter.
  void addAsWritten(const std::string& reading, bool extended) {
    if (reading.find("=?") != std::string::npos && isUtf8(reading)) names_.add(reading);
    if (!extended && reading.find('%') != std::string::npos) {
      names_.add(decodedText(percentDecoded(reading)));
    }
  }

  void addExtended(std::string_view reading) {
    std::string_view charset;
    const std::string_view text = extendedText(reading, charset);
    names_.add(inUtf8(percentDecoded(text), charset));
  }

  Distinct names_;
  std::map<std::string, Pieces> pieces_;
};

constexpr const char* kNamingFields[] = {"content-disposition", "content-type"};

/// The first words of all fields of a name, without blanks and comments.
void addFirstWords(const Entity& entity, std::string_view name, Distinct& words) {
  for (const HeaderField* field : fieldsNamed(entity, name)) {
    const std::string value = field->unfoldedValue();
    std::string word;
    for (const char c : std::string_view(value).substr(0, value.find_first_of(";(,"))) {
      if (!isBlank(c)) word += lowered(c);
    }
    words.add(std::move(word));
  }
}

}  // namespace

std::vector<std::string> fileNamesIn(std::string_view unfolded) {
  NameCollector collector;
  collector.collect(unfolded.substr(0, mime::kMaxInterpretedBytes));
  return collector.take();
}

std::string firstFileName(const Entity& entity) {
  for (const char* name : kNamingFields) {
    for (const HeaderField* field : fieldsNamed(entity, name)) {
      std::vector<std::string> found = fileNamesIn(field->unfoldedValue());
      if (!found.empty()) return std::move(found.front());
    }
  }
  return {};
}

std::vector<std::string> declaredFileNames(const Entity& entity) {
  Distinct names;
  names.add(entity.fileNameText().value_or(std::string()));
  for (const char* name : kNamingFields) {
    for (const HeaderField* field : fieldsNamed(entity, name)) {
      for (std::string& found : fileNamesIn(field->unfoldedValue())) names.add(std::move(found));
    }
  }
  return names.take();
}

std::vector<std::string> declaredContentTypes(const Entity& entity) {
  Distinct types;
  types.add(entity.contentType());
  addFirstWords(entity, "content-type", types);
  return types.take();
}

std::vector<std::string> declaredDispositions(const Entity& entity) {
  Distinct dispositions;
  dispositions.add(entity.disposition());
  addFirstWords(entity, "content-disposition", dispositions);
  return dispositions.take();
}

}  // namespace host::message
