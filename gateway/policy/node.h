// A policy text as a tree: scalars, lists and maps, each with the line it stands on.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace gateway::policy {

/// One value of a document. Nodes belong to their Document; an alias shares the node that it
/// names, so a node may be reached on more than one way.
struct Node {
  enum class Kind {
    Null,
    Scalar,
    Binary,  ///< bytes that need be no text; only names and settings strings may be that
    List,
    Map,
  };
  struct Member;

  Kind kind = Kind::Null;
  int line = 0;      ///< counted from 1; 0 when the text has no lines of its own
  std::string text;  ///< of a scalar, UTF-8; of a binary one, any bytes
  std::vector<const Node*> items;
  std::vector<Member> members;

  /// The value under \p key of a map; null when there is none.
  const Node* find(std::string_view key) const;
};

struct Node::Member {
  std::string key;
  int line = 0;
  const Node* value = nullptr;
};

/// Whether \p node is one value, of text or of bytes.
inline bool isValue(const Node& node) {
  return node.kind == Node::Kind::Scalar || node.kind == Node::Kind::Binary;
}

inline const Node* Node::find(std::string_view key) const {
  for (const Member& member : members) {
    if (member.key == key) return member.value;
  }
  return nullptr;
}

/// Owner of the nodes of one text.
class Document {
 public:
  /// Null for a text without a value.
  const Node* root() const { return root_; }

  Node& add(Node::Kind kind, int line) {
    Node& node = nodes_.emplace_back();
    node.kind = kind;
    node.line = line;
    return node;
  }
  /// A value without a line, a text where it is UTF-8 and bytes where it is not.
  Node& addValue(std::string value);
  /// Puts one behind the members of \p map.
  void addMember(Node& map, std::string_view key, std::string value);
  void setRoot(const Node* root) { root_ = root; }

 private:
  std::deque<Node> nodes_;
  const Node* root_ = nullptr;
};

}  // namespace gateway::policy
