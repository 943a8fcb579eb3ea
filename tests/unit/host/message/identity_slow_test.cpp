// The same at full size.
#include <gtest/gtest.h>

#include "tests/unit/host/message/support/identity.h"
#include "tests/unit/host/message/support/torture.h"

namespace message_test {
namespace {

TEST(IdentityAtFullSize, HoldsForLargeTortures) {
  for (const Torture& torture : largeTortures(1)) {
    SCOPED_TRACE(torture.name);
    expectIdentity(torture.bytes, torture.name);
  }
}

}  // namespace
}  // namespace message_test
