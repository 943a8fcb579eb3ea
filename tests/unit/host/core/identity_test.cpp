// Whom root acts as on the folders of other users.
#include "host/core/identity.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::becomeOwner;
using host::core::becomeUser;
using testing_host::inChild;

constexpr uid_t kNobody = 65534;
constexpr uid_t kNameless = 54321;

class Identity : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  }

  // Whom a child of root ends as: what `found` says of the user, the error text and the new name.
  static void expect(const std::string& path, const std::string& otherwise, uid_t user,
                     const std::string& name, const std::string& error = {}) {
    const int status = inChild([&] {
      std::string became = "?";
      const std::string fault = becomeOwner(path, otherwise, became);
      if (error.empty() != fault.empty() || fault.find(error) == std::string::npos) return 1;
      if (::geteuid() != user || ::getuid() != user) return 2;
      // For good.
      if (user != 0 && ::setuid(0) == 0) return 3;
      return error.empty() && became != name ? 4 : 0;
    });
    EXPECT_EQ(status, 0) << path;
  }

  std::string folderOf(uid_t user) {
    const std::string path = folder_.path() + "/of" + std::to_string(user);
    std::filesystem::create_directory(path);
    EXPECT_EQ(::chown(path.c_str(), user, user), 0);
    return path;
  }

  testing_host::TempFolder folder_;
};

TEST_F(Identity, RootBecomesWhoeverOwnsTheFolder) {
  expect(folderOf(kNobody), "", kNobody, "nobody");
  expect(folderOf(kNobody) + "/", "root", kNobody, "nobody");
}

TEST_F(Identity, OfAMissingFolderTheNearestOneAboveCounts) {
  expect(folderOf(kNobody) + "/a/b//c/", "", kNobody, "nobody");
  expect(folder_.path() + "/a/b", "", 0, "");
  expect("/", "", 0, "");
}

TEST_F(Identity, AUserInNoListIsTakenOnByNumber) {
  const std::string path = folderOf(kNameless);
  expect(path, "", kNameless, std::to_string(kNameless));
  EXPECT_EQ(inChild([&] {
              std::string became;
              becomeOwner(path, "", became);
              return ::getegid() == kNameless && ::getgroups(0, nullptr) == 0 ? 0 : 1;
            }),
            0);
}

TEST_F(Identity, OfRootsFoldersTheNamedUserCounts) {
  expect(folder_.path(), "nobody", kNobody, "nobody");
  expect(folder_.path(), "root", 0, "");
  expect(folder_.path(), "", 0, "");
  expect(folder_.path(), "no-such-user", 0, "", "there is no user 'no-such-user'");
}

TEST_F(Identity, AFolderThatTheNamedUserCannotMakeIsRefusedWithTheRemedy) {
  const std::string path = folder_.path() + "/state";
  expect(path, "nobody", 0, "", "install -d -o nobody -m 0700 " + path);
}

TEST_F(Identity, SomebodyElseStaysWhoHeIs) {
  const std::string path = folder_.path();
  EXPECT_EQ(inChild([&] {
              if (!testing_host::becomeUnprivileged()) return 1;
              std::string became = "?";
              if (!becomeOwner(path, "root", became).empty() || !became.empty()) return 2;
              return becomeUser("no-such-user").empty() ? 0 : 3;
            }),
            0);
}

TEST_F(Identity, RootBecomesAUserWithThatUsersGroups) {
  EXPECT_EQ(inChild([] {
              if (!becomeUser("nobody").empty()) return 1;
              return ::geteuid() == kNobody && ::getegid() == kNobody ? 0 : 2;
            }),
            0);
  EXPECT_EQ(inChild([] { return becomeUser("root").empty() && ::geteuid() == 0 ? 0 : 1; }), 0);
  EXPECT_NE(becomeUser("no-such-user"), "");
}

}  // namespace
