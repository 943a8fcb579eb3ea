// One daemon to a state folder, and one to a socket.
#include "gateway/milter/instance_lock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <optional>

#include "tests/unit/host/core/temp_folder.h"

namespace {

using gateway::milter::InstanceLock;
using gateway::milter::isServed;
using testing::HasSubstr;

TEST(InstanceLock, TheSecondIsToldWhoHasIt) {
  const testing_host::TempFolder folder;
  std::optional<InstanceLock> first(std::in_place);
  EXPECT_EQ(first->take(folder.path()), "");
  InstanceLock second;
  EXPECT_THAT(second.take(folder.path()),
              HasSubstr("another kavi-milter, process " + std::to_string(::getpid()) +
                        ", serves with this state folder already"));
  first.reset();
  EXPECT_EQ(second.take(folder.path()), "");
}

TEST(InstanceLock, ALongerNumberOfBeforeIsReplaced) {
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "daemon.lock", "123456789012345\n");
  InstanceLock lock;
  EXPECT_EQ(lock.take(folder.path()), "");
  EXPECT_EQ(testing_host::contentOf(folder / "daemon.lock"), std::to_string(::getpid()) + "\n");
}

TEST(InstanceLock, WhatIsNoNumberIsNotRepeated) {
  const testing_host::TempFolder folder;
  InstanceLock first;
  EXPECT_EQ(first.take(folder.path()), "");
  testing_host::writeFile(folder / "daemon.lock", "somebody\n");
  EXPECT_THAT(InstanceLock().take(folder.path()), HasSubstr(": another kavi-milter serves with"));
}

TEST(InstanceLock, AMissingFolderIsSaid) {
  EXPECT_THAT(InstanceLock().take("/nonexistent/state"), HasSubstr("/nonexistent/state: "));
}

class Served : public testing::Test {
 protected:
  // A socket at `path`, on which somebody listens or does not.
  int socketAt(const std::string& path, bool listening) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int opened = ::socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(opened, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    if (listening) {
      EXPECT_EQ(::listen(opened, 0), 0);
    }
    return opened;
  }
  testing_host::TempFolder folder_;
};

TEST_F(Served, OnlyASocketThatSomebodyListensOn) {
  const std::string path = folder_ / "milter";
  EXPECT_FALSE(isServed(path));
  EXPECT_FALSE(isServed(""));
  EXPECT_FALSE(isServed(std::string(500, 'x')));
  const int listening = socketAt(path, true);
  EXPECT_TRUE(isServed(path));
  // Its queue is full by now.
  EXPECT_TRUE(isServed(path));
  EXPECT_TRUE(isServed(path));
  ::close(listening);
  EXPECT_FALSE(isServed(path));
  testing_host::writeFile(folder_ / "file", "");
  EXPECT_FALSE(isServed(folder_ / "file"));
}

}  // namespace
