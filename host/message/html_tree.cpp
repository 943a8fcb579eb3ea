#include "host/message/html_tree.h"

#include <gumbo.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/html_scanner.h"

namespace host::message {

namespace {

/// Memory for one tree, given back as a whole: the library would free its elements one inside the
/// other, by recursion, and does not look whether an allocation failed.
class TreeMemory {
 public:
  explicit TreeMemory(std::size_t limit) : left_(limit) {}

  static void* allocate(void* self, std::size_t size) {
    return static_cast<TreeMemory*>(self)->take(size);
  }
  static void release(void*, void*) {}

  /// Where to go when the limit is reached, or the system has no memory left.
  std::jmp_buf& exhausted() { return exhausted_; }
  bool isOut() const { return isOut_; }

 private:
  static constexpr std::size_t kBlock = std::size_t{256} * 1024;

  // Leaves through the library's frames, which hold nothing that needs an end, and know no
  // exceptions. NOLINTBEGIN(cert-err52-cpp)
  void* take(std::size_t size) {
    size = (size + 15) & ~std::size_t{15};
    if (size > left_) std::longjmp(exhausted_, 1);
    left_ -= size;
    if (size > room_) {
      const std::size_t block = std::max(size, kBlock);
      if (!addBlock(block)) {
        isOut_ = true;
        std::longjmp(exhausted_, 1);
      }
      room_ = block;
    }
    void* const result = at_;
    at_ += size;
    room_ -= size;
    return result;
  }
  // NOLINTEND(cert-err52-cpp)

  bool addBlock(std::size_t size) noexcept {
    try {
      blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
    } catch (const std::bad_alloc&) {
      return false;
    }
    at_ = blocks_.back().get();
    return true;
  }

  std::vector<std::unique_ptr<char[]>> blocks_;
  char* at_ = nullptr;
  std::size_t room_ = 0;
  std::size_t left_;
  bool isOut_ = false;
  std::jmp_buf exhausted_;
};

/// Null when the memory does not suffice. No object with a destructor may live in here.
const GumboOutput* build(TreeMemory& memory, const char* text, std::size_t size) {
  GumboOptions options = kGumboDefaultOptions;
  options.allocator = TreeMemory::allocate;
  options.deallocator = TreeMemory::release;
  options.userdata = &memory;
  options.max_errors = 0;
  if (setjmp(memory.exhausted()) != 0) return nullptr;  // NOLINT(cert-err52-cpp): C in between
  return gumbo_parse_with_options(&options, text, size);
}

const GumboVector& childrenOf(const GumboNode& node) { return node.v.element.children; }

bool isElement(const GumboNode& node) {
  return node.type == GUMBO_NODE_ELEMENT || node.type == GUMBO_NODE_TEMPLATE;
}

const GumboNode& childAt(const GumboNode& node, std::size_t index) {
  return *static_cast<const GumboNode*>(childrenOf(node).data[index]);
}

const GumboNode* childNamed(const GumboNode& node, GumboTag tag) {
  for (std::size_t i = 0; i < childrenOf(node).length; ++i) {
    const GumboNode& child = childAt(node, i);
    if (isElement(child) && child.v.element.tag == tag) return &child;
  }
  return nullptr;
}

/// Whether the element, left open, hides what is written at its end.
bool hidesText(const GumboNode& node) {
  switch (node.v.element.tag) {
    case GUMBO_TAG_SCRIPT:
    case GUMBO_TAG_STYLE:
    case GUMBO_TAG_TITLE:
    case GUMBO_TAG_TEXTAREA:
    case GUMBO_TAG_XMP:
    case GUMBO_TAG_IFRAME:
    case GUMBO_TAG_NOEMBED:
    case GUMBO_TAG_NOFRAMES:
    case GUMBO_TAG_SELECT:
    case GUMBO_TAG_TEMPLATE:
    case GUMBO_TAG_SVG:
    case GUMBO_TAG_MATH:
      return true;
    default:
      return false;
  }
}

class Places {
 public:
  Places(std::string_view text, const GumboNode& root, const GumboNode& body)
      : text_(text), root_(root), body_(body) {}

  std::size_t top() const {
    const GumboStringPiece& tag = body_.v.element.original_tag;
    if (tag.length != 0) return offsetOf(tag) + tag.length;
    std::size_t first = text_.size();
    for (std::size_t i = 0; i < childrenOf(body_).length; ++i) {
      first = std::min(first, beginOf(childAt(body_, i), text_.size()));
    }
    return first;
  }

  std::size_t end() const {
    for (const GumboNode* node : {&body_, &root_}) {
      const GumboStringPiece& tag = node->v.element.original_end_tag;
      if (tag.length != 0 && !hasTagBehind(offsetOf(tag))) return offsetOf(tag);
    }
    return endOfDocument();
  }

 private:
  std::size_t offsetOf(const GumboStringPiece& piece) const {
    return static_cast<std::size_t>(piece.data - text_.data());
  }

  /// Where a node was written; \p none for one that the reader added.
  std::size_t beginOf(const GumboNode& node, std::size_t none) const {
    const GumboStringPiece& piece =
        isElement(node) ? node.v.element.original_tag : node.v.text.original_text;
    return piece.data == nullptr || piece.length == 0 ? none : offsetOf(piece);
  }

  /// Whether an element begins or ends behind the end tag of the body at \p offset.
  bool hasTagBehind(std::size_t offset) const {
    HtmlScanner scanner(text_, offset);
    HtmlToken token;
    while (scanner.next(token)) {
      const bool isEndOfAll = isTag(token, HtmlToken::Kind::EndTag, "body") ||
                              isTag(token, HtmlToken::Kind::EndTag, "html");
      if (!token.name.empty() && !isEndOfAll) return true;
    }
    return false;
  }

  std::size_t endOfDocument() const {
    const GumboNode* node = &body_;
    while (isElement(*node)) {
      const bool isOpen = (node->parse_flags & GUMBO_INSERTION_IMPLICIT_END_TAG) != 0;
      if (node != &body_ && !isOpen) break;
      if (node != &body_ && hidesText(*node)) return beginOf(*node, text_.size());
      if (childrenOf(*node).length == 0) break;
      node = &childAt(*node, childrenOf(*node).length - 1);
    }
    return text_.size();
  }

  std::string_view text_;
  const GumboNode& root_;
  const GumboNode& body_;
};

}  // namespace

std::optional<std::size_t> treePlace(std::string_view document, OvMsgInsertPlace place) {
  // The library reads UTF-8 only; for it any other character is a letter like another.
  std::string text(document);
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !isAscii(c); }, '~');
  TreeMemory memory(text.size() * 128 + (std::size_t{1} << 20));
  const GumboOutput* const output = build(memory, text.data(), text.size());
  if (memory.isOut()) throw std::bad_alloc();
  if (output == nullptr || output->root == nullptr) return std::nullopt;
  const GumboNode* const body = childNamed(*output->root, GUMBO_TAG_BODY);
  if (body == nullptr) return std::nullopt;
  const Places places(text, *output->root, *body);
  return place == OvMsgInsertPlace::Top ? places.top() : places.end();
}

}  // namespace host::message
