// Kind 222: the IFF text saved as mgcLayoutTmp.iff in the workspace and
// imported through mgclink_import_iff_file.

#include <algorithm>

#include <gtest/gtest.h>

#include "options/optionnames.h"
#include "plugintest.h"
#include "server/xserverlumo.h"

namespace {

RFMsgExp::MessageContent iffMessage(std::string text, int regions = 1)
{
    return PluginTest::message(222, std::vector(regions, PluginTest::region("r")), std::move(text));
}

class IffReceipt : public PluginTest
{
protected:
    void TearDown() override
    {
        test.server().GetOptions().general().clear_options();
        PluginTest::TearDown();
    }

    // An absent value leaves the option out of the set.
    void setGeneral(std::optional<QString> targetLibrary, std::optional<QString> overwrite)
    {
        Tessel::GeneralOptions& general = test.server().GetOptions().general();
        general.clear_options();
        if (targetLibrary)
            general.set_option(Tessel::OptionName::TargetLib, *targetLibrary, QString());
        if (overwrite)
            general.set_option(Tessel::OptionName::OverwriteDesigns, *overwrite, QString());
    }

    std::string import(const std::string& library, const std::string& overwrite) const
    {
        return host("mgclink_import_iff_file(\"" + library + "\", \"" + temporaryFile + "\", \"" +
                    overwrite + "\");");
    }

    const std::string temporaryFile = file("mgcLayoutTmp.iff");
};

TEST_F(IffReceipt, EachMessageReplacesTheFileWholeAndReadsTheOptionsAfresh)
{
    // Given with backslashes, the path still names the test's directory.
    std::string backslashed = dir.path().toStdString();
    std::replace(backslashed.begin(), backslashed.end(), '/', '\\');
    test.answerPaths(backslashed, std::nullopt);
    struct Row
    {
        std::optional<QString> targetLibrary, overwrite;
        std::string text, library, flag;
    };
    const std::vector<Row> rows = {
        {"rflib", "True", "HEADER \"q\" C:\\lib\nline two without an end", "rflib", "TRUE"},
        {"rflib", std::nullopt, "text", "rflib", "FALSE"},
        {std::nullopt, "false", "", "", "FALSE"},
        {"a \"b\"", "true", "y", "a \"b\"", "TRUE"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.library + " / " + row.flag);
        setGeneral(row.targetLibrary, row.overwrite);
        EXPECT_EQ(received(iffMessage(row.text, 2)),
                  (std::vector<std::string>{WorkspaceQuery, import(row.library, row.flag)}));
        EXPECT_EQ(fileContent(temporaryFile), row.text);
    }
}

TEST_F(IffReceipt, AMissingRegionIsLoggedTheOtherFailuresShown)
{
    setGeneral("rflib", "true");
    const std::string workspace = dir.path().toStdString();
    const std::string noWorkspace = "No workspace is open - unable to import IFF data";
    const std::vector<std::string> noWorkspaceShown = {WorkspaceQuery, shownError(noWorkspace),
                                                       logged("Error: " + noWorkspace)};
    struct Row
    {
        int regions;
        std::optional<std::string> workspace;
        std::vector<std::string> failing, statements;
    };
    const std::vector<Row> rows = {
        {0, workspace, {}, {logged("No RF Regions found in IFF message")}},
        {1, std::nullopt, {}, noWorkspaceShown},
        {1, workspace, {"mgclink_get_workspace_path", "de_info", "fprintf"}, noWorkspaceShown},
        {1,
         workspace,
         {"mgclink_import_iff_file"},
         {WorkspaceQuery, import("rflib", "TRUE"), shownError("IFF import failed"),
          logged("Error: IFF import failed")}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.statements.back());
        test.answerPaths(row.workspace, std::nullopt, row.failing);
        EXPECT_EQ(received(iffMessage("IFF text", row.regions)), row.statements);
        // Only the failed import leaves the file.
        EXPECT_EQ(fileContent(temporaryFile).has_value(), row.statements.size() == 4);
    }
}

} // namespace
