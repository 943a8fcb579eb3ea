#include "host/message/render.h"

#include "host/message/ascii.h"
#include "host/message/header_block.h"

namespace host::message {

namespace {

/// An entity that nothing changed in is one slice, from its lead to the end of its tail.
std::string_view wholeSlice(const char* begin, std::string_view tail) {
  return std::string_view(begin, static_cast<std::size_t>(tail.data() + tail.size() - begin));
}

}  // namespace

bool Renderer::write(const Entity& top, bool withLead) {
  const Entity* entity = &top;
  while (!failed_) {
    const bool lead = withLead || entity != &top;
    bool done = !entity->touched_;
    if (done) {
      put(wholeSlice(lead ? entity->lead_.data() : entity->fields_.data(), entity->tail_));
    } else {
      if (lead) put(entity->lead_);
      writeHeader(*entity);
      put(entity->body_);
      if (entity->firstChild_ != nullptr) {
        entity = entity->firstChild_;
        continue;
      }
    }
    while (true) {
      if (!done) put(entity->tail_);
      done = false;
      if (entity == &top) {
        flush();
        return !failed_;
      }
      if (entity->nextSibling_ != nullptr) {
        entity = entity->nextSibling_;
        break;
      }
      entity = entity->parent_;
    }
  }
  return false;
}

void Renderer::writeHeader(const Entity& entity) {
  const HeaderBlock* block = entity.block_.get();
  const bool modified = block != nullptr && block->isModified();
  if (!modified) {
    put(entity.fields_);
  } else {
    for (std::size_t i = 0; i < block->size(); ++i) {
      startLine(entity);
      put(block->at(i).bytes());
    }
  }
  const std::string_view blankLine(entity.fields_.data() + entity.fields_.size(),
                                   entity.blankLineLength_);
  const bool hasBody = !entity.body_.empty() || entity.firstChild_ != nullptr;
  const bool isDivided = !entity.needsBlankLine_ && !(modified && entity.fields_.empty());
  if (!blankLine.empty()) {
    startLine(entity);
    put(blankLine);
  } else if (hasBody || entity.needsBlankLine_) {
    if (modified || !isDivided) startLine(entity);
    if (!isDivided) put(entity.lineBreak().text());
  }
}

void Renderer::startLine(const Entity& entity) {
  if (!isAtLineBegin()) put(entity.lineBreak().text());
}

bool Renderer::isAtLineBegin() const {
  return (pending_.empty() ? last_ : pending_.back()) == '\n';
}

void Renderer::put(std::string_view slice) {
  if (slice.empty()) return;
  if (!pending_.empty() && pending_.data() + pending_.size() == slice.data()) {
    pending_ = std::string_view(pending_.data(), pending_.size() + slice.size());
    return;
  }
  flush();
  pending_ = slice;
}

void Renderer::flush() {
  if (pending_.empty() || failed_) return;
  last_ = pending_.back();
  failed_ = !sink_.write(pending_.data(), pending_.size());
  pending_ = {};
}

}  // namespace host::message
