// The checks every face makes before anything is sent, and the help a
// mistyped command gets.
#include <gtest/gtest.h>

#include "host/commands.h"

using namespace camrelay::host;

// The typo the command line meets most is checked end to end by its tests.
TEST(NearestName, ATypoFindsTheCommandAndNonsenseFindsNone) {
  std::vector<std::string> names;
  for (const CommandInfo& info : Commands()) names.push_back(info.name);
  const std::pair<std::string, const char*> cases[] = {
      {"uplod-prog", "upload-prog"}, {"loign", "login"}, {"frobnicate", ""}, {"", ""}, {std::string(500, 'a'), ""}};
  for (const auto& [typed, nearest] : cases) EXPECT_EQ(NearestName(typed, names), nearest) << typed;
}

// The unit's text is Windows-1252: a command string it cannot carry byte for
// byte is refused before anything is sent. A clip is a bare AVI name, and a
// step of 0 would show the same frame for ever.
TEST(CheckCommand, RefusesWhatTheUnitCannotTakeBeforeAnythingIsSent) {
  const auto make = [](Op op, const std::string& argument, int step = 1) {
    Command command{op, "command", argument};
    command.step = step;
    return command;
  };
  for (Command good : {make(Op::SendCommand, "Citt\xC3\xA0 \xE2\x82\xAC"), make(Op::Playback, "rec1.avi", -2)})
    EXPECT_NO_THROW(CheckCommand(good)) << good.argument;
  for (Command bad : {make(Op::SendCommand, "\xD0\xB6"), make(Op::RequestCommand, "Citt\xE0"),
                      make(Op::RequestCommand, "a{}b"), make(Op::Playback, "rec1.avi", 0),
                      make(Op::Playback, "rec1.mp4"), make(Op::Playback, "../rec1.avi"),
                      make(Op::Playback, "sub/rec1.avi")})
    EXPECT_THROW(CheckCommand(bad), UsageError) << bad.argument << " step " << bad.step;
}
