#include "host/delivery/seal_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <thread>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::parseSealKeys;
using host::delivery::SealKey;
using host::delivery::SealKeys;
using testing_host::contentOf;
using testing_host::FailingOps;
using testing_host::TempFolder;
using testing_host::writeFile;

constexpr std::int64_t kNow = 1'700'000'000;
const std::string kSecret(64, 'a');

std::string line(const std::string& id, std::int64_t from) {
  return "seal-key " + id + " " + std::to_string(from) + " " + kSecret + "\n";
}

TEST(SealKeys, FileIsMadeAtFirstUse) {
  TempFolder temp;
  const std::string path = temp / "keys/reprocess.keys";
  const SealKeys keys(path);
  SealKey first;
  SealKey second;
  ASSERT_EQ(keys.signingKey(kNow, first), AdapterError::None);
  ASSERT_EQ(SealKeys(path).signingKey(kNow + 5, second), AdapterError::None);
  EXPECT_EQ(first.id, second.id);
  EXPECT_EQ(first.secret, second.secret);
  EXPECT_EQ(first.secret.size(), 32u);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
  ASSERT_EQ(::stat((temp / "keys").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0700u);
}

TEST(SealKeys, ManyThatMakeItAtOnceShareOneKey) {
  TempFolder temp;
  std::set<std::string> secrets;
  std::mutex mutex;
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([&] {
      SealKey key;
      ASSERT_EQ(SealKeys(temp / "keys").signingKey(kNow, key), AdapterError::None);
      const std::lock_guard lock(mutex);
      secrets.insert(key.secret);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(secrets.size(), 1u);
}

TEST(SealKeys, LookingForAKeyMakesNone) {
  TempFolder temp;
  SealKey key;
  EXPECT_EQ(SealKeys(temp / "keys").findKey("0123456789abcdef", key), AdapterError::NotFound);
  EXPECT_EQ(SealKeys(temp / "none/keys").findKey("0123456789abcdef", key), AdapterError::NotFound);
  EXPECT_EQ(testing_host::entryCount(temp.path()), 0u);
}

TEST(SealKeys, NewestValidKeySeals) {
  TempFolder temp;
  const std::string path = temp / "keys";
  const std::string old(16, '1');
  const std::string present(16, '2');
  const std::string future(16, '3');
  writeFile(path, "# keys of the site\n" + line(present, kNow - 10) + "\n" + line(old, kNow - 99) +
                      line(future, kNow + 10));
  const SealKeys keys(path);
  SealKey key;
  ASSERT_EQ(keys.signingKey(kNow, key), AdapterError::None);
  EXPECT_EQ(key.id, present);
  ASSERT_EQ(keys.signingKey(kNow + 10, key), AdapterError::None);
  EXPECT_EQ(key.id, future);
  for (const std::string& id : {old, present, future}) {
    ASSERT_EQ(keys.findKey(id, key), AdapterError::None);
    EXPECT_EQ(key.id, id);
  }
  EXPECT_EQ(keys.signingKey(kNow - 100, key), AdapterError::KeyUnavailable);
}

TEST(SealKeys, AddedKeyTakesOver) {
  TempFolder temp;
  const SealKeys keys(temp / "keys");
  SealKey first;
  SealKey second;
  ASSERT_EQ(keys.signingKey(kNow, first), AdapterError::None);
  ASSERT_EQ(keys.addKey(kNow + 100), AdapterError::None);
  ASSERT_EQ(keys.signingKey(kNow + 99, second), AdapterError::None);
  EXPECT_EQ(second.id, first.id);
  ASSERT_EQ(keys.signingKey(kNow + 100, second), AdapterError::None);
  EXPECT_NE(second.id, first.id);
  ASSERT_EQ(keys.findKey(first.id, second), AdapterError::None);
}

struct Faulty {
  const char* name;
  std::string content;
};

class SealKeyFile : public ::testing::TestWithParam<Faulty> {};

TEST_P(SealKeyFile, ThatIsFaultyIsNeverReplaced) {
  TempFolder temp;
  const std::string path = temp / "keys";
  writeFile(path, GetParam().content);
  const SealKeys keys(path);
  SealKey key;
  EXPECT_EQ(keys.signingKey(kNow, key), AdapterError::KeyUnavailable);
  EXPECT_EQ(contentOf(path), GetParam().content);
  EXPECT_EQ(key.id, "");
}

INSTANTIATE_TEST_SUITE_P(
    All, SealKeyFile,
    ::testing::Values(Faulty{"Empty", ""}, Faulty{"CommentOnly", "# nothing\n"},
                      Faulty{"Binary", "\1\2\3"},
                      Faulty{"OtherWord", "key 0123456789abcdef 1 " + kSecret},
                      Faulty{"ShortId", line("0123456789abcde", 1)},
                      Faulty{"UpperId", line("0123456789ABCDEF", 1)},
                      Faulty{"NoSecret", "seal-key 0123456789abcdef 1\n"},
                      Faulty{"ShortSecret", "seal-key 0123456789abcdef 1 abcd\n"},
                      Faulty{"NoTime", "seal-key 0123456789abcdef x " + kSecret + "\n"},
                      Faulty{"FurtherWord", "seal-key 0123456789abcdef 1 " + kSecret + " x\n"},
                      Faulty{"OneGoodOneBad", line("0123456789abcdef", 1) + "seal-key\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(SealKeys, UnreadableFileIsATemporaryFailureAndNoNewKey) {
  TempFolder temp;
  const std::string path = temp / "keys";
  writeFile(path, line(std::string(16, '1'), 1));
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  ASSERT_EQ(::chmod(temp.path().c_str(), 0777), 0);
  const int result = testing_host::inChild([&] {
    if (!testing_host::becomeUnprivileged()) return testing_host::kNotPermitted;
    const SealKeys keys(path);
    SealKey key;
    if (keys.signingKey(kNow, key) != AdapterError::KeyUnavailable) return 1;
    if (keys.findKey(std::string(16, '1'), key) != AdapterError::KeyUnavailable) return 2;
    if (keys.addKey(kNow) != AdapterError::KeyUnavailable) return 3;
    return 0;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contentOf(path), line(std::string(16, '1'), 1));
  EXPECT_EQ(testing_host::entryCount(temp.path()), 1u);
}

TEST(SealKeys, FolderThatMayNotBeWrittenIsATemporaryFailure) {
  TempFolder temp;
  ASSERT_EQ(::chmod(temp.path().c_str(), 0755), 0);
  const int result = testing_host::inChild([&] {
    if (!testing_host::becomeUnprivileged()) return testing_host::kNotPermitted;
    SealKey key;
    return SealKeys(temp / "keys").signingKey(kNow, key) == AdapterError::KeyUnavailable ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(testing_host::entryCount(temp.path()), 0u);
}

TEST(SealKeys, NoFaultOfTheDiskLeavesHalfAFile) {
  FailingOps ops;
  for (unsigned int call = 1; call < 100; ++call) {
    TempFolder temp;
    ops.failCall(call, EIO);
    SealKey key;
    const AdapterError error = SealKeys(temp / "keys", ops).signingKey(kNow, key);
    const bool fired = ops.fired();
    ops.failCall(0, 0);
    SealKey later;
    ASSERT_EQ(SealKeys(temp / "keys", ops).signingKey(kNow, later), AdapterError::None) << call;
    if (error == AdapterError::None) {
      EXPECT_EQ(key.id, later.id) << call;
    } else {
      EXPECT_EQ(error, AdapterError::KeyUnavailable) << call;
    }
    if (!fired) return;
  }
  FAIL() << "never got through";
}

}  // namespace
