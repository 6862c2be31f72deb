// Kind 222: the IFF text saved as mgcLayoutTmp.iff in the workspace and
// imported through mgclink_import_iff_file.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"
#include "options/optionnames.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::DocumentContent;
using RFMsgExp::MessageContent;
using RFMsgExp::RegionContent;

MessageContent iffMessage(std::string text, int regions = 1)
{
    DocumentContent document;
    for (int index = 0; index < regions; ++index) {
        RegionContent region;
        region.name = "region" + std::to_string(index);
        document.regions.push_back(region);
    }
    MessageContent content;
    content.kind = 222;
    content.text = std::move(text);
    content.document = std::move(document);
    return content;
}

class IffReceipt : public SeamTest
{
protected:
    void SetUp() override
    {
        SeamTest::SetUp();
        ASSERT_TRUE(workspace.isValid());
        setGeneral("rflib", "true");
        test.answerPaths(workspacePath(), std::nullopt);
    }

    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        SeamTest::TearDown();
    }

    // An absent value leaves the option out of the set.
    void setGeneral(std::optional<std::string> targetLibrary, std::optional<std::string> overwrite)
    {
        Tessel::GeneralOptions& general = test.server().GetOptions().general();
        general.clear_options();
        if (targetLibrary)
            general.set_option(Tessel::OptionName::TargetLib,
                               QString::fromStdString(*targetLibrary), QString());
        if (overwrite)
            general.set_option(Tessel::OptionName::OverwriteDesigns,
                               QString::fromStdString(*overwrite), QString());
    }

    std::string workspacePath() const { return workspace.path().toStdString(); }
    std::string temporaryFile() const { return workspacePath() + "/mgcLayoutTmp.iff"; }
    HostStatement import(const std::string& library, const std::string& overwrite) const
    {
        return host("mgclink_import_iff_file(\"" + library + "\", \"" + temporaryFile() + "\", \"" +
                    overwrite + "\");");
    }

    QTemporaryDir workspace;
};

TEST_F(IffReceipt, BackslashesOfTheWorkspaceBecomeForwardSlashesInTheImport)
{
    test.answerPaths("C:\\ws\\proj_wrk", std::nullopt);
    receive(test, iffMessage("IFF text"));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(),
                  host("mgclink_import_iff_file(\"rflib\", \"C:/ws/proj_wrk/mgcLayoutTmp.iff\", "
                       "\"TRUE\");")}));
}

TEST_F(IffReceipt, TheTextIsSavedWholeInTheWorkspaceAndStaysAfterTheImport)
{
    // Given with backslashes, the path still names the same directory.
    std::string backslashed = workspacePath();
    for (char& c : backslashed)
        if (c == '/')
            c = '\\';
    test.answerPaths(backslashed, std::nullopt);
    const std::string text = "HEADER \"q\" C:\\lib\nline two without an end";
    receive(test, iffMessage(text));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{workspaceQuery(), import("rflib", "TRUE")}));
    EXPECT_EQ(fileContent(temporaryFile()), text);
}

TEST_F(IffReceipt, OverwriteDesignsChoosesTheThirdArgument)
{
    struct Row
    {
        std::optional<std::string> targetLibrary;
        std::optional<std::string> overwrite;
        std::string library;
        std::string flag;
    };
    const std::vector<Row> rows = {
        {"rflib", "true", "rflib", "TRUE"},
        {"rflib", "True", "rflib", "TRUE"},
        {"rflib", "false", "rflib", "FALSE"},
        {"rflib", "yes", "rflib", "FALSE"},
        {"rflib", "", "rflib", "FALSE"},
        {"rflib", std::nullopt, "rflib", "FALSE"},
        {"", "true", "", "TRUE"},
        {std::nullopt, "false", "", "FALSE"},
        {"a \"b\"", "true", "a \"b\"", "TRUE"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.library + " / " + row.overwrite.value_or("(absent)"));
        test.brio.clearStatements();
        setGeneral(row.targetLibrary, row.overwrite);
        receive(test, iffMessage("x"));
        EXPECT_EQ(statements(),
                  (std::vector<HostStatement>{workspaceQuery(), import(row.library, row.flag)}));
    }
}

TEST_F(IffReceipt, NoRegionIsOnlyALogLineWhateverTheText)
{
    receive(test, iffMessage("IFF text", 0));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  message("fprintf(stderr,\"Tessel:No RF Regions found in IFF message\n\");")}));
    EXPECT_TRUE(QDir(workspace.path()).isEmpty());
}

TEST_F(IffReceipt, NoWorkspaceShowsTheErrorAndWritesNothing)
{
    const std::vector<HostStatement> expected = {
        workspaceQuery(),
        message("de_info(\"Tessel Error: No workspace is open - unable to import IFF data\");"),
        message("fprintf(stderr,\"Tessel:Error: No workspace is open - unable to import IFF "
                "data\n\");")};
    const std::vector<std::pair<const char*, std::function<void()>>> hosts = {
        {"variable unset", [&] { test.answerPaths(std::nullopt, std::nullopt); }},
        {"empty answer", [&] { test.answerPaths(std::string(), std::nullopt); }},
        {"every statement fails",
         [&] {
             test.brio.setEvaluator([](const std::string&, const std::string&) { return false; });
         }},
    };
    for (const auto& [name, setUp] : hosts) {
        SCOPED_TRACE(name);
        test.reset();
        setUp();
        receive(test, iffMessage("IFF text"));
        EXPECT_EQ(statements(), expected);
        EXPECT_TRUE(QDir(workspace.path()).isEmpty());
    }
}

TEST_F(IffReceipt, AFailedImportIsShownAsError)
{
    test.answerPaths(workspacePath(), std::nullopt, {"mgclink_import_iff_file"});
    receive(test, iffMessage("IFF text"));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  workspaceQuery(), import("rflib", "TRUE"),
                  message("de_info(\"Tessel Error: IFF import failed\");"),
                  message("fprintf(stderr,\"Tessel:Error: IFF import failed\n\");")}));
    EXPECT_EQ(fileContent(temporaryFile()), std::string("IFF text"));
}

TEST_F(IffReceipt, ASecondMessageReplacesTheFirstFile)
{
    receive(test, iffMessage("the first, longer text"));
    receive(test, iffMessage("second"));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{workspaceQuery(), import("rflib", "TRUE"),
                                          workspaceQuery(), import("rflib", "TRUE")}));
    EXPECT_EQ(fileContent(temporaryFile()), std::string("second"));
}

TEST_F(IffReceipt, AHundredMegabyteTextIsWrittenWhole)
{
    std::string text(100u << 20, 'i');
    text.front() = '"';
    text.back() = '\\';
    receive(test, iffMessage(text, 3));
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{workspaceQuery(), import("rflib", "TRUE")}));
    const std::optional<std::string> written = fileContent(temporaryFile());
    ASSERT_TRUE(written.has_value());
    EXPECT_TRUE(*written == text) << "written " << written->size() << " bytes";
}

} // namespace
