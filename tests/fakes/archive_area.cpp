// The host's record of an archive area, as far as the library reads it: its fields.
#include "library/platform/archive_area.h"

bool ArchiveArea::construct(const char* /*setting*/, unsigned int /*length*/) { return false; }

std::string ArchiveArea::serialize() { return {}; }

unsigned int ArchiveArea::getType() const { return ArchiveAreaType; }
