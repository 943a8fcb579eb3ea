// What readers may find an entity to be called.
#include "host/message/declared_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::declaredContentTypes;
using host::message::declaredDispositions;
using host::message::declaredFileNames;

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesOf(const std::string& header) {
  const auto message = mail(header + "\n");
  return declaredFileNames(*std::as_const(*message).firstEntity());
}

struct Case {
  const char* title;
  const char* header;
  std::vector<std::string> names;
};

class DeclaredNames : public testing::TestWithParam<Case> {};

TEST_P(DeclaredNames, AreAllOfThem) {
  EXPECT_THAT(namesOf(GetParam().header), testing::UnorderedElementsAreArray(GetParam().names));
}

INSTANTIATE_TEST_SUITE_P(
    All, DeclaredNames,
    testing::Values(
        Case{"None", "Content-Type: text/plain; charset=utf-8\n", {}},
        Case{"Plain", "Content-Disposition: attachment; filename=a.exe\n", {"a.exe"}},
        Case{"Disagreeing",
             "Content-Type: application/octet-stream; name=a.exe\n"
             "Content-Disposition: attachment; filename=\"b.txt\"\n",
             {"b.txt", "a.exe"}},
        Case{"Duplicates",
             "Content-Disposition: attachment; filename=b.txt; FileName=a.exe\n",
             {"b.txt", "a.exe"}},
        Case{"NameInTheOtherField",
             "Content-Type: text/plain; filename=a.exe\nContent-Disposition: inline; name=b.exe\n",
             {"a.exe", "b.exe"}},
        Case{"DuplicateFields",
             "Content-Disposition: inline; filename=b.txt\n"
             "Content-Disposition: attachment; filename=a.exe\n"
             "Content-Type: text/plain\nContent-Type: text/plain; name=c.js\n",
             {"b.txt", "a.exe", "c.js"}},
        Case{"Pieces",
             "Content-Disposition: attachment; filename*1=.exe; filename*0=\"tool\"\n",
             {"tool.exe"}},
        Case{"PiecesWithAGap",
             "Content-Disposition: attachment; filename*0=a.e; filename*2=xe\n",
             {"a.e", "a.exe"}},
        Case{"PiecesTwice",
             "Content-Disposition: attachment; filename*0=a.; filename*1=txt; filename*1=exe\n",
             {"a.txt", "a.exe", "a.txtexe"}},
        Case{"ExtendedPieces",
             "Content-Disposition: attachment; filename*0*=utf-8''%e2%82; filename*1*=%ac.exe\n",
             {"\xE2\x82\xAC.exe"}},
        Case{"ExtendedBesidePlain",
             "Content-Disposition: attachment; filename=b.txt; filename*=utf-8''a%2Eexe\n",
             {"b.txt", "a.exe", "utf-8''a%2Eexe"}},
        Case{"ExtendedInACharset",
             "Content-Disposition: attachment; filename*=shift_jis'ja'%95%5C.exe\n",
             {"\xE8\xA1\xA8.exe", "shift_jis'ja'%95%5C.exe"}},
        Case{"EncodedWord",
             "Content-Disposition: attachment; filename=\"=?utf-8?B?YS5leGU=?=\"\n",
             {"a.exe", "=?utf-8?B?YS5leGU=?="}},
        Case{"EncodedWordUnquoted",
             "Content-Type: application/x; name==?utf-8?Q?a=2Eexe?=\n",
             {"a.exe", "=?utf-8?Q?a=2Eexe?="}},
        Case{"PercentInAPlainParameter",
             "Content-Disposition: attachment; filename=\"a%2Eexe\"; name=\"100%\"\n",
             {"a%2Eexe", "a.exe", "100%"}},
        Case{"DotsBehind",
             "Content-Disposition: attachment; filename=\"a.exe. .\"\n",
             {"a.exe. .", "a.exe"}},
        Case{"NulInside",
             "Content-Disposition: attachment; filename*=utf-8''a.exe%00.txt\n",
             {"a.exe .txt", "a.exe", "utf-8''a.exe%00.txt"}},
        Case{"NulInPieces",
             "Content-Disposition: attachment; filename*0*=utf-8''a.exe%00; filename*1=.txt\n",
             {"a.exe .txt", "a.exe", "a.exe.txt"}},
        Case{"BlanksUnquoted",
             "Content-Disposition: attachment; filename=my tool.exe\n",
             {"my tool.exe", "my"}},
        Case{"Unclosed",
             "Content-Disposition: attachment; filename=\"a.exe; size=5\n",
             {"\"a.exe; size=5", "a.exe; size=5", "a.exe"}},
        Case{"SemicolonInside",
             "Content-Disposition: attachment; filename=\"a;b.exe\"\n",
             {"a;b.exe"}},
        Case{"Backslashes",
             "Content-Disposition: attachment; filename=\"c:\\t\\a.exe\"\n",
             {"c:ta.exe", "c:\\t\\a.exe"}},
        Case{"MissingSemicolon",
             "Content-Disposition: attachment; filename=\"b.txt\" filename=\"a.exe\"\n",
             {"b.txt", "a.exe"}},
        Case{"WithoutAType", "Content-Disposition: filename=a.exe\n", {"a.exe"}},
        Case{
            "Blanks", "Content-Disposition: attachment ;\n\tfilename =\n \"a.exe\" ;\n", {"a.exe"}},
        Case{"OtherParameters", "Content-Disposition: attachment; xfilename=a.exe; names=b\n", {}}),
    [](const auto& test) { return std::string(test.param.title); });

TEST(DeclaredNamesOf, GiveWhatTheMessageLibraryGivesFirst) {
  const char kHeader[] =
      "Content-Type: application/x; name=a.exe\nContent-Disposition: attachment; "
      "filename=b.txt\n\n";
  const auto message = mail(kHeader);
  const auto& root = *std::as_const(*message).firstEntity();
  EXPECT_EQ(declaredFileNames(root).front(), root.fileNameText());
}

TEST(DeclaredNamesOf, AnyFieldMakesTheFileNameOfTheEntity) {
  const auto message =
      mail("Content-Disposition: inline\nContent-Disposition: x; filename=a.exe\n\n");
  EXPECT_EQ(message->firstEntity()->fileNameText(), "a.exe");
  ASSERT_NE(message->firstEntity()->fileName(), nullptr);
  EXPECT_STREQ(message->firstEntity()->fileName()->name(), "a.exe");
}

TEST(DeclaredTypes, AreThoseOfAllFields) {
  const auto message = mail(
      "Content-Type: Text/Plain; x=y\nContent-Type: application / x-msdownload (program)\n"
      "Content-Disposition: INLINE\nContent-Disposition: Attachment; filename=a\n\n");
  const auto& root = *std::as_const(*message).firstEntity();
  EXPECT_THAT(declaredContentTypes(root), ElementsAre("text/plain", "application/x-msdownload"));
  EXPECT_THAT(declaredDispositions(root), ElementsAre("inline", "attachment"));
  const auto bare = mail("Subject: x\n\n");
  EXPECT_THAT(declaredContentTypes(*std::as_const(*bare).firstEntity()), ElementsAre("text/plain"));
  EXPECT_THAT(declaredDispositions(*std::as_const(*bare).firstEntity()), IsEmpty());
}

TEST(DeclaredNamesOf, HostileValuesTakeLinearTime) {
  for (const char* unit : {";\"\\", "name=a;", "name=a ", "name*0=a;", "\"", "name=\"a\" ", "\\",
                           "name*1*=%;", "(", "=?x?q?", "filename=\"", "'"}) {
    std::string value = "Content-Type: a/b;";
    while (value.size() < 250'000) value += unit;
    value += ";name=z.exe;name=\"z.exe\"";
    const std::vector<std::string> names = namesOf(value + "\n");
    EXPECT_LT(names.size(), 250'000u);
  }
}

}  // namespace
}  // namespace message_test
