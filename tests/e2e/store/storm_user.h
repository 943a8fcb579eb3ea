// One of many processes that change and read a store at once.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "host/store/policy_store.h"
#include "library/namedobj/name_object_access.h"

namespace storm {

/// Owner of the objects that the shared rules refer to; those of the users are owned by 1, 2, ...
inline constexpr std::uint32_t kRuleOwner = 0;

/// What one user's part of the store looks like now, and what it took to get there.
struct UserState {
  std::map<std::uint32_t, std::pair<std::string, std::string>> objects;  ///< name, content by id
  std::set<std::uint32_t> given;                                         ///< ids, ever
  std::map<std::string, int> done;  ///< how many changes of each word: "add", "replace"

  std::string text() const;
  static UserState of(const std::string& text);
};

/// What `replace` writes is of one piece: each rule, and the object that they refer to, bears the
/// same token. \return what does not fit together; empty when all does
std::string faultOf(const host::store::PolicyRecord& policy);

/// Every operation that fails, and every reading that is not of one piece, throws with its reason.
class User {
 public:
  User(std::shared_ptr<host::store::PolicyStore> store, std::uint32_t number);

  /// Does one thing, whichever comes.
  void step();
  const UserState& state() const { return state_; }

 private:
  void add();
  void update();
  void remove();
  void replace();
  void readWhole();
  void listOwn();

  unsigned int random(unsigned int below) {
    return std::uniform_int_distribution<unsigned int>(0, below - 1)(random_);
  }
  std::map<std::uint32_t, std::pair<std::string, std::string>>::iterator anyOwn();
  std::string nextName();

  std::shared_ptr<host::store::PolicyStore> store_;
  std::uint32_t number_;
  std::string actor_;
  std::mt19937 random_;
  NameObjectAccess access_;
  UserState state_;
  int names_ = 0;
  std::int64_t revision_ = 0;  ///< the last one that was seen
};

}  // namespace storm
