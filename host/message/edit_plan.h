// An edit that is prepared first and done as a whole.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/message/structure.h"

namespace host::message {

/// Makes room for \p count more elements, so that adding them cannot fail; over many calls at the
/// cost of adding alone.
template <class Element>
void makeRoom(std::vector<Element>& elements, std::size_t count) {
  const std::size_t wanted = elements.size() + count;
  if (wanted > elements.capacity()) elements.reserve(std::max(wanted, elements.capacity() * 2));
}

/// Steps of an edit. What may fail, above all for want of memory, happens while they are gathered;
/// `commit` then cannot fail half-way, so that a failed edit leaves the message as it was.
class EditPlan {
 public:
  /// Adds a step. It must not throw.
  template <class Function>
  void add(Function function) {
    steps_.push_back(std::make_unique<StepOf<Function>>(std::move(function)));
  }

  /// Plans a new value for a slice of an entity; the last one counts.
  void set(std::string_view& slice, std::string_view value) { slices_[&slice] = value; }
  /// The value that \p slice will have.
  std::string_view planned(const std::string_view& slice) const {
    const auto found = slices_.find(const_cast<std::string_view*>(&slice));
    return found == slices_.end() ? slice : found->second;
  }

  /// Plans an entry in the list of changes.
  void note(Change change) { changes_.push_back(std::move(change)); }

  /// Does it all: slices, then steps in order, then entries in \p log. Fails before the first or
  /// not at all.
  void commit(std::vector<Change>& log) {
    makeRoom(log, changes_.size());
    for (const auto& [slice, value] : slices_) *slice = value;
    for (const auto& step : steps_) step->run();
    for (Change& change : changes_) log.push_back(std::move(change));
  }

 private:
  struct Step {
    virtual ~Step() = default;
    virtual void run() noexcept = 0;
  };
  template <class Function>
  struct StepOf final : Step {
    explicit StepOf(Function&& f) : function(std::move(f)) {}
    void run() noexcept override { function(); }
    Function function;
  };

  std::map<std::string_view*, std::string_view> slices_;
  std::vector<std::unique_ptr<Step>> steps_;
  std::vector<Change> changes_;
};

}  // namespace host::message
