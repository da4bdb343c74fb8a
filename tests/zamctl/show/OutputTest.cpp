// SPDX-License-Identifier: Apache-2.0
// Lists, things and words in every form, in terminals of every width, and for readers that go away.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <functional>
#include <sstream>

#include "Captured.h"
#include "Failure.h"
#include "show/COutput.h"
#include "show/Words.h"

namespace zamctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::vector<SColumn>& Columns() {
    static const std::vector<SColumn> columns{
        {"Name", "Name"},
        {"Id", "Id", EKind::Id},
        {"Result", "Result", EKind::Outcome},
        {"Size", "Sizes.Read", EKind::Bytes},
        {"Destination", "BackupDestination", EKind::Text, true},
        {"Rate", "Rate", EKind::Rate, true},
    };
    return columns;
}

Json RowNamed(const std::string& name, const char* result = "Success") {
    return Json{{"Name", name},
                {"Id", "0123abcd-0004-f00d-0102-030405060708"},
                {"Result", result},
                {"Sizes", {{"Read", 3250585}}},
                {"BackupDestination", "/srv/backup"},
                {"Rate", 89128960},
                {"Hidden", true}};
}

std::string Shown(const SOutputOptions& options, const std::function<void(COutput&)>& show) {
    const CRedirected captured(STDOUT_FILENO);
    COutput output(options);
    show(output);
    output.Flush();
    return captured.Text();
}

std::string ListOf(const SOutputOptions& options, const std::vector<Json>& rows) {
    return Shown(options, [&](COutput& output) {
        for (const Json& row : rows)
            output.Row(Columns(), row);
        output.EndRows(Columns());
    });
}

std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

SOutputOptions Form(EForm form) {
    SOutputOptions options;
    options.Form = form;
    return options;
}

SOutputOptions Wide(unsigned width) {
    SOutputOptions options;
    options.Width = width;
    return options;
}

TEST(Table, AlignsItsColumnsAndNumbersToTheRight) {
    EXPECT_EQ(ListOf(Wide(100), {RowNamed("nightly"), RowNamed("日本 e\u0301", "Failed")}),
              "Name     Id        Result      Size  Destination      Rate\n"
              "nightly  0123abcd  Success  3.1 MiB  /srv/backup  85 MiB/s\n"
              "日本 e\u0301   0123abcd  Failed   3.1 MiB  /srv/backup  85 MiB/s\n");
}

TEST(Table, ShowsWholeIdsWhereThereIsRoom) {
    EXPECT_THAT(ListOf(Wide(140), {RowNamed("a")}), HasSubstr("0123abcd-0004-f00d-0102-030405060708"));
    EXPECT_THAT(ListOf(Wide(139), {RowNamed("a")}), Not(HasSubstr("0123abcd-")));
}

TEST(Table, FitsEveryTerminalOf40To200Columns) {
    const std::vector<Json> rows{RowNamed("nightly"), RowNamed(std::string(300, 'x'), "Warning"),
                                 RowNamed("日本語のバックアップ、とても長い名前のもの、まだまだ続く"),
                                 RowNamed("")};
    for (unsigned width = 40; width <= 200; ++width) {
        const std::string text = ListOf(Wide(width), rows);
        const auto lines = Lines(text);
        ASSERT_EQ(lines.size(), 5U) << width << '\n' << text;
        for (const std::string& line : lines)
            EXPECT_LE(ColumnsOf(line), width) << line;
        EXPECT_THAT(lines[0], HasSubstr("Result"));
        EXPECT_THAT(lines[1], HasSubstr("nightly"));
    }
}

TEST(Table, DoesWithoutDroppableColumnsBeforeItCutsMuchOfANarrowOne) {
    const std::vector<Json> rows{RowNamed("a name of 24 columns or")};
    EXPECT_THAT(Lines(ListOf(Wide(80), rows))[0], HasSubstr("Rate"));
    EXPECT_THAT(Lines(ListOf(Wide(65), rows))[0], testing::AllOf(Not(HasSubstr("Rate")), HasSubstr("Dest")));
    const auto lines = Lines(ListOf(Wide(52), rows));
    EXPECT_THAT(lines[0], Not(HasSubstr("Dest")));
    EXPECT_THAT(lines[1], HasSubstr("a name of 24 columns or"));
    EXPECT_THAT(Lines(ListOf(Wide(40), rows))[1], HasSubstr("…"));
}

TEST(Table, GoesOnWithSentencesInTheNextLine) {
    const std::vector<SColumn> columns{
        {"JOB", "Name"}, {"FINDING", "Message", EKind::Sentence}, {"WEIGHT", "Weight"}};
    const auto lines = Shown({EForm::Table, false, false, 40}, [&](COutput& output) {
        output.Row(columns, Json{{"Name", "home"},
                                 {"Message", "The folder \"/srv/data\" to back up does not exist"},
                                 {"Weight", "Warning"}});
        output.Row(columns, Json{{"Name", "disk"},
                                 {"Message", "/srv/a-folder-without-a-single-blank-in-it"},
                                 {"Weight", "Error"}});
        output.EndRows(columns);
    });
    EXPECT_EQ(lines,
              "JOB   FINDING                    WEIGHT\n"
              "home  The folder \"/srv/data\" to  Warning\n"
              "      back up does not exist     \n"
              "disk  /srv/a-folder-without-a-s  Error\n"
              "      ingle-blank-in-it          \n");
}

TEST(Table, ColoursOutcomesAlone) {
    SOutputOptions options = Wide(80);
    options.HasColours = true;
    const std::string text =
        ListOf(options, {RowNamed("a"), RowNamed("b", "Failed"), RowNamed("Failed", "None")});
    const auto lines = Lines(text);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[0], Not(HasSubstr("\033")));
    EXPECT_THAT(lines[1], HasSubstr("\033[32mSuccess"));
    EXPECT_THAT(lines[2], HasSubstr("\033[31mFailed"));
    EXPECT_THAT(lines[3], Not(HasSubstr("\033")));
    EXPECT_THAT(ListOf(Wide(80), {RowNamed("a")}), Not(HasSubstr("\033")));
}

TEST(Table, LetsNoTextOfTheAgentReachTheTerminalAsItIs) {
    const std::string text =
        ListOf(Wide(120), {RowNamed("evil\033[2J\n\u202e\xff \\x41"), RowNamed("b", "Success\033[0m")});
    EXPECT_THAT(text, HasSubstr("evil\\x1b[2J\\n\\u{202e}\\xff \\x41  0123abcd"));
    EXPECT_THAT(text, HasSubstr("Success\\x1b[0m"));
    EXPECT_EQ(Lines(text).size(), 3U);
}

TEST(Table, ShowsManyRowsByPagesUnderOneHeading) {
    std::vector<Json> rows(1201, RowNamed("nightly"));
    const auto lines = Lines(ListOf(Wide(80), rows));
    ASSERT_EQ(lines.size(), 1202U);
    EXPECT_EQ(lines[1201], lines[1]);

    // A later page with longer names gets columns of its own, and says what they are.
    rows[700] = RowNamed("a much longer name");
    const auto wider = Lines(ListOf(Wide(80), rows));
    ASSERT_EQ(wider.size(), 1204U);
    EXPECT_EQ(wider[501], "");
    EXPECT_EQ(wider[502], "Name                Id        Result      Size  Destination      Rate");
    EXPECT_EQ(wider[1203].find("0123abcd"), wider[502].find("Id")) << "the last page stays aligned";
}

TEST(Table, ShowsRowsOfAListThatGoesOnAsTheyAreFlushed) {
    const CRedirected captured(STDOUT_FILENO);
    COutput output(Wide(80));
    output.Row(Columns(), RowNamed("nightly"));
    output.Flush();
    EXPECT_EQ(Lines(captured.Text()).size(), 2U);
    output.Row(Columns(), RowNamed("b"));
    output.Flush();
    const auto lines = Lines(captured.Text());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[2].find("0123abcd"), lines[0].find("Id"));
}

TEST(Table, OfNothingIsAWordOnStandardErrorAndNoneWhenQuiet) {
    for (const bool isQuiet : {false, true}) {
        const CRedirected error(STDERR_FILENO);
        SOutputOptions options = Wide(80);
        options.IsQuiet = isQuiet;
        EXPECT_EQ(Shown(options, [](COutput& output) { output.EndRows(Columns(), "no jobs\033"); }), "");
        EXPECT_EQ(error.Text(), isQuiet ? "" : "no jobs\\x1b\n");
    }
}

TEST(Json, OfAListIsAnArrayOfWholeObjects) {
    const std::string text = ListOf(Form(EForm::Json), {RowNamed("a"), RowNamed("b\n\033")});
    const Json read = Json::parse(text);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0], RowNamed("a"));
    EXPECT_EQ(read[1], RowNamed("b\n\033"));
    EXPECT_EQ(Lines(text)[1], "  {");
    EXPECT_EQ(Lines(text)[2], "    \"Name\": \"a\",");
    EXPECT_EQ(ListOf(Form(EForm::Json), {}), "[]\n");
}

TEST(JsonLines, AreAnObjectALine) {
    const auto lines = Lines(ListOf(Form(EForm::JsonLines), {RowNamed("a\nb"), RowNamed("\xff")}));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(Json::parse(lines[0]), RowNamed("a\nb"));
    EXPECT_EQ(Json::parse(lines[1])["Name"], "\ufffd");
    EXPECT_EQ(ListOf(Form(EForm::JsonLines), {}), "");
}

TEST(Tsv, EscapesWhatPartsFieldsAndRows) {
    Json row = RowNamed("a\tb\nc\rd\\e\xff");
    row.erase("Rate");
    row["Sizes"]["Read"] = nullptr;
    row["BackupDestination"] = Json::array({"x", "y\tz"});
    EXPECT_THAT(Lines(ListOf(Form(EForm::Tsv), {row})),
                ElementsAre("Name\tId\tResult\tSizes.Read\tBackupDestination\tRate",
                            "a\\tb\\nc\\rd\\\\e\ufffd\t0123abcd-0004-f00d-0102-030405060708\tSuccess\t\t"
                            "[\"x\",\"y\\\\tz\"]\t"));
    EXPECT_EQ(ListOf(Form(EForm::Tsv), {}), "Name\tId\tResult\tSizes.Read\tBackupDestination\tRate\n");
}

TEST(Item, IsALineAColumnForPeople) {
    const std::vector<SColumn> columns{{"Name", "Name"},
                                       {"Enabled", "Enabled", EKind::Truth},
                                       {"Result", "Result", EKind::Outcome},
                                       {"Sources", "Sources"},
                                       {"None", "Nowhere.AtAll"}};
    const Json item{{"Name", "nightly"},
                    {"Enabled", true},
                    {"Result", "Failed"},
                    {"Sources", {"/home/one/of/the/users", "/srv/things/of/many/kinds"}}};
    const auto show = [&](COutput& output) { output.Item(columns, item); };
    EXPECT_EQ(Shown(Wide(80), show),
              "Name:    nightly\n"
              "Enabled: yes\n"
              "Result:  Failed\n"
              "Sources: /home/one/of/the/users, /srv/things/of/many/kinds\n"
              "None:    -\n");
    EXPECT_THAT(Shown(Wide(40), show),
                HasSubstr("Sources: /home/one/of/the/users\n         /srv/things/of/many/kinds\n"));
    SOutputOptions coloured = Wide(80);
    coloured.HasColours = true;
    EXPECT_THAT(Shown(coloured, show), HasSubstr("Result:  \033[31mFailed\033[0m\n"));
    EXPECT_EQ(Shown(Form(EForm::Json), show), item.dump(2) + '\n');
    EXPECT_EQ(Shown(Form(EForm::JsonLines), show), item.dump() + '\n');
    EXPECT_EQ(Lines(Shown(Form(EForm::Tsv), show))[0], "Name\tEnabled\tResult\tSources\tNowhere.AtAll");
}

TEST(Words, AreForPeopleAloneAndStayOneLine) {
    const auto show = [](COutput& output) {
        output.Heading("Jobs");
        output.Say("started\n\033[1m");
        output.Heading("Places");
    };
    EXPECT_EQ(Shown({}, show), "Jobs\nstarted\\n\\x1b[1m\n\nPlaces\n");
    EXPECT_EQ(Shown(Form(EForm::Json), show), "");
    SOutputOptions quiet;
    quiet.IsQuiet = true;
    EXPECT_EQ(Shown(quiet, show), "");
    EXPECT_EQ(Shown(quiet, [](COutput& output) { output.Raw("as\tit is\n"); }), "as\tit is\n");
}

TEST(Words, OnStandardErrorComeBehindWhatWasShownBefore) {
    const int both = ::memfd_create("both", MFD_CLOEXEC);
    const CRedirected captured(STDOUT_FILENO, both);
    const CRedirected error(STDERR_FILENO, ::dup(both));
    COutput output(Form(EForm::JsonLines));
    output.Row(Columns(), Json{{"a", 1}});
    output.Note("one remark\x07");
    EXPECT_EQ(captured.Text(), "{\"a\":1}\none remark\\x07\n");
}

TEST(Cell, HasWordsForEveryKind) {
    const COutput output(Wide(80));
    const auto cell = [&](EKind kind, const Json& value) {
        return output.Cell({"Heading", "Key", kind}, value);
    };
    EXPECT_EQ(cell(EKind::Text, "text"), "text");
    EXPECT_EQ(cell(EKind::Text, nullptr), "-");
    EXPECT_EQ(cell(EKind::Text, Json::array()), "-");
    EXPECT_EQ(cell(EKind::Text, Json{"a", "b"}), "a, b");
    EXPECT_EQ(cell(EKind::Text, Json{{"a", "\033"}}), "{\"a\":\"\\u001b\"}");
    EXPECT_EQ(cell(EKind::Id, "00000000-0000-0000-0000-000000000000"), "-");
    EXPECT_EQ(cell(EKind::Id, "{0123abcd-0004-f00d-0102-030405060708}"), "0123abcd");
    EXPECT_EQ(cell(EKind::Id, "latest"), "latest");
    EXPECT_EQ(cell(EKind::Number, -5), "-5");
    EXPECT_EQ(cell(EKind::Bytes, -1), "-");
    EXPECT_EQ(cell(EKind::Bytes, 18446744073709551615ULL), "8.0 EiB");
    EXPECT_EQ(cell(EKind::Bytes, "many"), "many");
    EXPECT_EQ(cell(EKind::Rate, 1024), "1.0 KiB/s");
    EXPECT_EQ(cell(EKind::Rate, -1), "-");
    EXPECT_EQ(cell(EKind::Percent, 42), "42 %");
    EXPECT_EQ(cell(EKind::Span, 90.5), "1 min 31 s");
    EXPECT_EQ(cell(EKind::Span, 1e300), "-");
    EXPECT_EQ(cell(EKind::Span, -1), "-");
    EXPECT_EQ(cell(EKind::Outcome, "None"), "-");
    EXPECT_EQ(cell(EKind::Outcome, 17), "17");
    EXPECT_EQ(cell(EKind::Truth, true), "yes");
    EXPECT_EQ(cell(EKind::Truth, false), "no");
    EXPECT_EQ(cell(EKind::Time, nullptr), "-");
    EXPECT_EQ(cell(EKind::Time, "soon\033"), "soon\\x1b");
    EXPECT_EQ(cell(EKind::Time, "2001-02-03T12:00:00Z").substr(0, 8), "2001-02-");
}

class WithoutSigpipe : public testing::Test {
protected:
    WithoutSigpipe() : m_before(::signal(SIGPIPE, SIG_IGN)) {}
    ~WithoutSigpipe() override { ::signal(SIGPIPE, m_before); }

private:
    sighandler_t m_before;
};
using Reader = WithoutSigpipe;
using Disk = WithoutSigpipe;

TEST_F(Reader, ThatHasGoneAwayEndsTheOutputInEveryForm) {
    for (const EForm form : {EForm::Table, EForm::Json, EForm::JsonLines, EForm::Tsv}) {
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        ::close(ends[0]);
        const CRedirected captured(STDOUT_FILENO, ends[1]);
        SOutputOptions options = Form(form);
        options.Width = 80;
        COutput output(options);
        const auto showMany = [&] {
            for (int i = 0; i < 100000; ++i)
                output.Row(Columns(), RowNamed("nightly"));
        };
        EXPECT_THROW(showMany(), COutputGone) << "long before the last row";
        EXPECT_NO_THROW(output.Flush()) << "what failed once is not tried again";
    }
}

TEST_F(Disk, ThatIsFullIsARefusalWithTheReason) {
    const CRedirected captured(STDOUT_FILENO, ::open("/dev/full", O_WRONLY | O_CLOEXEC));
    COutput output(Form(EForm::Json));
    output.Row(Columns(), RowNamed("nightly"));
    output.EndRows(Columns());
    try {
        output.Flush();
        FAIL() << "nothing was thrown";
    } catch (const CFailure& failure) {
        EXPECT_EQ(failure.Exit(), EExit::Refused);
        EXPECT_STREQ(failure.what(), "the output can't be written: No space left on device");
    }
}

TEST_F(Reader, ThatIsSlowAndDoesNotBlockGetsEverything) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const pid_t writer = ::fork();
    if (writer == 0) {
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        try {
            COutput output(Form(EForm::Tsv));
            for (int i = 0; i < 4000; ++i)
                output.Row(Columns(), RowNamed("nightly"));
            output.Flush();
        } catch (...) {
            ::_exit(1);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    ::fcntl(ends[0], F_SETFL, 0);
    std::size_t lines = 0;
    char buffer[4096];
    for (ssize_t count; (count = ::read(ends[0], buffer, sizeof(buffer))) > 0;)
        lines += static_cast<std::size_t>(std::count(buffer, buffer + count, '\n'));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(lines, 4001U);
}

}  // namespace
}  // namespace zamctl
