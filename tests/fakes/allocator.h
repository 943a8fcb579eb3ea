// The test program's own operator new and delete: counted, and failing on demand (FaultPlan).
#pragma once

namespace fakes {

/// How many allocations of this program are not yet released.
long liveAllocations();

}  // namespace fakes
