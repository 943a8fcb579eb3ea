#include "gateway/milter/stray_mail.h"

#include "host/core/text_escape.h"

namespace gateway::milter {

void StrayMail::note(const std::string& listener, const std::string& ours,
                     host::core::ProcessLog& log) {
  {
    const std::lock_guard lock(mutex_);
    if (told_.size() >= kMostListeners || !told_.insert(listener).second) return;
  }
  const std::string where = listener.empty() ? "a listener without a name"
                                             : "listener " + host::core::printable(listener);
  if (ours.empty()) {
    log.write(1,
              "mail that was sent back to be scanned came in at %s, and its seal does not count as "
              "reinjection_listener in section milter is not set: the rule that sent it acts again "
              "until its passes are over (give the listener at scan_host and scan_port a name of "
              "its own with milter_macro_daemon_name, and set reinjection_listener to it)",
              where.c_str());
    return;
  }
  log.write(1,
            "mail that was sent back to be scanned came in at %s, and its seal counts at %s only: "
            "the rule that sent it acts again until its passes are over (is "
            "milter_macro_daemon_name of the listener at scan_host and scan_port the same as "
            "reinjection_listener in section milter? If it is, somebody sends copies of such mail)",
            where.c_str(), host::core::printable(ours).c_str());
}

}  // namespace gateway::milter
