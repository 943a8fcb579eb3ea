// Lets the n-th allocation fail, for n = 1, 2, ... until the operation succeeds: nothing is thrown,
// the failure result is given, nothing leaks and nothing is left behind.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "host/core/action_list.h"
#include "host/core/c_api.h"
#include "host/core/ini_settings.h"
#include "host/core/log.h"
#include "host/core/resource_path.h"
#include "library/framework/kavi_action.h"
#include "library/platform/archive_area.h"
#include "library/platform/blob.h"
#include "library/platform/config_file_on_disk.h"
#include "library/platform/res_bundle.h"
#include "tests/fakes/allocator.h"
#include "tests/fakes/fault_plan.h"
#include "tests/unit/host/core/temp_folder.h"

#ifdef __SANITIZE_ADDRESS__
// The leak checker's own switches.
extern "C" void __lsan_disable();  // NOLINT(bugprone-reserved-identifier)
extern "C" void __lsan_enable();   // NOLINT(bugprone-reserved-identifier)
#endif

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::Unswept;
using Fields = std::map<std::string, std::string>;

constexpr unsigned int kMostAllocations = 100'000;

// `attempt` runs the operation once and answers whether it succeeded.
void sweep(const std::function<bool()>& attempt, long knownLeak = 0) {
  attempt();  // what is kept for the life of the process is made here
  for (unsigned int call = 1; call < kMostAllocations; ++call) {
    const long before = fakes::liveAllocations();
    bool succeeded = false;
    bool fired = false;
    {
      const FaultPlan plan(FaultKind::Allocation, call);
      EXPECT_NO_THROW(succeeded = attempt()) << "allocation " << call;
      fired = plan.fired();
    }
    EXPECT_LE(fakes::liveAllocations() - before, knownLeak) << "leak, allocation " << call;
    if (!fired) {
      EXPECT_TRUE(succeeded);
      EXPECT_GT(call, 1u) << "the operation allocated nothing";
      return;
    }
  }
  FAIL() << "the operation never succeeded";
}

const std::string kLong(200, 'x');

// The INI library loses its copy of the line when memory runs out while it takes it apart.
constexpr long kIniLineLeak = 1;

// Keeps the leak checker of the address sanitizer from reporting that copy.
class LeaksAllowed {
 public:
  LeaksAllowed() {
#ifdef __SANITIZE_ADDRESS__
    __lsan_disable();
#endif
  }
  ~LeaksAllowed() {
#ifdef __SANITIZE_ADDRESS__
    __lsan_enable();
#endif
  }
  LeaksAllowed(const LeaksAllowed&) = delete;
  LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

TEST(CoreFaultSweep, ReadBlob) {
  const std::string text = "{a=" + kLong + ",b=" + kLong + "}";
  sweep([&] {
    const char* cursor = text.c_str();
    Fields fields;
    const bool read = Blob::readBlob(cursor, fields);
    EXPECT_EQ(fields.size(), read ? 2u : 0u);
    EXPECT_EQ(cursor, read ? text.c_str() + text.size() : text.c_str());
    return read;
  });
}

TEST(CoreFaultSweep, WriteBlob) {
  const Fields fields{{"a", kLong}, {"b", kLong}};
  sweep([&] {
    std::string out;
    Blob::writeBlob(out, fields);
    return !out.empty();
  });
}

TEST(CoreFaultSweep, BindBlobField) {
  sweep([&] {
    Fields fields;
    std::string text;
    int number = 12;
    {
      const Unswept unswept;
      fields["text"] = kLong;
      text = kLong + "y";
    }
    const bool stored =
        Blob::bindBlobField(fields, "a key that is longer than a short text", text, true) &&
        Blob::bindBlobField(fields, "another key longer than a short text", number, true);
    const bool taken = Blob::bindBlobField(fields, "text", text, false);
    const Unswept unswept;
    EXPECT_EQ(text, taken ? kLong : kLong + "y");
    return stored && taken;
  });
}

TEST(CoreFaultSweep, ArchiveArea) {
  const std::string setting = "7:200:" + kLong + ":";
  sweep([&] {
    ArchiveArea area;
    if (!area.construct(setting.c_str(), static_cast<unsigned int>(setting.size()))) return false;
    return area.serialize() == setting;
  });
}

TEST(CoreFaultSweep, ConfigFileOnDisk) {
  const LeaksAllowed leaksAllowed;
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "f", "[update]\nkey=" + kLong + "\n");
  const std::string path = folder / "f";
  sweep(
      [&] {
        const Kavi::ConfigFileOnDisk file(path.c_str());
        std::string value;
        const bool found = file.getparam("update", "key", value);
        const Unswept unswept;
        EXPECT_EQ(value, found ? kLong : "");
        return found;
      },
      kIniLineLeak);
}

TEST(CoreFaultSweep, GlobalSetting) {
  host::core::IniSettings settings;
  settings.override("a section that is longer than a short text", "key", kLong);
  settings.override("a section that is longer than a short text", "number", "7");
  sweep([&] {
    std::string value;
    int number = 0;
    const char* section = "a section that is longer than a short text";
    const bool found = settings.getString("key", value, section, 0) == 0 &&
                       settings.getInt("number", number, section, 0) == 0;
    return found && value == kLong && number == 7;
  });
}

TEST(CoreFaultSweep, CSettings) {
  const LeaksAllowed leaksAllowed;
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "f", "[general]\nlocale=ja\n");
  const std::string path = folder / "f";
  sweep(
      [&] {
        char error[100];
        kavi_settings* settings = kavi_settings_open(path.c_str(), error, sizeof error);
        EXPECT_STREQ(error, settings != nullptr ? "" : "out of memory");
        kavi_settings_close(settings);
        return settings != nullptr;
      },
      kIniLineLeak);
}

TEST(CoreFaultSweep, CLog) {
  sweep([] {
    kavi_log* log = kavi_log_open(1);
    kavi_log_close(log);
    return log != nullptr;
  });
}

TEST(CoreFaultSweep, LogLine) {
  host::core::LogOptions options;
  options.level = 0;
  host::core::ProcessLog log(options);
  sweep([&] {
    const host::core::LogCapture capture(log, 1);
    log.write(1, "%s", kLong.c_str());
    return capture.lines().size() == 1;
  });
}

TEST(CoreFaultSweep, LogLineToStderr) {
  ::testing::internal::CaptureStderr();
  host::core::LogOptions options;
  options.format = host::core::LogFormat::Json;
  {
    host::core::ProcessLog log(options);
    sweep([&] {
      log.write(1, "%s", kLong.c_str());
      return true;
    });
  }
  EXPECT_NE(::testing::internal::GetCapturedStderr().find(kLong), std::string::npos);
}

TEST(CoreFaultSweep, Resbundle) {
  sweep([] {
    Kavi::OvResbundle bundle;
    std::string text;
    const char* folder = Kavi::OvResbundle::GetResourceFileName();
    return bundle._init(folder, "IDG_VIRUS_FILTER", "ja") &&
           bundle.getString("IDS_VACTION_DELETE", text);
  });
}

TEST(CoreFaultSweep, CachedResbundle) {
  sweep([] {
    {
      const Unswept unswept;
      host::core::setProductLocale("");  // forgets the bundles
    }
    std::string text;
    bool found = false;
    {
      const Kavi::OvCachedResbundle bundle("IDG_VIRUS_FILTER");
      found = bundle.getString("IDS_VACTION_DELETE", text);
    }
    const Unswept unswept;
    host::core::setProductLocale("");
    return found;
  });
}

TEST(CoreFaultSweep, ActionTokenString) {
  const std::string raw = "12:" + kLong + ";1;9:" + kLong;
  sweep([&] {
    std::string out;
    return KaviAction::CreateActionTokenString(raw.c_str(), out);
  });
}

}  // namespace
