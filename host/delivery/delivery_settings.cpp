#include "host/delivery/delivery_settings.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdint>
#include <fstream>
#include <utility>

#include "host/core/section_reader.h"
#include "host/delivery/smtp_address.h"

namespace host::delivery {

namespace {

constexpr char kSection[] = "delivery";
constexpr int kMaxPort = 65535;
constexpr int kMsPerSecond = 1000;
constexpr int kMaxSeconds = INT_MAX / kMsPerSecond;

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "localhost";
  return name.data();
}

// What only the settings of delivery hold.
class DeliverySection : public core::SectionReader {
 public:
  using SectionReader::SectionReader;

  void pause(const std::string& key, std::int64_t& value) {
    int given = static_cast<int>(value);
    number(key, 1, INT_MAX, given);
    value = given;
  }

  void milliseconds(const std::string& key, int& value) {
    int seconds = value / kMsPerSecond;
    number(key, 1, kMaxSeconds, seconds);
    value = seconds * kMsPerSecond;
  }

  void host(const std::string& key, std::string& value) {
    std::string text;
    if (!this->text(key, text) || text.empty()) return;
    if (checkHost(text) == AdapterError::None) {
      value = text;
    } else {
      fault(key, "'" + text + "' is no host name and no address");
    }
  }

  // Everything but host and port. The keys begin with `prefix`.
  void security(const std::string& prefix, SmtpDestination& to) {
    tls(prefix + "tls", to);
    int verify = to.verifyPeer ? 1 : 0;
    number(prefix + "verify", 0, 1, verify);
    to.verifyPeer = verify != 0;
    text(prefix + "ca_file", to.caFile);
    text(prefix + "user", to.user);
    std::string file;
    if (text(prefix + "password_file", file)) password(prefix + "password_file", file, to);
    // On the way an attacker could take STARTTLS out of the offers and read the password.
    const bool exposed = to.tls == SmtpTls::Off || to.tls == SmtpTls::Opportunistic;
    const bool local = to.host == "localhost" || to.host == "::1" || to.host.starts_with("127.");
    if (!to.user.empty() && exposed && !local) {
      fault(prefix + "user", "a login needs " + prefix + "tls = starttls or implicit");
    }
  }

 private:
  void tls(const std::string& key, SmtpDestination& to) {
    constexpr std::array<std::pair<const char*, SmtpTls>, 4> kWords{
        {{"off", SmtpTls::Off},
         {"try", SmtpTls::Opportunistic},
         {"starttls", SmtpTls::Required},
         {"implicit", SmtpTls::Implicit}}};
    std::string word;
    if (!text(key, word)) return;
    for (const auto& [name, tls] : kWords) {
      if (word != name) continue;
      to.tls = tls;
      to.verifyPeer = tls != SmtpTls::Opportunistic;
      return;
    }
    fault(key, "'" + word + "' is none of off, try, starttls, implicit");
  }

  void password(const std::string& key, const std::string& path, SmtpDestination& to) {
    std::ifstream file(path);
    if (!std::getline(file, to.password)) fault(key, "cannot read '" + path + "'");
  }
};

}  // namespace

bool DeliverySettings::read(Kavi::GlobalSetting& settings, std::string& error) {
  DeliverySettings found;
  std::string faults;
  DeliverySection section(settings, kSection, faults);
  section.path("state_folder", found.stateFolder);
  found.helloName = hostName();
  section.host("hello_name", found.helloName);
  for (auto& [name, to] :
       {std::pair<std::string, SmtpDestination&>{"scan_", found.scan}, {"plain_", found.plain}}) {
    section.host(name + "host", to.host);
    section.number(name + "port", 1, kMaxPort, to.port);
    section.security(name, to);
  }
  SmtpDestination handoff;
  section.security("handoff_", handoff);
  section.milliseconds("connect_timeout_seconds", found.timeouts.connectMs);
  section.milliseconds("command_timeout_seconds", found.timeouts.commandMs);
  section.milliseconds("total_timeout_seconds", found.timeouts.totalMs);
  section.milliseconds("handoff_deadline_seconds", found.handoffDeadlineMs);
  section.pause("retry_first_seconds", found.retry.firstPause);
  section.pause("retry_longest_seconds", found.retry.longestPause);
  section.pause("give_up_seconds", found.retry.giveUpAfter);
  section.text("seal_key_file", found.sealKeyFile);
  if (!faults.empty()) {
    error = faults;
    return false;
  }
  found.settings_ = &settings;
  *this = std::move(found);
  return true;
}

bool DeliverySettings::handoffTo(const std::string& host, int port, SmtpDestination& to,
                                 std::string& error) const {
  SmtpDestination found;
  found.host = host;
  found.port = port;
  std::string faults;
  if (settings_ != nullptr) {
    DeliverySection common(*settings_, kSection, faults);
    common.security("handoff_", found);
    DeliverySection own(*settings_, std::string(kSection) + " " + found.text(), faults);
    own.security("", found);
  }
  if (!faults.empty()) {
    error = faults;
    return false;
  }
  to = std::move(found);
  return true;
}

}  // namespace host::delivery
