#include "tests/fakes/allocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/fakes/fault_plan.h"

namespace {

std::atomic<long> live = 0;

void* allocate(std::size_t size) {
  if (fakes::allocationFails()) {
    return nullptr;
  }
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) {
    ++live;
  }
  return memory;
}

void release(void* memory) {
  if (memory != nullptr) {
    --live;
    std::free(memory);
  }
}

}  // namespace

long fakes::liveAllocations() { return live; }

// The array forms end up in these by the standard's defaults; so does the nothrow form, but where a
// sanitizer has one of its own.
void* operator new(std::size_t size) {
  void* memory = allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }
