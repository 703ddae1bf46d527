// Text from elsewhere on the terminal: escaped so that it cannot act on the terminal, cut so that it cannot
// flood it.
#include "PMSShownText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(PMSShownTextTest, ControlCharactersAndBrokenUTF8AreEscapedAndLongTextCut) {
    struct Row {
        std::string text;
        std::size_t limit;
        std::string shown;
    };
    const Row rows[] = {
        {"plain text", 100, "plain text"},
        {"\x1b[2J\rfake\nline\t\x7f", 100, "\\x1b[2J\\rfake\\nline\\t\\x7f"},
        {"caf\xc3\xa9 \xe2\x82\xac", 100, "caf\xc3\xa9 \xe2\x82\xac"},
        {"C1 \xc2\x9b" "31m", 100, "C1 \\u009b31m"},
        {"bad \xff \xc3 \xe0\x80\x80 \xed\xa0\x80", 100, "bad \\xff \\xc3 \\xe0\\x80\\x80 \\xed\\xa0\\x80"},
        {"abcdefghij", 4, "abcd... (10 bytes in all)"},
        // A cut never splits a character.
        {"ab\xc3\xa9z", 3, "ab... (5 bytes in all)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.shown);
        EXPECT_EQ(PMSShownText::line(row.text, row.limit), row.shown);
        EXPECT_EQ(PMSShownText::needsEscaping(row.text), row.text != row.shown && row.text.size() <= row.limit);
    }
    EXPECT_EQ(PMSShownText::cut("ab\xc3\xa9z", 3), "ab... (5 bytes in all)");
    EXPECT_EQ(PMSShownText::cut("\x1b[2J", 10), "\x1b[2J");
}

TEST(PMSShownTextTest, LinesKeepTheBreaksAndStopAtTheLimit) {
    EXPECT_EQ(PMSShownText::lines("{\n  \"a\": \"\x1b\"\n}", 100),
              (std::vector<std::string>{"{", "  \"a\": \"\\x1b\"", "}"}));
    EXPECT_EQ(PMSShownText::lines(std::string(10, '\n') + "x", 4),
              (std::vector<std::string>{"", "", "", "", "", "... (11 bytes in all)"}));
    EXPECT_EQ(PMSShownText::lines("abc\ndefgh", 6), (std::vector<std::string>{"abc", "de... (9 bytes in all)"}));
}

}  // namespace
