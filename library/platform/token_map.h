// The per-message map from token code to text.
#pragma once

#include <map>
#include <string>

namespace Kavi {

/// Values of one message by token code. Owned by whoever processes the message; not shared
/// between threads. Pointers from `find` stay valid until that token is set or erased.
template <class Token>
class TokenMap {
 public:
  /// The value of \p token, or null when there is none. An empty value is a value.
  const std::string* find(Token token) const {
    auto entry = values_.find(token);
    return entry == values_.end() ? nullptr : &entry->second;
  }

  /// The value of \p token to change in place, or null when there is none.
  std::string* find(Token token) {
    auto entry = values_.find(token);
    return entry == values_.end() ? nullptr : &entry->second;
  }

  /// The value of \p token, the empty string when there is none.
  const std::string& valueOrEmpty(Token token) const {
    static const std::string kEmpty;
    const std::string* value = find(token);
    return value != nullptr ? *value : kEmpty;
  }

  /// Inserts \p token if it is absent, then assigns \p value.
  void set(Token token, std::string value) { values_[token].swap(value); }

  /// \return whether there was a value to remove.
  bool erase(Token token) { return values_.erase(token) != 0; }

  bool empty() const { return values_.empty(); }
  void clear() { values_.clear(); }

  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }

 private:
  std::map<Token, std::string> values_;
};

}  // namespace Kavi
