#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "recordingbridge.h"
#include "rfmsg/framereader.h"
#include "rfmsg/testing.h"
#include "rfmsg/wirecodec.h"

using namespace RFMsgExp;
using BridgeTestSupport::frame;
using BridgeTestSupport::sampleMessage;

namespace {

// A message's bytes on the wire, so that two messages compare at once: a
// field the decoder loses or alters shows.
std::string bytesOf(const MessageContent& message)
{
    return Wire::encodeMessage(message).flatten();
}

MessageContent decode(const std::string& payload)
{
    return Wire::decodeMessage(payload.data(), payload.size());
}

} // namespace

TEST(WireCodec, MessagesSurviveTheWire)
{
    MessageContent binary = sampleMessage(222, std::string("\xff\xfe\0 caf\xe9\n", 10));
    binary.properties = {{"B", "2"}, {"A", "1"}, {"", ""}, {"RFDESIGNPATH", "C:\\a b\\c"}};
    MessageContent withDocument = sampleMessage(213, "body", true);
    withDocument.document->regions.push_back({"pa", "( a b c )", std::string(5000, 'E'), {}});
    withDocument.document->regions[0].ports.push_back({"P2", 0, -3, "", "", -0.25, 1e300, -1e-300});
    MessageContent emptyDocument = sampleMessage(212, "");
    emptyDocument.document = DocumentContent();
    const std::vector<std::pair<const char*, MessageContent>> rows = {
        {"an empty message", MessageContent()},
        {"the smallest kind", sampleMessage(INT_MIN, "")},
        {"the largest kind and a referenced text", sampleMessage(INT_MAX, std::string(10000, 'L'))},
        {"any 8-bit bytes and properties in their order", binary},
        {"a document with regions, ports and port types", withDocument},
        {"an empty document", emptyDocument},
        {"a body decoded in place, a document after it",
         sampleMessage(222, std::string(100000, 'B'), true)},
    };
    for (const auto& [name, content] : rows) {
        SCOPED_TRACE(name);
        // Cut out of the stream and decoded as the bridge does: a large frame in its own buffer.
        const std::string bytes = Wire::encodeMessage(content).flatten();
        Wire::FrameReader reader;
        reader.append(bytes.data(), bytes.size());
        ASSERT_EQ(reader.poll(), Wire::FrameReader::Status::Ready);
        const MessageContent decoded =
            reader.ownsPayload() ? Wire::decodeMessage(reader.takePayload())
                                 : Wire::decodeMessage(reader.front().payload, reader.front().size);
        EXPECT_TRUE(bytesOf(decoded) == bytesOf(content));
    }
}

TEST(WireCodec, FramesAreTheBytesTheProtocolDocumentShows)
{
    Wire::Hello hello;
    hello.app = "DXD";
    EXPECT_EQ(Wire::encodeHello(hello).flatten(),
              std::string("\x52\x46\x01\x01\x00\x00\x00\x13\xa2\x63\x61\x70\x70\x63\x44\x58"
                          "\x44\x68\x70\x72\x6f\x74\x6f\x63\x6f\x6c\x01",
                          27));
    MessageContent request;
    request.kind = 224;
    request.properties = {{"NETLIST_RFREGION", "lna"}};
    EXPECT_EQ(Wire::encodeMessage(request).flatten(),
              std::string("\x52\x46\x01\x03\x00\x00\x00\x30\xa3\x64\x6b\x69\x6e\x64\x18\xe0"
                          "\x6a\x70\x72\x6f\x70\x65\x72\x74\x69\x65\x73\x81\x82\x50\x4e\x45"
                          "\x54\x4c\x49\x53\x54\x5f\x52\x46\x52\x45\x47\x49\x4f\x4e\x43\x6c"
                          "\x6e\x61\x64\x74\x65\x78\x74\x40",
                          56));
}

TEST(WireCodec, MessageWrittenAsAnotherPeerMightIsRead)
{
    // Text strings, a whole number and a half-width float (f9 3e 00) for
    // coordinates, a field this side does not know, defaults left out.
    const std::string payload(
        "\xa5\x6c"
        "future_field\xa1\x61x\x82\x01\x02\x64kind\x18\xd4\x6aproperties\x81\x82\x68RFDESIGN\x63"
        "amp\x68"
        "document\xa1\x67regions\x81\xa2\x64name\x63lna\x65ports\x81\xa3\x61x\x0c\x61y\xf9\x3e\x00"
        "\x65label\x62P1\x64text\x65hello",
        118);
    MessageContent expected = sampleMessage(212, "hello");
    expected.properties[0].second = "amp";
    expected.document =
        DocumentContent{"", "", "", {{"lna", "", "", {{"", 1, 0, "P1", "", 0.0, 12.0, 1.5}}}}, {}};
    EXPECT_EQ(bytesOf(decode(payload)), bytesOf(expected));

    // A map of unknown length, and the text in chunks.
    EXPECT_EQ(decode(std::string("\xbf\x64kind\x01\x64text\x7f\x62he\x63llo\x60\xff\xff", 23)).text,
              "hello");
}

TEST(WireCodec, MalformedPayloadsAreRejectedNamingTheField)
{
    // Name, payload, error; a name starting with "hello" is decoded as an announcement.
    const std::vector<std::vector<std::string>> rows = {
        {"not a map", "\x82\x01\x02", "the payload must be a map (found an array)"},
        {"no kind", "\xa1\x64text\x41x", "the message has no event kind ('kind')"},
        {"kind as text",
         "\xa1\x64kind\x63"
         "212",
         "field 'kind' must be an integer (found a text string)"},
        {"kind beyond 32 bits", std::string("\xa1\x64kind\x1a\x80\x00\x00\x00", 11),
         "field 'kind' is out of range (-2147483648 to 2147483647)"},
        {"a property of three strings",
         "\xa2\x64kind\x01\x6aproperties\x81\x83\x61"
         "a\x61"
         "b\x61"
         "c",
         "field 'properties[0][2]' must hold a name and a value, nothing more"},
        {"a coordinate as text",
         "\xa2\x64kind\x01\x68"
         "document\xa1\x67regions\x81\xa1\x65ports\x81\xa1\x61x\x64left",
         "field 'document.regions[0].ports[0].x' must be a number (found a text string)"},
        {"a key that is a number", "\xa1\x01\x02",
         "the payload has a key that is an integer instead of a text string"},
        {"a string claiming 4 GiB", "\xa1\x64text\x5a\xff\xff\xff\xf0\x61\x62",
         "field 'text' claims 4294967280 bytes, more than the 2 left in the payload"},
        {"a string claiming 1.5 GB in an unknown field",
         "\xa2\x64kind\x01\x61z\x81\x5a\x5a\x5a\x5a", "the CBOR data is malformed at byte 10"},
        {"bytes after the item", "\xa1\x64kind\x01\x01",
         "the payload has 1 more bytes after its CBOR item"},
        {"deep nesting in an unknown field",
         "\xa2\x64kind\x01\x61z" + std::string(100, '\x81') + "\x01",
         "field 'z' nests deeper than 16 levels"},
        {"nesting 16 levels in an unknown field",
         "\xa2\x64kind\x01\x61z" + std::string(16, '\x81') + "\x01", "(accepted)"},
        {"hello without a protocol",
         "\xa1\x63"
         "app\x63"
         "DXD",
         "gives no protocol version"},
    };
    for (const std::vector<std::string>& row : rows) {
        SCOPED_TRACE(row[0]);
        std::string error = "(accepted)";
        try {
            if (row[0].rfind("hello", 0) == 0)
                Wire::decodeHello(row[1].data(), row[1].size());
            else
                decode(row[1]);
        } catch (const Wire::DecodeError& thrown) {
            error = thrown.what();
        }
        EXPECT_NE(error.find(row[2]), std::string::npos) << error;
    }
}

TEST(MessageText, IsLentWithoutACopyAndWhatWasLentNeverChanges)
{
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(222, "body"));
    const msgString lent = message->GetText();
    EXPECT_EQ(message->GetText().c_str(), lent.c_str()) << "the text was copied";
    message->SetText("new");
    EXPECT_EQ(lent.str(), "body");
    EXPECT_EQ(Testing::contentOf(*message).text, "new");
    message.reset();
    EXPECT_EQ(lent.str(), "body") << "outlives its message";
}

// What the bridge tests cannot see: the limit's boundary.
TEST(FrameReaderLimit, FrameAtTheLimitIsAcceptedAndOneByteMoreIsNot)
{
    for (const std::size_t size : {1000, 1001}) {
        Wire::FrameReader reader(1000);
        const std::string bytes = frame(3, std::string(size, 'a'));
        reader.append(bytes.data(), bytes.size());
        EXPECT_EQ(reader.poll(), size == 1000 ? Wire::FrameReader::Status::Ready
                                              : Wire::FrameReader::Status::Failed)
            << size;
    }
}
