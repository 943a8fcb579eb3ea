#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "gateway/cli/inputs.h"
#include "gateway/cli/output_folder.h"

namespace gateway::cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

TEST(OutputNames, GiveEachInputItsOwn) {
  OutputNames names({"deleted"});
  EXPECT_EQ(names.reserve("a.eml"), "a.eml");
  EXPECT_EQ(names.reserve("a.eml"), "a-2.eml");
  EXPECT_EQ(names.reserve("a-2.eml"), "a-2-2.eml");
  EXPECT_EQ(names.reserve("a.eml"), "a-3.eml");
  EXPECT_EQ(names.reserve("deleted"), "deleted-2");
  EXPECT_EQ(names.reserve(".hidden"), ".hidden");
  EXPECT_EQ(names.reserve(".hidden"), ".hidden-2");
}

TEST(OutputNames, TakeLinearTimeForOneName) {
  // Counting up from 2 each time would be twenty thousand million steps.
  constexpr unsigned int kCount = 200000;
  OutputNames names({});
  std::string last;
  for (unsigned int i = 0; i < kCount; ++i) last = names.reserve("a.eml");
  EXPECT_EQ(last, "a-" + std::to_string(kCount) + ".eml");
}

TEST(OutputNames, KeepFilesAndFoldersApart) {
  OutputNames names({"calls.jsonl"});
  EXPECT_EQ(names.reserve("box"), "box");
  EXPECT_EQ(names.reserve("box/a.eml"), "box-2/a.eml");
  EXPECT_EQ(names.reserve("box/b.eml"), "box-2/b.eml");
  EXPECT_EQ(names.reserve("x/y"), "x/y");
  EXPECT_EQ(names.reserve("x"), "x-2");
  EXPECT_EQ(names.reserve("calls.jsonl/z"), "calls-2.jsonl/z");
}

/// A fresh folder, removed again.
class InputsTest : public testing::Test {
 protected:
  void SetUp() override {
    root_ =
        fs::path(testing::TempDir()) /
        ("inputs-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(root_);
    fs::create_directories(root_);
  }
  void TearDown() override { fs::remove_all(root_); }

  std::string put(const std::string& name, const std::string& text) {
    const fs::path path = root_ / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }

  std::vector<std::string> messagesOf(const Inputs& inputs) {
    std::vector<std::string> found;
    forEachMessage(inputs, [&found](InputMessage message) {
      found.push_back(message.file->outputName + " " + std::to_string(message.number) +
                      (message.bytes != nullptr ? " read" : ""));
      return true;
    });
    return found;
  }

  fs::path root_;
};

TEST_F(InputsTest, WalksFoldersInOrderWithoutHiddenFiles) {
  put("b/two.eml", "x");
  put("a.eml", "x");
  put("b/one.eml", "x");
  put(".hidden", "x");
  put(".git/config", "x");
  const Inputs inputs = Inputs::collect({root_.string()}, "", {});
  EXPECT_THAT(messagesOf(inputs), ElementsAre("a.eml 0", "b/one.eml 0", "b/two.eml 0"));
  EXPECT_THAT(inputs.faults(), IsEmpty());
}

TEST_F(InputsTest, LeavesTheOutputFolderOut) {
  put("a.eml", "x");
  put("out/a.eml", "x");
  const Inputs inputs = Inputs::collect({root_.string()}, (root_ / "out").string(), {});
  EXPECT_THAT(messagesOf(inputs), ElementsAre("a.eml 0"));
}

TEST_F(InputsTest, ReportsWhatIsMissing) {
  const Inputs inputs = Inputs::collect({(root_ / "none.eml").string()}, "", {});
  ASSERT_EQ(inputs.faults().size(), 1u);
  EXPECT_EQ(inputs.faults()[0].reason, "No such file or directory");
  EXPECT_THAT(inputs.files(), IsEmpty());
}

TEST_F(InputsTest, NumbersTheMessagesOfAnMbox) {
  const std::string one = "From a Mon Mar  3 09:12:44 2025\nA: b\n\nx\n";
  const std::string box = put("box", one + "\n" + one);
  const std::string single = put("single.eml", one);
  const Inputs inputs = Inputs::collect({box, single}, "", {});
  EXPECT_THAT(messagesOf(inputs), ElementsAre("box 1 read", "box 2 read", "single.eml 0 read"));
}

TEST_F(InputsTest, KnowsItsInputsByAnyName) {
  const std::string path = put("a.eml", "x");
  const Inputs inputs = Inputs::collect({path}, "", {});
  EXPECT_TRUE(inputs.isInput((root_ / "." / "a.eml").string()));
  fs::create_hard_link(path, root_ / "link");
  EXPECT_TRUE(inputs.isInput((root_ / "link").string()));
  EXPECT_FALSE(inputs.isInput((root_ / "b.eml").string()));
  EXPECT_EQ(OutputFolder(root_.string() + "/", inputs).inputInTheWay(), path);
  EXPECT_EQ(OutputFolder((root_ / "out").string(), inputs).inputInTheWay(), "");
}

TEST_F(InputsTest, OutputReplacesAnEarlierResultButNothingElse) {
  const std::string input = put("a.eml", "input");
  const Inputs inputs = Inputs::collect({input}, "", {});
  const std::string folder = (root_ / "out").string();
  for (const std::string text : {"first", "second"}) {
    OutputFolder out(folder, inputs);
    ASSERT_EQ(out.begin(), "");
    EXPECT_FALSE(fs::exists(out.pathOf("deep/er/a.eml")));
    OutputFile file(out, "deep/er/a.eml");
    EXPECT_TRUE(file.write(text.data(), text.size()));
    EXPECT_EQ(file.commit(), "");
    std::ifstream stored(out.pathOf("deep/er/a.eml"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stored), {}), text);
    EXPECT_EQ(OutputFolder(folder, inputs).begin(), folder + ": another run writes there");
  }

  OutputFolder same(root_.string(), inputs);
  EXPECT_EQ(same.begin(), input + ": is not from an earlier run");
  OutputFile file(same, "a.eml");
  EXPECT_TRUE(file.write("x", 1));
  EXPECT_NE(file.commit(), "");
  std::ifstream kept(input);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "input");
}

}  // namespace
}  // namespace gateway::cli
