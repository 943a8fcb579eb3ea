#include "host/trap/trap_recorder.h"

#include "host/trap/trap_text.h"

namespace host::trap {

namespace {

thread_local TrapRecorder* youngest = nullptr;

}  // namespace

TrapRecorder::TrapRecorder() : outer_(youngest) { youngest = this; }

TrapRecorder::~TrapRecorder() { youngest = outer_; }

TrapRecorder* TrapRecorder::current() { return youngest; }

void TrapRecorder::record(const KaviTrapInfo& trap) {
  traps_.push_back({trap.server(), trap.version(), trap.oid(), trap.specificType(),
                    fittingTrapText(trap.value())});
}

}  // namespace host::trap
