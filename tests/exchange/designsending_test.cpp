// Sending a schematic or a layout as one kind-222 message, through the
// commands mgcconnect_designsend_command and mgcconnect_layoutsend_command.

#include <fstream>
#include <string>
#include <vector>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"

namespace {

using namespace ExchangeSeams;
using Property = std::pair<std::string, std::string>;

class DesignSending : public SeamTest
{
protected:
    void SetUp() override
    {
        SeamTest::SetUp();
        ASSERT_TRUE(directory.isValid());
    }

    std::string file(const std::string& name, const std::string& content)
    {
        const std::string path = directory.path().toStdString() + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string missing(const std::string& name) const
    {
        return directory.path().toStdString() + "/" + name;
    }

    // Calls the command; the body of the one message it sent, nullopt when none.
    std::optional<std::string> send(const char* command, std::vector<BRIOValue> arguments,
                                    std::string* standardError = nullptr)
    {
        test.brio.clearStatements();
        RFMsgExp::Testing::clearSentMessages(test.server());
        testing::internal::CaptureStderr();
        const std::optional<int> result = callCommand(test, command, std::move(arguments));
        const std::string captured = testing::internal::GetCapturedStderr();
        if (standardError)
            *standardError = captured;
        EXPECT_EQ(result, 1) << "whatever the send reported";
        const auto messages = sent();
        EXPECT_LE(messages.size(), 1u);
        if (messages.empty())
            return std::nullopt;
        return messages.front().content.text;
    }

    QTemporaryDir directory;
};

TEST_F(DesignSending, TheMessageCarriesKindPropertiesInOrderAndTheBothTexts)
{
    const std::string schematic = file("s.iff", "S1\nS2");
    const std::string layout = file("l.iff", "L1\n");
    const std::vector<Property> properties = {
        {"RFDESIGN", "amp top"}, {"RFREGION", ""}, {"RFDESIGNPATH", "C:\\designs\\amp \"x\""}};
    struct Row
    {
        const char* command;
        std::vector<BRIOValue> arguments;
    };
    const std::vector<Row> rows = {
        {"mgcconnect_designsend_command",
         {schematic, layout, "amp top", "", "C:\\designs\\amp \"x\""}},
        {"mgcconnect_layoutsend_command",
         {layout, schematic, "amp top", "", "C:\\designs\\amp \"x\""}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        // Each line gains its line feed, the end one more: schematic first, nothing between.
        EXPECT_EQ(send(row.command, row.arguments), std::string("S1\nS2\nL1\n\n"));
        const auto messages = sent();
        ASSERT_EQ(messages.size(), 1u);
        const RFMsgExp::MessageContent& content = messages.front().content;
        EXPECT_EQ(content.kind, 222);
        EXPECT_EQ(content.properties, properties);
        // Prepared once, right after the kind, before any property.
        EXPECT_EQ(content.prepareCalls, 1);
        EXPECT_EQ(content.propertiesAtPrepare, 0);
        EXPECT_FALSE(content.document.has_value());
        EXPECT_EQ(messages.front().target, "");
        EXPECT_TRUE(statements().empty());
    }
    unreleasedHandles = 1; // the layout send keeps its second argument's value
}

TEST_F(DesignSending, DesignSendReadsTheLayoutUnlessItIsExactlyNone)
{
    const std::string schematic = file("s.iff", "S");
    file("None", "capitalised none is a file");
    const WorkingDirectory workingDirectory(directory.path());
    struct Row
    {
        const char* layout;
        std::string body;
        std::string standardError;
    };
    const std::vector<Row> rows = {
        {"none", "S\n", ""},
        {"None", "S\ncapitalised none is a file\n", ""},
        {"NONE", "S\n", "Unable to open IFF file NONE\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.layout);
        std::string standardError;
        EXPECT_EQ(send("mgcconnect_designsend_command", {schematic, row.layout, "d", "r", "p"},
                       &standardError),
                  row.body);
        EXPECT_EQ(standardError, row.standardError);
    }
}

TEST_F(DesignSending, DesignSendGoesOnWithWhatItCouldRead)
{
    struct Row
    {
        const char* name;
        std::string schematic;
        std::string layout;
        std::string body;
        std::string standardError;
    };
    const std::vector<Row> rows = {
        {"both empty", file("s0", ""), file("l0", ""), "\n\n", ""},
        {"schematic missing", missing("s1"), file("l1", "L"), "L\n",
         "Unable to open IFF file " + missing("s1") + "\n"},
        {"layout missing", file("s2", "S"), missing("l2"), "S\n",
         "Unable to open IFF file " + missing("l2") + "\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string standardError;
        EXPECT_EQ(send("mgcconnect_designsend_command", {row.schematic, row.layout, "d", "r", "p"},
                       &standardError),
                  row.body);
        EXPECT_EQ(standardError, row.standardError);
        EXPECT_TRUE(statements().empty());
    }
}

TEST_F(DesignSending, LayoutSendWithAnUnreadableSchematicShowsTheErrorAndSendsNothing)
{
    const std::string layout = file("l.iff", "L");
    std::string standardError;
    EXPECT_EQ(send("mgcconnect_layoutsend_command", {layout, missing("s.iff"), "d", "r", "p"},
                   &standardError),
              std::nullopt);
    EXPECT_EQ(statements(),
              (std::vector<HostStatement>{
                  message("de_info(\"Tessel Error: Unable to open schematic IFF file to send to "
                          "Mentor: " +
                          missing("s.iff") + "\");"),
                  message("fprintf(stderr,\"Tessel:Error: Unable to open schematic IFF file to "
                          "send to Mentor: " +
                          missing("s.iff") + "\n\");")}));
    // The layout is then not read at all.
    EXPECT_EQ(standardError, "Unable to open IFF file " + missing("s.iff") + "\n");
    unreleasedHandles = 1;
}

TEST_F(DesignSending, LayoutSendWithAnUnreadableLayoutOnlyLeavesTheReaderLine)
{
    const std::string schematic = file("s.iff", "S");
    std::string standardError;
    EXPECT_EQ(send("mgcconnect_layoutsend_command", {missing("l.iff"), schematic, "d", "r", "p"},
                   &standardError),
              std::nullopt);
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(standardError, "Unable to open IFF file " + missing("l.iff") + "\n");
    unreleasedHandles = 1;
}

} // namespace
