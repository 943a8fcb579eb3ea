#include "gateway/policy/stamps.h"

#include <algorithm>
#include <iterator>

#include "gateway/policy/settings_object.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/text_entry.h"
#include "gateway/policy/text_file.h"
#include "gateway/policy/token_check.h"
#include "library/namedobj/stamp_area.h"

namespace gateway::policy {
namespace {

/// How a line break stands in a record.
constexpr char kStoredBreak = '\x03';

constexpr TextEntry kText{.owner = "the stamp",
                          .key = "text",
                          .fileKey = "file",
                          .example = "text: \"Confidential.\" or file: stamp.txt",
                          .maxBytes = kMaxStampText};

/// A word of a policy for a number of the record.
struct Word {
  std::string_view text;
  unsigned int number;
};
constexpr Word kPositions[] = {{"top", 1}, {"end", 2}};
constexpr Word kSignedTnefModes[] = {{"leave", 1}, {"stamp", 2}};

/// Text with line breaks as a file or a policy has them, as a record keeps it.
std::string storedText(std::string_view text) {
  std::string stored;
  stored.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n') continue;
    const bool isBreak = text[at] == '\n' || text[at] == '\r';
    stored += isBreak ? kStoredBreak : text[at];
  }
  if (!stored.empty() && stored.back() == kStoredBreak) stored.pop_back();
  return stored;
}

/// What an administrator writes for a text of a record.
std::string writtenText(std::string text) {
  std::replace(text.begin(), text.end(), kStoredBreak, '\n');
  // The last break of what is written is not part of the text.
  if (text.ends_with('\n')) text += '\n';
  return text;
}

/// The word for a number; the number itself when there is none.
template <std::size_t Count>
std::string wordFor(const Word (&words)[Count], unsigned int number) {
  for (const Word& word : words) {
    if (word.number == number) return std::string(word.text);
  }
  return std::to_string(number);
}

class EntryReader {
 public:
  EntryReader(const ObjectEntry& entry, const FaultSink& fault) : entry_(entry), fault_(fault) {}

  bool read(uiStampArea& stamp) {
    readText(stamp.stampText);
    readWord("position", kPositions, stamp.insertPosition);
    readWord("signed_and_tnef", kSignedTnefModes, stamp.signedTnefMode);
    if (const Node* note = entry_.item.find("note")) readNote(*note, stamp.auxText);
    return good_;
  }

 private:
  void fail(int line, const std::string& message) {
    good_ = false;
    fault_(line, message);
  }

  template <std::size_t Count>
  void readWord(std::string_view key, const Word (&words)[Count], unsigned int& number) {
    const Node* value = entry_.item.find(key);
    if (value == nullptr) return;
    const auto* word =
        std::find_if(std::begin(words), std::end(words), [value](const Word& candidate) {
          return value->kind == Node::Kind::Scalar && value->text == candidate.text;
        });
    if (word != std::end(words)) {
      number = word->number;
      return;
    }
    std::string known;
    for (const Word& candidate : words) {
      known += (known.empty() ? "" : " or ") + std::string(candidate.text);
    }
    fail(value->line, std::string(key) + " is " + inQuotes(value->text) + " (write " + known + ")");
  }

  void readNote(const Node& note, std::string& text) {
    if (note.kind != Node::Kind::Scalar) {
      fail(note.line, "the note must be a text");
    } else if (const auto found = findTextFault(note.text)) {
      fail(note.line, "the note has " + found->reason);
    } else {
      text = storedText(note.text);
    }
  }

  void readText(std::string& stored) {
    std::string content;
    int line = 0;
    if (!readTextEntry(entry_, kText, content, line, fault_)) {
      good_ = false;
      return;
    }
    stored = storedText(content);
    if (stored.empty()) {
      const bool inPlace = entry_.item.find(kText.key) != nullptr;
      fail(line, (inPlace ? std::string("the text") : "file " + inQuotes(fileName())) +
                     " is empty (write what the stamp is to say)");
    }
  }

  /// The path of the stamp's file.
  std::string fileName() const {
    const std::string& name = entry_.item.find(kText.fileKey)->text;
    return name.starts_with('/') ? name : *entry_.folder + name;
  }

  const ObjectEntry& entry_;
  const FaultSink& fault_;
  bool good_ = true;
};

}  // namespace

bool encodeStamp(const ObjectEntry& entry, std::string& setting, const FaultSink& fault) {
  uiStampArea stamp;
  if (!EntryReader(entry, fault).read(stamp)) return false;
  setting = stamp.serialize();
  return true;
}

bool decodeStamp(const std::string& setting, EntryKeys& keys) {
  uiStampArea stamp;
  if (!constructFrom(stamp, setting)) return false;
  keys.add(kText.key, writtenText(stamp.stampText));
  keys.add("position", wordFor(kPositions, stamp.insertPosition));
  keys.add("signed_and_tnef", wordFor(kSignedTnefModes, stamp.signedTnefMode));
  if (!stamp.auxText.empty()) keys.add("note", writtenText(stamp.auxText));
  return true;
}

std::string doubtStamp(const std::string& setting) {
  uiStampArea stamp;
  if (!constructFrom(stamp, setting)) return {};
  return doubtAboutTokens(stamp.stampText);
}

}  // namespace gateway::policy
