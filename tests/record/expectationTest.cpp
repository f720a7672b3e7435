// SPDX-License-Identifier: Apache-2.0
#include "record/expectation.hpp"

#include "record/Recorder.hpp"

#include <gmock/gmock.h>

using namespace Record;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

TEST(Difference, EqualListsHaveNone) {
    EXPECT_THAT(difference({}, {}), IsEmpty());
    EXPECT_THAT(difference({"a", "b"}, {"a", "b"}), IsEmpty());
}

TEST(Difference, FirstLineThatDiffersIsShownOnBothSides) {
    EXPECT_THAT(
        difference({"a", "b", "c"}, {"a", "x", "c"}),
        AllOf(HasSubstr("line 2 of 3"), HasSubstr("    a\n"), HasSubstr("  - b\n"), HasSubstr("  + x\n")));
}

TEST(Difference, LineTooManyOrTooFewIsSeen) {
    EXPECT_THAT(difference({"a"}, {"a", "a"}), AllOf(HasSubstr("line 2 of 1 (now 2)"), HasSubstr("  + a\n")));
    EXPECT_THAT(difference({"a", "a"}, {"a"}), AllOf(HasSubstr("line 2 of 2 (now 1)"), HasSubstr("  - a\n")));
}

TEST(Recorder, LinesShowNeitherFolderNorMemory) {
    Recorder recorder("/some/folder");
    recorder.event("x /some/folder/y /some/folder");
    recorder.event("\"KxToLas, (Mem: 1500[MB]), Write #\"\nz");
    EXPECT_THAT(recorder.lines(), ElementsAre("x <out>/y <out>", "\"KxToLas, (Mem: N[MB]), Write #\"\\nz"));
}

TEST(HashOf, GivesThePublishedValuesOfFnv1a) {
    EXPECT_EQ(hexadecimal(hashOf("")), "cbf29ce484222325");
    EXPECT_EQ(hexadecimal(hashOf("a")), "af63dc4c8601ec8c");
    EXPECT_EQ(hexadecimal(hashOf("foobar")), "85944171f73967e8");
    EXPECT_EQ(hexadecimal(0x1f), "000000000000001f");
}
