// Resources in memory, counted.
#pragma once

#include <string>
#include <vector>

namespace fakes {

/// What the test program knows of its resources and of the library default for stamps. Each test
/// starts by clearing it.
class ResourceLocators {
 public:
  static ResourceLocators& instance();

  void clear();
  /// Made and not yet released.
  int alive() const { return alive_; }
  /// "create kind length capacity copy", "delete", "stamps as attachments 1", in order.
  const std::vector<std::string>& calls() const { return calls_; }
  /// From now on no resource can be made.
  void refuse() { refuses_ = true; }
  bool refuses() const { return refuses_; }
  void record(const std::string& call, int change = 0);

 private:
  int alive_ = 0;
  bool refuses_ = false;
  std::vector<std::string> calls_;
};

}  // namespace fakes
