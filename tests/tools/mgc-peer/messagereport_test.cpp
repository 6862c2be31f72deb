// Everything else that listen prints is checked on the tool's output.

#include <gtest/gtest.h>

#include <string>

#include "messagereport.h"

TEST(MessageReportSaving, UnwritableFolderIsNamed)
{
    RFMsgExp::MessageContent content;
    content.kind = 222;
    try {
        MessageReport::line(content, 1, "/proc/no-such-folder");
        FAIL() << "wrote";
    } catch (const MessageReport::Error& error) {
        EXPECT_EQ(
            std::string(error.what()).find("cannot write /proc/no-such-folder/message-1.txt: "), 0u)
            << error.what();
    }
}
