// What reaches the screen: the unit's text in the terminal's UTF-8 with its
// control characters escaped, and help wrapped to the terminal.
#include <gtest/gtest.h>

#include "host/console.h"

using namespace camrelay::host;

TEST(Console, TextIsShownInUtf8OnOneLineWithItsControlsEscapedAndSecretsHidden) {
  Console console(OutputOptions{});
  Captured captured;
  console.Capture(&captured, "unit");
  console.AddSecret("123456");
  console.Answer("Citt\xE0 \x80");
  console.Answer("a\x1b[2Jb\nc\td\x7f");
  // Bytes Windows-1252 leaves undefined become C1 controls, escaped as well.
  console.Answer("x\x81y");
  console.Note("file \x1b]0;title\x07 of 123456");
  console.Error("bad \xC2\x9B" "31m");
  EXPECT_EQ(captured.notes, (std::vector<std::string>{"Citt\xC3\xA0 \xE2\x82\xAC", "a\\x1b[2Jb\\nc\\td\\x7f",
                                                      "x\\u0081y", "file \\x1b]0;title\\x07 of ******"}));
  EXPECT_EQ(captured.errors, std::vector<std::string>{"bad \\u009b31m"});
}

TEST(WrapHelp, LongLinesContinueUnderTheirDescription) {
  const std::string help =
      "Usage: camrelay\n"
      "  --host TEXT    The unit's address (default: the one the working folder remembers)\n"
      "short\n";
  EXPECT_EQ(WrapHelp(help, 45),
            "Usage: camrelay\n"
            "  --host TEXT    The unit's address (default:\n"
            "                 the one the working folder\n"
            "                 remembers)\n"
            "short\n");
  // A word longer than the width stays whole rather than being cut.
  EXPECT_EQ(WrapHelp(std::string(30, 'x') + " y", 20), std::string(30, 'x') + "\ny");
}
