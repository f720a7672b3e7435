// SPDX-License-Identifier: Apache-2.0
#include "host/report/Messages.hpp"

#include "support/ConsoleCapture.hpp"

#include <cstdio>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

class MessagesTest : public ::testing::Test {
protected:
    std::string shown() {
        std::fflush(stream_.get());
        std::rewind(stream_.get());
        std::string text;
        for (int character = std::fgetc(stream_.get()); character != EOF;
             character = std::fgetc(stream_.get()))
            text += static_cast<char>(character);
        return text;
    }

    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> stream_{std::tmpfile()};
};

TEST_F(MessagesTest, EachKindHasItsForm) {
    Messages messages(Messages::Verbosity::Normal, stream_.get());
    messages.line("as it stands");
    messages.note("a note");
    messages.warning("look out");
    messages.error("it broke");
    EXPECT_EQ(shown(), "as it stands\na note\ntidewatch: warning: look out\ntidewatch: it broke\n");
}

TEST_F(MessagesTest, NamesThatWouldTurnOrForgeTheTextAreEscaped) {
    Messages messages(Messages::Verbosity::Normal, stream_.get());
    messages.warning("grid \"a\xe2\x80\xae\xff\"");
    messages.status("reading \x1b[2J");
    EXPECT_EQ(shown(), "tidewatch: warning: grid \"a\\xe2\\x80\\xae\\xff\"\n"
                       "\rreading \\x1b[2J\x1b[K");
}

TEST_F(MessagesTest, QuietLeavesErrorsAndWhatWasAskedFor) {
    Messages messages(Messages::Verbosity::Quiet, stream_.get());
    messages.line("as it stands");
    messages.note("a note");
    messages.warning("look out");
    messages.error("it broke");
    EXPECT_EQ(shown(), "as it stands\ntidewatch: it broke\n");
}

TEST_F(MessagesTest, ConsoleMessagesComeAsLinesWhileItLives) {
    Support::ConsoleCapture outside;
    {
        const Messages messages(Messages::Verbosity::Verbose, stream_.get());
        Anchor::Console() << "Run";
        Anchor::Console() << "two\nlines";
    }
    Anchor::Console() << "after";
    EXPECT_EQ(shown(), "Run\ntwo\nlines\n");
    EXPECT_THAT(outside.messages, ::testing::ElementsAre("after"));
}

TEST_F(MessagesTest, UsuallyOnlyConsoleMessagesThatTellOfSomethingMissingAreShown) {
    const Messages messages(Messages::Verbosity::Normal, stream_.get());
    Anchor::Console() << "Run";
    Anchor::Console() << "Have no cell type field";
    Anchor::Console() << "Can only convert scalar fields";
    EXPECT_EQ(shown(), "Have no cell type field\nCan only convert scalar fields\n");
}

TEST_F(MessagesTest, EqualConsoleMessagesAreCounted) {
    Messages messages(Messages::Verbosity::Normal, stream_.get());
    for (int number = 0; number < 1001; ++number) {
        Anchor::Console() << "Can only convert scalar fields";
        Anchor::Console() << "Run";
    }
    Anchor::Console() << "Have no cell type field";
    messages.warning("look out");
    messages.warning("again");
    EXPECT_EQ(shown(), "Can only convert scalar fields\nHave no cell type field\n"
                       "... and 1 000 more: Can only convert scalar fields\n"
                       "tidewatch: warning: look out\ntidewatch: warning: again\n");
}

TEST_F(MessagesTest, EqualConsoleMessagesAreCountedAtTheEndAtTheLatest) {
    {
        const Messages messages(Messages::Verbosity::Normal, stream_.get());
        Anchor::Console() << "Have no cell type field";
        Anchor::Console() << "Have no cell type field";
    }
    EXPECT_EQ(shown(), "Have no cell type field\n... and 1 more: Have no cell type field\n");
}

TEST_F(MessagesTest, VerboseShowsEqualConsoleMessages) {
    const Messages messages(Messages::Verbosity::Verbose, stream_.get());
    Anchor::Console() << "Run";
    Anchor::Console() << "Run";
    EXPECT_EQ(shown(), "Run\nRun\n");
}

TEST_F(MessagesTest, QuietHidesConsoleMessages) {
    const Messages messages(Messages::Verbosity::Quiet, stream_.get());
    Anchor::Console() << "Run";
    EXPECT_EQ(shown(), "");
}

TEST_F(MessagesTest, TheStatusLineMovesBelowOtherLinesAndGoesAtTheEnd) {
    {
        Messages messages(Messages::Verbosity::Normal, stream_.get());
        messages.status("half");
        messages.line("text");
    }
    EXPECT_EQ(shown(), "\rhalf\x1b[K"
                       "\r\x1b[Ktext\nhalf"
                       "\r\x1b[K");
}

TEST_F(MessagesTest, WithoutAStatusLineNothingIsErased) {
    {
        Messages messages(Messages::Verbosity::Normal, stream_.get());
        messages.status("");
    }
    EXPECT_EQ(shown(), "");
}

TEST_F(MessagesTest, TheStatusLineIsCutToTheWidthBetweenCharacters) {
    {
        Messages messages(Messages::Verbosity::Normal, stream_.get());
        // The stream is not a terminal and counts as 80 columns wide, of which the last stays free.
        std::string text;
        for (int number = 0; number < 100; ++number)
            text += "\xc3\xbc";
        messages.status(text);
    }
    std::string expected = "\r";
    for (int number = 0; number < 79; ++number)
        expected += "\xc3\xbc";
    EXPECT_EQ(shown(), expected + "\x1b[K\r\x1b[K");
}

TEST_F(MessagesTest, AFileIsNoTerminal) {
    const Messages messages(Messages::Verbosity::Normal, stream_.get());
    EXPECT_FALSE(messages.canRedraw());
}

} // namespace
} // namespace Tidewatch
