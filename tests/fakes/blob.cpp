// The host's own records (compiled under the name RealBlob, see CMakeLists.txt), with every
// operation able to fail on demand.
#include "library/platform/blob.h"

#include "tests/fakes/fault_plan.h"

namespace {

using Fields = std::map<std::string, std::string>;

}  // namespace

class KAVI_API RealBlob {
 public:
  static bool readBlob(const char*& cursor, Fields& fields);
  static void writeBlob(std::string& out, const Fields& fields);
  static bool bindBlobField(Fields& fields, const char* key, std::string& member, bool store);
  static bool bindBlobField(Fields& fields, const char* key, int& member, bool store);
};

bool Blob::readBlob(const char*& cursor, Fields& fields) {
  return !fakes::platformCallFails() && RealBlob::readBlob(cursor, fields);
}

void Blob::writeBlob(std::string& out, const Fields& fields) {
  if (fakes::platformCallFails()) {
    out.clear();
    return;
  }
  RealBlob::writeBlob(out, fields);
}

bool Blob::bindBlobField(Fields& fields, const char* key, std::string& member, bool store) {
  return !fakes::platformCallFails() && RealBlob::bindBlobField(fields, key, member, store);
}

bool Blob::bindBlobField(Fields& fields, const char* key, int& member, bool store) {
  return !fakes::platformCallFails() && RealBlob::bindBlobField(fields, key, member, store);
}
