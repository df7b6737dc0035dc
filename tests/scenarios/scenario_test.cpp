// What a scenario's text means, and what its author is told of a mistake. No board is needed: all
// of it is found out before the first verb is carried out.
#include "tools/sthal/script/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace sthal {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

struct Mistake {
    const char* name;
    const char* text;
    const char* error;

    friend void PrintTo(const Mistake& mistake, std::ostream* out) { *out << mistake.name; }
};

class MistakeTest : public ::testing::TestWithParam<Mistake> {};

TEST_P(MistakeTest, IsToldWithItsPlaceAndWhatWasExpected) {
    const auto scenario = ParseScenario(GetParam().text, "bug.sthal");

    ASSERT_FALSE(scenario.ok()) << "the mistake would be met in the middle of the run";
    EXPECT_EQ(GetParam().error, scenario.error());
}

INSTANTIATE_TEST_SUITE_P(
        Scenario, MistakeTest,
        ::testing::Values(
                Mistake{"UnknownVerb", "play stop\n\nlaod keyphrase a\n",
                        "bug.sthal:3: expected a verb, found 'laod'; did you mean 'load'?"},
                Mistake{"NothingNear", "frobnicate a\n",
                        "bug.sthal:1: expected a verb, found 'frobnicate'"},
                Mistake{"UnknownSecondWord", "capture strat\n",
                        "bug.sthal:1: expected a verb (capture start, capture stop, capture "
                        "zero-latency), found 'capture strat'; did you mean 'capture start'?"},
                Mistake{"WrongChoice", "load keyword a\n",
                        "bug.sthal:1: expected 'keyphrase' or 'generic', found 'keyword'"},
                Mistake{"MissingValue", "start\n",
                        "bug.sthal:1: expected the name of a model, found the end of the line"},
                Mistake{"MissingValueOfOption", "load keyphrase a\nstart a io\n",
                        "bug.sthal:2: expected a whole number from 0 to 4294967295, found the "
                        "end of the line"},
                Mistake{"ValueOutOfRange", "load keyphrase a threshold 1.5\n",
                        "bug.sthal:1: expected a number from 0 to 1, found '1.5'"},
                Mistake{"OptionGivenTwice", "wait event within 3 s within 4 s\n",
                        "bug.sthal:1: expected 'model', found 'within'"},
                Mistake{"TooManyWords", "stop a b\n",
                        "bug.sthal:1: expected the end of the line, found 'b'"},
                Mistake{"NoTime", "wait heard soon\n",
                        "bug.sthal:1: expected a time up to an hour, such as 2.5s or 300ms, "
                        "found 'soon'"},
                Mistake{"NoResult", "expect result EINVAL\n",
                        "bug.sthal:1: expected a result such as 0, -22 or -EINVAL, found "
                        "'EINVAL'"},
                Mistake{"NoKind", "expect event kind foo\n",
                        "bug.sthal:1: expected a kind of event (phrase, generic), found 'foo'"},
                Mistake{"CapitalVerb", "EXPECT no event\n",
                        "bug.sthal:1: expected a verb, found 'EXPECT'; did you mean 'expect no "
                        "event'?"},
                Mistake{"UnknownModel", "load keyphrase hello\nstart helo\n",
                        "bug.sthal:2: expected the name of a model that is loaded above, found "
                        "'helo'; did you mean 'hello'?"},
                Mistake{"ModelOfLater", "wait event model a\nload keyphrase a\n",
                        "bug.sthal:1: expected the name of a model that is loaded above, found "
                        "'a'"},
                Mistake{"OpenQuote", "say \"hello\n",
                        "bug.sthal:1: expected a closing quote, found the end of the line"},
                Mistake{"NoFault", "fault command reply errno=EWHAT\n",
                        "bug.sthal:1: expected the name of an error, such as EIO, found "
                        "errno=EWHAT"},
                Mistake{"LateSeed", "play stop\nseed 3\n",
                        "bug.sthal:2: expected 'seed' before all other verbs, found it after "
                        "'play stop'"},
                Mistake{"OldVerb", "hush\n",
                        "bug.sthal:1: expected a verb, found 'hush', which is now 'play stop'"},
                Mistake{"UnknownValue", "value phrase hello\nsay $phrse\n",
                        "bug.sthal:2: expected the name of a value (phrase), found '$phrse'; did "
                        "you mean 'phrase'?"},
                Mistake{"UnknownCondition", "value dump off\nunless dmp when dump dump\n",
                        "bug.sthal:2: expected the name of a value (dump), found 'dmp'; did you "
                        "mean 'dump'?"},
                Mistake{"NameOfAValue", "value Phrase hello\n",
                        "bug.sthal:1: expected a name of small letters and '_', found 'Phrase'"},
                Mistake{"ConditionOfNothing", "value dump on\nwhen dump\n",
                        "bug.sthal:2: expected a verb, found the end of the line"},
                Mistake{"MistakeUnderACondition", "value dump on\nwhen dump dmup\n",
                        "bug.sthal:2: expected a verb, found 'dmup'; did you mean 'dump'?"},
                Mistake{"LatePhone", "heading A\nwait 1 s\nphone start\n",
                        "bug.sthal:3: expected 'phone start' above all that needs a phone, found "
                        "it after 'wait 1 s'"},
                Mistake{"SecondPhone", "phone start\nphone start\n",
                        "bug.sthal:2: expected 'phone start' above all that needs a phone, found "
                        "it after 'phone start'"},
                Mistake{"NoEngine", "dsp engine 4\n",
                        "bug.sthal:1: expected the number of an engine (1, 2, 3), found '4'"},
                Mistake{"ShellVerb", "quit\n",
                        "bug.sthal:1: expected a verb of scenarios, found 'quit', which is for "
                        "the shell only"},
                Mistake{"NothingToDo", "# all comment\n",
                        "bug.sthal:2: expected a verb, found the end of the file"}),
        [](const auto& instance) { return instance.param.name; });

// The lines that are carried out, with values put in.
std::vector<std::string> StepTexts(const char* text, const NamedTexts& values = {}) {
    const auto scenario = ParseScenario(text, "bug.sthal", {.values = values});
    if (!scenario.ok()) return {scenario.error()};
    std::vector<std::string> texts;
    for (const Scenario::Line& step : scenario->steps) texts.push_back(step.text);
    return texts;
}

TEST(ScenarioTest, ReadsSettingsQuotesUnitsAndComments) {
    const auto scenario = ParseScenario(
            "\xEF\xBB\xBFseed 42   # the run that failed\n"
            "speed 4\n"
            "load keyphrase a say \"he said \\\"go\\\" # twice\" size 64K\r\n"
            "\twait event model a within 2.5 s  # on time\n"
            "fault command reply id=227 errno=EIO\n",
            "bug.sthal");

    ASSERT_TRUE(scenario.ok()) << scenario.error();
    EXPECT_EQ(42U, scenario->seed);
    EXPECT_EQ(4.0, scenario->speed);
    ASSERT_EQ(3U, scenario->steps.size());
    const Scenario::Line& load = scenario->steps[0];
    EXPECT_EQ(3, load.line);
    EXPECT_TRUE(load.command.values.Has("keyphrase"));
    EXPECT_FALSE(load.command.values.Has("generic"));
    EXPECT_EQ("a", load.command.values.Get("NAME"));
    EXPECT_EQ("he said \"go\" # twice", load.command.values.Get("say"));
    EXPECT_EQ(2.5, scenario->steps[1].command.values.Seconds("within"))
            << "the unit stands apart from the number";
    EXPECT_EQ("command reply id=227 errno=EIO", scenario->steps[2].command.values.Get("FAULT"));
}

TEST(ScenarioTest, KnowsModelsByHandleAndThoseOfTheShell) {
    EXPECT_TRUE(ParseScenario("stop 7\n", "bug.sthal").ok()) << "also a handle that does not exist";
    EXPECT_TRUE(ParseScenario("start hello\n", "bug.sthal", {.models = {"hello"}}).ok());
}

TEST(ScenarioTest, PutsValuesInAsPartsOfOneWord) {
    constexpr char kText[] =
            "value phrase \"my 'old' friend\"\n"
            "value end s\n"
            "value greeting \"$phrase\"\n"
            "say $phrase after 2$end\n"
            "say \"costs $5, $greeting's\"\n"
            "load keyphrase '$phrase'\n"
            "start $phrase\n";

    EXPECT_THAT(
            StepTexts(kText),
            ElementsAre("say \"my 'old' friend\" after 2s", "say \"costs $5, my 'old' friend's\"",
                        "load keyphrase \"my 'old' friend\"", "start \"my 'old' friend\""));
    EXPECT_THAT(StepTexts(kText, {{"phrase", "say \"#\\"}}), Contains("start \"say \\\"#\\\\\""))
            << "what was set from outside counts, whatever it holds";
    EXPECT_THAT(StepTexts("say \"$five\"\n"), ElementsAre("say \"$five\""))
            << "without values, it stands for itself";
    EXPECT_THAT(
            StepTexts(kText, {{"phrases", "x"}}),
            ElementsAre("bug.sthal: expected the name of a value (end, greeting, phrase), found "
                        "'phrases'; did you mean 'phrase'?"));
}

TEST(ScenarioTest, LeavesOutWhatIsUnderAConditionThatDoesNotHold) {
    constexpr char kText[] =
            "value dump off\n"
            "value mic \"\"\n"
            "dump\n"
            "when dump dump a  # always\n"
            "unless dump dump b\n"
            "when mic play wav $mic\n"
            "unless mic when dump dump c\n";

    EXPECT_THAT(StepTexts(kText), ElementsAre("dump", "dump b"));
    EXPECT_THAT(StepTexts(kText, {{"dump", "on"}}), ElementsAre("dump", "dump a", "dump c"));
    EXPECT_THAT(StepTexts(kText, {{"mic", "a b.wav"}}),
                ElementsAre("dump", "dump b", "play wav \"a b.wav\""));
}

TEST(ScenarioTest, MakesOneParagraphOfExplanationsInARow) {
    const auto scenario = ParseScenario(
            "heading The phone starts\nexplain First\n# a comment\nexplain \"and more.\"\n"
            "phone start\nexplain Another.\n",
            "bug.sthal");

    ASSERT_TRUE(scenario.ok()) << scenario.error();
    EXPECT_TRUE(scenario->StartsPhone());
    ASSERT_EQ(4U, scenario->steps.size());
    EXPECT_EQ("The phone starts", scenario->steps[0].command.values.Get("TEXT"));
    EXPECT_EQ("First and more.", scenario->steps[1].command.values.Get("TEXT"));
}

// Each line names something that only a look at it shows to be wrong.
TEST(ScenarioTest, LooksIntoTheFilesThatItNames) {
    const std::string path = ::testing::TempDir() + "names_files.sthal";
    const std::string text_file = STHAL_DOCS "/scenarios.md";
    const std::pair<std::string, const char*> mistakes[] = {
            {"play wav nowhere.wav", "nowhere.wav"},
            {"play wav " + text_file, "is not an audio file"},
            {"load keyphrase a wav nowhere.wav", "nowhere.wav"},
            {"say \"...\"", "there is nothing to say"},
            {"tuning load " + text_file, "scenarios.md:3: "},
    };
    for (const auto& [line, problem] : mistakes) {
        std::ofstream(path) << "play stop\n" << line << "\n";

        const auto scenario = ReadScenario(path);

        ASSERT_FALSE(scenario.ok()) << line;
        EXPECT_THAT(scenario.error(), AllOf(StartsWith(path + ":2: "), HasSubstr(problem)));
    }
}

TEST(NearestMatchTest, ForgivesFewChangesOnly) {
    const std::vector<std::string> names = {"start", "stop", "say", "dsp crash"};

    EXPECT_EQ("start", NearestMatch("strat", names)) << "neighbours swapped are one change";
    EXPECT_EQ("dsp crash", NearestMatch("dsp crsh", names));
    EXPECT_EQ(std::nullopt, NearestMatch("reboot", names));
    EXPECT_EQ(std::nullopt, NearestMatch("", names));
}

TEST(CompletionTest, OffersWhatMayComeNext) {
    const auto literals = [](std::vector<std::string> words) {
        return CompleteCommand(words).literals;
    };

    EXPECT_THAT(literals({}), Contains("load")) << "the beginning of a line";
    EXPECT_THAT(literals({"load"}), ElementsAre("keyphrase", "generic"));
    EXPECT_THAT(literals({"dsp"}), Contains("journal")) << "the second word of a name";
    EXPECT_THAT(literals({"start", "a", "io", "3"}), Contains("confidence"));
    EXPECT_THAT(literals({"start", "a", "io", "3"}), Not(Contains("io"))) << "given already";
    EXPECT_THAT(NextVerbWords(std::vector<std::string>{"expect", "no"}),
                ElementsAre("event", "dsp"))
            << "of names only, for help";
    EXPECT_THAT(literals({"load", "nonsense"}), ElementsAre()) << "after a mistake";
    EXPECT_THAT(literals({"fault", "clock"}), Contains("read")) << "within the rest of a line";
    EXPECT_THAT(literals({"help", "capture"}), Contains("zero-latency"));
}

TEST(DocumentationTest, ListsTheVerbsAsTheToolDoes) {
    std::ifstream file(STHAL_DOCS "/scenarios.md");
    std::ostringstream text;
    text << file.rdbuf();

    EXPECT_THAT(text.str(), HasSubstr(*VerbHelp()))
            << "replace the list in docs/scenarios.md by what 'sthal shell --help-verbs' prints";
}

}  // namespace
}  // namespace sthal
