#include "host/delivery/adapter_error.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using host::core::FileError;
using host::delivery::AdapterError;
using host::delivery::adapterErrorOf;
using host::delivery::adapterErrorText;

TEST(AdapterErrors, HaveATextEach) {
  std::set<std::string> texts;
  const unsigned int codes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 20, 21, 22, 23, 24, 25, 26, 27};
  for (const unsigned int code : codes) texts.insert(adapterErrorText(code));
  EXPECT_EQ(texts.size(), std::size(codes));
  EXPECT_EQ(texts.count("unknown error"), 0u);
  EXPECT_STREQ(adapterErrorText(9999), "unknown error");
  EXPECT_STREQ(adapterErrorText(4), "not available in this build");
}

TEST(AdapterErrors, KeepTheCausesOfFileErrorsApart) {
  std::set<AdapterError> errors;
  for (int each = static_cast<int>(FileError::None);
       each <= static_cast<int>(FileError::InputOutput); ++each) {
    errors.insert(adapterErrorOf(static_cast<FileError>(each)));
  }
  EXPECT_EQ(errors.size(), 9u);
  EXPECT_EQ(adapterErrorOf(FileError::None), AdapterError::None);
  EXPECT_EQ(adapterErrorOf(FileError::DiskFull), AdapterError::DiskFull);
}

TEST(AdapterErrors, AgreeWithTheResult) {
  unsigned int error = 99;
  EXPECT_EQ(finish(error, AdapterError::None), 0);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(finish(error, AdapterError::DiskFull), 1);
  EXPECT_EQ(error, 20u);
}

}  // namespace
