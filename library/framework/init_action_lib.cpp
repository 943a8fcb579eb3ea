#include "library/framework/init_action_lib.h"

#include "library/actions/disposition/archive.h"
#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/encryption.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/delete_attachment.h"
#include "library/actions/modification/stamp.h"
#include "library/actions/modification/tag_subject.h"
#include "library/actions/modification/x_header.h"
#include "library/framework/guard.h"
#include "library/notification/feedback.h"
#include "library/notification/notify.h"
#include "library/tokens/action_utils.h"

namespace {

using ClassInit = bool (*)(Kavi::GlobalSetting&, Kavi::LogMsg&);

// The order is part of the interface: hosts see it in the sequence of settings read and logged.
constexpr ClassInit kClassInits[] = {
    &ActionUtils::init,   &ActArchive::init,   &ActVirusClean::init,
    &ActDelete::init,     &ActReaddress::init, &ActDeleteAttachment::init,
    &ActPostpone::init,   &ActBcc::init,       &ActQuarantine::init,
    &ActTagSubject::init, &ActStamp::init,     &ActNotify::init,
    &ActHandoff::init,    &ActPackwatch::init, &ActInsertXHeaderTag::init,
    &ActIBEEncrypt::init,
};

}  // namespace

extern "C" int InitActionLib(Kavi::GlobalSetting& settings, Kavi::LogMsg& log) {
  for (ClassInit init : kClassInits) {
    library::guarded("InitActionLib", false, [&] { return init(settings, log); });
  }
  ActionUtils::_build_token_string_table();
  return 1;
}
