#include "gateway/policy/yaml_reader.h"

#include <yaml-cpp/binary.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <istream>
#include <nlohmann/json.hpp>
#include <optional>
#include <streambuf>
#include <utility>
#include <vector>

#include "gateway/policy/suggest.h"
#include "gateway/policy/text_file.h"

namespace gateway::policy {
namespace {

/// Thrown out of the parser's callbacks; never leaves this file.
struct Refused {
  int line;
  std::string message;
};

/// A view as a stream, so that the text is not copied. The parser reads ahead as far as the end of
/// a bracket, and keeps some hundred bytes for each sign on the way: it is given only so many
/// without an event.
class ViewBuffer : public std::streambuf {
 public:
  ViewBuffer(std::string_view text, std::size_t mostSigns) : mostSigns_(mostSigns) {
    char* start = const_cast<char*>(text.data());  // NOLINT: a get area is never written to
    setg(start, start, start + text.size());
  }

  void eventCame() { signs_ = 0; }
  /// Why the parser got no more; null when it got all that it asked for.
  const Refused* refusal() const { return refusal_ ? &*refusal_ : nullptr; }

 protected:
  std::streamsize xsgetn(char* to, std::streamsize size) override {
    if (refusal_) return 0;
    const std::streamsize given = std::streambuf::xsgetn(to, size);
    const std::string_view text(to, static_cast<std::size_t>(given));
    line_ += static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    signs_ += static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isSign));
    if (signs_ > mostSigns_) {
      // The parser loses memory when an exception goes through it here.
      refusal_ = Refused{line_, "brackets that hold more than " + std::to_string(mostSigns_) +
                                    " signs (write them as lists and maps without brackets)"};
      return 0;
    }
    return given;
  }

 private:
  static bool isSign(char c) {
    return std::string_view("[]{},:?-&*!\"'|>#%@`").find(c) != std::string_view::npos;
  }

  std::size_t mostSigns_;
  std::size_t signs_ = 0;
  int line_ = 1;
  std::optional<Refused> refusal_;
};

constexpr std::string_view kBinaryTag = "tag:yaml.org,2002:binary";

/// Builds nodes from events, counting what they cost.
class TreeBuilder {
 public:
  TreeBuilder(Document& document, const YamlLimits& limits)
      : document_(document), limits_(limits) {}

  const Node* scalar(int line, std::string text) {
    Node& node = create(Node::Kind::Scalar, line);
    node.text = std::move(text);
    return place(node, line);
  }
  const Node* binary(int line, std::string bytes) {
    Node& node = create(Node::Kind::Binary, line);
    node.text = std::move(bytes);
    return place(node, line);
  }
  const Node* null(int line) { return place(create(Node::Kind::Null, line), line); }
  const Node* open(Node::Kind kind, int line) {
    if (open_.size() >= limits_.depth) {
      throw Refused{line, "nested more than " + std::to_string(limits_.depth) +
                              " levels deep (write it flatter)"};
    }
    refuseAsKey(line);
    Node& node = create(kind, line);
    open_.push_back({&node, {}, 0, false, count_});
    return &node;
  }
  /// \return the values that the closed node stands for.
  std::size_t close() {
    const Open closed = std::move(open_.back());
    open_.pop_back();
    const std::size_t values = count_ - closed.countBefore + 1;
    place(*closed.node, closed.node->line);
    return values;
  }
  /// Uses \p node, which stands for \p values, once more.
  void share(const Node& node, std::size_t values, int line) {
    count(values, line);
    refuseAsKey(line);
    place(node, line);
  }

 private:
  struct Open {
    Node* node;
    std::string key;
    int keyLine;
    bool hasKey;
    std::size_t countBefore;
  };

  Node& create(Node::Kind kind, int line) {
    count(1, line);
    return document_.add(kind, line);
  }

  void count(std::size_t values, int line) {
    count_ += values;
    if (count_ > limits_.values) {
      throw Refused{line, "more than " + std::to_string(limits_.values) +
                              " values, aliases counted in full (split the file)"};
    }
  }

  void refuseAsKey(int line) const {
    if (!open_.empty() && open_.back().node->kind == Node::Kind::Map && !open_.back().hasKey) {
      throw Refused{line, "a key must be a plain word"};
    }
  }

  const Node* place(const Node& node, int line) {
    if (open_.empty()) {
      document_.setRoot(&node);
    } else if (Open& top = open_.back(); top.node->kind == Node::Kind::List) {
      top.node->items.push_back(&node);
    } else if (top.hasKey) {
      top.node->members.push_back({std::move(top.key), top.keyLine, &node});
      top.hasKey = false;
    } else {
      if (node.kind != Node::Kind::Scalar) throw Refused{line, "a key must be a plain word"};
      top.key = node.text;
      top.keyLine = line;
      top.hasKey = true;
    }
    return &node;
  }

  Document& document_;
  const YamlLimits& limits_;
  std::vector<Open> open_;
  std::size_t count_ = 0;
};

class YamlHandler : public YAML::EventHandler {
 public:
  YamlHandler(TreeBuilder& builder, ViewBuffer& source, Diagnostics& diagnostics)
      : builder_(builder), source_(source), diagnostics_(diagnostics) {}

  void OnDocumentStart(const YAML::Mark&) override {}
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    remember(anchor, builder_.null(lineOf(mark)), 1);
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const int line = lineOf(mark);
    if (anchor >= anchors_.size() || anchors_[anchor].node == nullptr) {
      throw Refused{line, "an alias that stands inside what it names"};
    }
    builder_.share(*anchors_[anchor].node, anchors_[anchor].values, line);
    source_.eventCame();
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    if (tag == kBinaryTag) {
      remember(anchor, builder_.binary(lineOf(mark), decoded(value, mark)), 1);
      return;
    }
    refuseTag(tag, mark);
    remember(anchor, builder_.scalar(lineOf(mark), value), 1);
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value) override {
    open(Node::Kind::List, mark, tag, anchor);
  }
  void OnSequenceEnd() override { close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value) override {
    open(Node::Kind::Map, mark, tag, anchor);
  }
  void OnMapEnd() override {
    reportDoubledKeys(*openNodes_.back().node);
    close();
  }

 private:
  struct Anchor {
    const Node* node = nullptr;
    std::size_t values = 0;
  };
  struct OpenNode {
    const Node* node;
    YAML::anchor_t anchor;
  };

  static int lineOf(const YAML::Mark& mark) { return mark.line + 1; }

  /// The bytes that stand in base64 behind "!!binary".
  static std::string decoded(const std::string& text, const YAML::Mark& mark) {
    const std::vector<unsigned char> bytes = YAML::DecodeBase64(text);
    if (bytes.empty() && text.find_first_not_of(" \t\r\n") != std::string::npos) {
      throw Refused{lineOf(mark), "what stands behind !!binary is no base64"};
    }
    return {bytes.begin(), bytes.end()};
  }

  static void refuseTag(const std::string& tag, const YAML::Mark& mark) {
    // "?" marks a plain scalar, "!" a quoted one; anything else was written by hand.
    if (!tag.empty() && tag != "?" && tag != "!") {
      throw Refused{lineOf(mark),
                    "YAML tag " + inQuotes(tag) + " (remove it: values need no tags)"};
    }
  }

  void open(Node::Kind kind, const YAML::Mark& mark, const std::string& tag,
            YAML::anchor_t anchor) {
    refuseTag(tag, mark);
    const Node* node = builder_.open(kind, lineOf(mark));
    openNodes_.push_back({node, anchor});
    source_.eventCame();
  }

  void close() {
    const OpenNode closed = openNodes_.back();
    openNodes_.pop_back();
    remember(closed.anchor, closed.node, builder_.close());
  }

  void remember(YAML::anchor_t anchor, const Node* node, std::size_t values) {
    source_.eventCame();
    if (anchor == 0) return;
    if (anchor >= anchors_.size()) anchors_.resize(anchor + 1);
    anchors_[anchor] = {node, values};
  }

  void reportDoubledKeys(const Node& map) {
    std::vector<const Node::Member*> sorted;
    sorted.reserve(map.members.size());
    for (const Node::Member& member : map.members) sorted.push_back(&member);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto* a, const auto* b) { return a->key < b->key; });
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i]->key != sorted[i - 1]->key) continue;
      diagnostics_.error(sorted[i]->line, "",
                         "key " + inQuotes(sorted[i]->key) + " stands twice (first on line " +
                             std::to_string(sorted[i - 1]->line) + "); remove one");
    }
  }

  TreeBuilder& builder_;
  ViewBuffer& source_;
  Diagnostics& diagnostics_;
  std::vector<Anchor> anchors_;
  std::vector<OpenNode> openNodes_;
};

/// Refuses bytes that are no UTF-8 text before the YAML parser sees them: it reads some control
/// bytes as its own marks.
void checkBytes(std::string_view text) {
  if (const auto fault = findTextFault(text)) throw Refused{fault->line, fault->reason};
}

struct YamlRemedy {
  std::string_view fault;  ///< part of the parser's own text
  std::string_view remedy;
};

/// What usually lies behind a fault that the parser finds.
constexpr YamlRemedy kRemedies[] = {
    {"anchor", "put a text that begins with '*' or '&' in quotes"},
    {"alias", "put a text that begins with '*' or '&' in quotes"},
    {"unknown escape", "double the backslash, or put the text in single quotes"},
    {"EOF in scalar", "close the quotation mark"},
    {"flow", "close each bracket that is opened, and none else"},
    {"map value", "put a text with ': ' in quotes, and check the indentation"},
    {"map key", "put a text with ': ' in quotes, and check the indentation"},
    {"end of map", "put a text with ': ' or quotation marks in quotes, and check the indentation"},
    {"unknown token", "put a text that begins with a special character in quotes"},
    {"tab", "indent with blanks, not tabs"},
    {"block entry", "indent with blanks, not tabs"},
};

std::string withRemedy(const std::string& fault) {
  std::string_view remedy = "check indentation, brackets and quotation marks";
  for (const YamlRemedy& row : kRemedies) {
    if (fault.find(row.fault) == std::string::npos) continue;
    remedy = row.remedy;
    break;
  }
  return "not YAML: " + fault + " (" + std::string(remedy) + ")";
}

/// The SAX side of JSON: the same tree.
class JsonHandler : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit JsonHandler(TreeBuilder& builder) : builder_(builder) {}

  bool null() override { return builder_.null(0) != nullptr; }
  bool boolean(bool value) override { return text(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return text(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return text(std::to_string(value)); }
  bool number_float(number_float_t, const string_t& value) override { return text(value); }
  bool string(string_t& value) override { return text(value); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Node::Kind::Map); }
  bool key(string_t& value) override { return text(value); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Node::Kind::List); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception&) override {
    throw Refused{0, "not JSON at byte " + std::to_string(position)};
  }

 private:
  bool text(std::string value) { return builder_.scalar(0, std::move(value)) != nullptr; }
  bool open(Node::Kind kind) { return builder_.open(kind, 0) != nullptr; }
  bool close() { return builder_.close() != 0; }

  TreeBuilder& builder_;
};

}  // namespace

std::unique_ptr<Document> readYaml(std::string_view text, Diagnostics& diagnostics,
                                   const YamlLimits& limits) {
  auto document = std::make_unique<Document>();
  ViewBuffer buffer(text, limits.signs);
  try {
    if (text.size() > limits.bytes) {
      throw Refused{0, "larger than " + std::to_string(limits.bytes) + " bytes (split the file)"};
    }
    checkBytes(text);
    std::istream stream(&buffer);
    YAML::Parser parser(stream);
    TreeBuilder builder(*document, limits);
    YamlHandler handler(builder, buffer, diagnostics);
    parser.HandleNextDocument(handler);
    const Node* root = document->root();
    Document second;
    TreeBuilder secondBuilder(second, limits);
    YamlHandler secondHandler(secondBuilder, buffer, diagnostics);
    if (parser.HandleNextDocument(secondHandler)) {
      throw Refused{second.root() != nullptr ? second.root()->line : 0,
                    "a second YAML document (a policy is one document: remove the '---')"};
    }
    if (const Refused* refused = buffer.refusal()) throw Refused{refused->line, refused->message};
    document->setRoot(root);
    return document;
  } catch (const Refused& refused) {
    const Refused& why = buffer.refusal() != nullptr ? *buffer.refusal() : refused;
    diagnostics.error(why.line, "", why.message);
  } catch (const YAML::Exception& fault) {
    if (const Refused* refused = buffer.refusal()) {
      diagnostics.error(refused->line, "", refused->message);
      return nullptr;
    }
    diagnostics.error(fault.mark.line + 1, "", withRemedy(fault.msg));
  }
  return nullptr;
}

std::unique_ptr<Document> readJson(std::string_view text, std::string& error,
                                   const YamlLimits& limits) {
  auto document = std::make_unique<Document>();
  try {
    TreeBuilder builder(*document, limits);
    JsonHandler handler(builder);
    if (nlohmann::json::sax_parse(text, &handler)) return document;
    error = "not JSON";
  } catch (const Refused& refused) {
    error = refused.message;
  }
  return nullptr;
}

}  // namespace gateway::policy
