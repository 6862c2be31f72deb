#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include <QCborArray>
#include <QCborMap>
#include <QCborStreamWriter>
#include <QCborValue>

#include "recordingbridge.h"
#include "rfmsg/framereader.h"
#include "rfmsg/wirecodec.h"

using namespace RFMsgExp;

namespace {

// Encodes `content` into a frame, cuts it out again and decodes it.
MessageContent throughTheWire(const MessageContent& content)
{
    const std::string bytes = Wire::encodeMessage(content).flatten();
    Wire::FrameReader reader;
    reader.append(bytes.data(), bytes.size());
    EXPECT_EQ(reader.poll(), Wire::FrameReader::Status::Ready);
    const Wire::FrameReader::Frame frame = reader.front();
    EXPECT_EQ(frame.type, Wire::FrameType::Message);
    return Wire::decodeMessage(frame.payload, frame.size);
}

void expectSameContent(const MessageContent& actual, const MessageContent& expected)
{
    EXPECT_EQ(actual.kind, expected.kind);
    EXPECT_EQ(actual.properties, expected.properties);
    EXPECT_EQ(actual.text, expected.text);
    ASSERT_EQ(actual.document.has_value(), expected.document.has_value());
    if (!expected.document)
        return;
    const DocumentContent& a = *actual.document;
    const DocumentContent& e = *expected.document;
    EXPECT_EQ(a.label, e.label);
    EXPECT_EQ(a.name, e.name);
    EXPECT_EQ(a.path, e.path);
    ASSERT_EQ(a.regions.size(), e.regions.size());
    for (std::size_t r = 0; r < e.regions.size(); ++r) {
        EXPECT_EQ(a.regions[r].name, e.regions[r].name);
        EXPECT_EQ(a.regions[r].netlist, e.regions[r].netlist);
        EXPECT_EQ(a.regions[r].egs, e.regions[r].egs);
        ASSERT_EQ(a.regions[r].ports.size(), e.regions[r].ports.size());
        for (std::size_t p = 0; p < e.regions[r].ports.size(); ++p) {
            const PortContent& ap = a.regions[r].ports[p];
            const PortContent& ep = e.regions[r].ports[p];
            EXPECT_EQ(ap.name, ep.name);
            EXPECT_EQ(ap.enabled, ep.enabled);
            EXPECT_EQ(ap.type, ep.type);
            EXPECT_EQ(ap.label, ep.label);
            EXPECT_EQ(ap.note, ep.note);
            EXPECT_EQ(ap.value, ep.value);
            EXPECT_EQ(ap.x, ep.x);
            EXPECT_EQ(ap.y, ep.y);
        }
    }
    ASSERT_EQ(a.portTypes.size(), e.portTypes.size());
    for (std::size_t t = 0; t < e.portTypes.size(); ++t) {
        EXPECT_EQ(a.portTypes[t].id, e.portTypes[t].id);
        EXPECT_EQ(a.portTypes[t].flag, e.portTypes[t].flag);
        EXPECT_EQ(a.portTypes[t].name, e.portTypes[t].name);
    }
}

std::string cbor(QCborValue value)
{
    return value.toCbor().toStdString();
}

} // namespace

TEST(WireCodec, MessagesSurviveTheWire)
{
    struct Row
    {
        const char* name;
        MessageContent content;
    };
    MessageContent empty;
    MessageContent extremes = BridgeTestSupport::sampleMessage(INT_MIN, "");
    MessageContent largest = BridgeTestSupport::sampleMessage(INT_MAX, std::string(100000, 'L'));
    MessageContent binary =
        BridgeTestSupport::sampleMessage(222, std::string("\xff\xfe\0 caf\xe9\n", 10));
    binary.properties = {{"B", "2"}, {"A", "1"}, {"", ""}, {"RFDESIGNPATH", "C:\\a b\\c"}};
    MessageContent withDocument = BridgeTestSupport::sampleMessage(213, "body", true);
    withDocument.document->regions.push_back({"pa", "( a b c )", std::string(5000, 'E'), {}});
    withDocument.document->regions[0].ports.push_back({"P2", 0, -3, "", "", -0.25, 1e300, -1e-300});
    MessageContent emptyDocument = BridgeTestSupport::sampleMessage(212, "");
    emptyDocument.document = DocumentContent();
    const std::vector<Row> rows = {
        {"an empty message", empty},
        {"the smallest kind", extremes},
        {"the largest kind and a referenced text", largest},
        {"any 8-bit bytes and properties in their order", binary},
        {"a document with regions, ports and port types", withDocument},
        {"an empty document", emptyDocument},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectSameContent(throughTheWire(row.content), row.content);
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
    EXPECT_EQ(Wire::encodeClose("the bridge is disconnecting").flatten().substr(0, 8),
              std::string("\x52\x46\x01\x04\x00\x00\x00\x25", 8));
}

TEST(WireCodec, PiecesForWritevAreTheFlatFrame)
{
    MessageContent content = BridgeTestSupport::sampleMessage(222, std::string(300000, 'T'), true);
    content.document->regions[0].netlist = std::string(9000, 'N');
    const Wire::FrameEncoder encoder = Wire::encodeMessage(content);
    std::string joined;
    for (const iovec& piece : encoder.pieces())
        joined.append(static_cast<const char*>(piece.iov_base), piece.iov_len);
    EXPECT_EQ(joined, encoder.flatten());
    EXPECT_EQ(joined.size(), encoder.size());
    const std::uint32_t length = (std::uint32_t(std::uint8_t(joined[4])) << 24) |
                                 (std::uint32_t(std::uint8_t(joined[5])) << 16) |
                                 (std::uint32_t(std::uint8_t(joined[6])) << 8) |
                                 std::uint32_t(std::uint8_t(joined[7]));
    EXPECT_EQ(length, joined.size() - Wire::kHeaderSize);
}

TEST(WireCodec, MessageWrittenWithQtsOwnCborClassesIsRead)
{
    // As a peer written from the protocol document would do it: text strings,
    // maps of unknown length, whole numbers for coordinates, an unknown field.
    QByteArray payload;
    QCborStreamWriter writer(&payload);
    writer.startMap();
    writer.append(QLatin1String("future_field"));
    writer.append(QCborValue(QCborMap{{QStringLiteral("x"), QCborArray{1, 2}}}).toCbor());
    writer.append(QLatin1String("kind"));
    writer.append(212);
    writer.append(QLatin1String("properties"));
    writer.startArray();
    writer.startArray(2);
    writer.append(QLatin1String("RFDESIGN"));
    writer.append(QByteArray("amp"));
    writer.endArray();
    writer.endArray();
    writer.append(QLatin1String("document"));
    writer.startMap(2);
    writer.append(QLatin1String("name"));
    writer.append(QStringLiteral("amp_top.sch"));
    writer.append(QLatin1String("regions"));
    writer.startArray(1);
    writer.startMap(2);
    writer.append(QLatin1String("name"));
    writer.append(QStringLiteral("lna"));
    writer.append(QLatin1String("ports"));
    writer.startArray(1);
    writer.startMap(3);
    writer.append(QLatin1String("x"));
    writer.append(12);
    writer.append(QLatin1String("y"));
    writer.append(1.5f);
    writer.append(QLatin1String("label"));
    writer.append(QStringLiteral("P1"));
    writer.endMap();
    writer.endArray();
    writer.endMap();
    writer.endArray();
    writer.endMap();
    writer.append(QLatin1String("text"));
    writer.append(QStringLiteral("hello"));
    writer.endMap();

    const MessageContent content = Wire::decodeMessage(payload.constData(), payload.size());
    EXPECT_EQ(content.kind, 212);
    ASSERT_EQ(content.properties.size(), 1u);
    EXPECT_EQ(content.properties[0].second, "amp");
    EXPECT_EQ(content.text, "hello");
    ASSERT_TRUE(content.document);
    EXPECT_EQ(content.document->name, "amp_top.sch");
    ASSERT_EQ(content.document->regions.size(), 1u);
    ASSERT_EQ(content.document->regions[0].ports.size(), 1u);
    EXPECT_EQ(content.document->regions[0].ports[0].x, 12.0);
    EXPECT_EQ(content.document->regions[0].ports[0].y, 1.5);
    EXPECT_EQ(content.document->regions[0].ports[0].label, "P1");
    EXPECT_EQ(content.document->regions[0].ports[0].enabled, 1)
        << "a missing field keeps its default";
}

TEST(WireCodec, TextSentInChunksIsJoined)
{
    const std::string payload("\xa2\x64kind\x01\x64text\x7f\x62he\x63llo\x60\xff", 22);
    EXPECT_EQ(Wire::decodeMessage(payload.data(), payload.size()).text, "hello");
}

TEST(WireCodec, MalformedMessagesAreRejectedNamingTheField)
{
    struct Row
    {
        const char* name;
        std::string payload;
        const char* error;
    };
    const QCborMap port{{QStringLiteral("x"), QStringLiteral("left")}};
    const QCborMap region{{QStringLiteral("ports"), QCborArray{port}}};
    const QCborMap document{{QStringLiteral("regions"), QCborArray{region}}};
    const std::vector<Row> rows = {
        {"not a map", cbor(QCborArray{1, 2}), "the payload must be a map (found an array)"},
        {"no kind", cbor(QCborMap{{QStringLiteral("text"), QByteArray("x")}}),
         "the message has no event kind ('kind')"},
        {"kind as text", cbor(QCborMap{{QStringLiteral("kind"), QStringLiteral("212")}}),
         "field 'kind' must be an integer (found a text string)"},
        {"kind beyond 32 bits", cbor(QCborMap{{QStringLiteral("kind"), qint64(1) << 31}}),
         "field 'kind' is out of range (-2147483648 to 2147483647)"},
        {"kind below 32 bits", cbor(QCborMap{{QStringLiteral("kind"), -(qint64(1) << 31) - 1}}),
         "field 'kind' is out of range (-2147483648 to 2147483647)"},
        {"a property of three strings",
         cbor(QCborMap{{QStringLiteral("kind"), 1},
                       {QStringLiteral("properties"), QCborArray{QCborArray{"a", "b", "c"}}}}),
         "field 'properties[0][2]' must hold a name and a value, nothing more"},
        {"a property without a value",
         cbor(QCborMap{{QStringLiteral("kind"), 1},
                       {QStringLiteral("properties"), QCborArray{QCborArray{"a"}}}}),
         "field 'properties[0]' must hold a name and a value"},
        {"a coordinate as text",
         cbor(QCborMap{{QStringLiteral("kind"), 1}, {QStringLiteral("document"), document}}),
         "field 'document.regions[0].ports[0].x' must be a number (found a text string)"},
        {"a key that is a number", cbor(QCborMap{{1, 2}}),
         "the payload has a key that is an integer instead of a text string"},
        {"cut short",
         cbor(QCborMap{{QStringLiteral("kind"), 1}, {QStringLiteral("text"), "abcdef"}})
             .substr(0, 12),
         "the CBOR data is malformed"},
        {"a string claiming 4 GiB",
         std::string("\xa1\x64text\x5a\xff\xff\xff\xf0"
                     "abc",
                     13),
         "field 'text' claims 4294967280 bytes, more than the 2 left in the payload"},
        {"a string claiming 1.5 GB in an unknown field",
         std::string("\xa2\x64kind\x01\x61z\x81\x5a\x5a\x5a\x5a\x5a"
                     "abc",
                     14),
         "the CBOR data is malformed at byte 10"},
        {"bytes after the item", cbor(QCborMap{{QStringLiteral("kind"), 1}}) + "\x01",
         "the payload has 1 more bytes after its CBOR item"},
        {"deep nesting in an unknown field",
         "\xa2\x64kind\x01\x61z" + std::string(100, '\x81') + "\x01",
         "field 'z' nests deeper than 16 levels"},
        {"empty payload", "", "the CBOR data is malformed"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            Wire::decodeMessage(row.payload.data(), row.payload.size());
            ADD_FAILURE() << "accepted";
        } catch (const Wire::DecodeError& error) {
            EXPECT_NE(std::string(error.what()).find(row.error), std::string::npos) << error.what();
        }
    }
}

TEST(WireCodec, AnnouncementNeedsANameAndAProtocol)
{
    struct Row
    {
        const char* name;
        QCborMap hello;
        const char* error;
    };
    const std::vector<Row> rows = {
        {"no name", QCborMap{{QStringLiteral("protocol"), 1}}, "names no application"},
        {"an empty name", QCborMap{{QStringLiteral("app"), ""}, {QStringLiteral("protocol"), 1}},
         "names no application"},
        {"a name too long",
         QCborMap{{QStringLiteral("app"), QString(300, 'a')}, {QStringLiteral("protocol"), 1}},
         "longer than 256 bytes"},
        {"no protocol", QCborMap{{QStringLiteral("app"), "DXD"}}, "gives no protocol version"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string payload = cbor(row.hello.toCborValue());
        try {
            Wire::decodeHello(payload.data(), payload.size());
            ADD_FAILURE() << "accepted";
        } catch (const Wire::DecodeError& error) {
            EXPECT_NE(std::string(error.what()).find(row.error), std::string::npos) << error.what();
        }
    }
    const std::string good = BridgeTestSupport::helloPayload("BSXE", 7);
    const Wire::Hello hello = Wire::decodeHello(good.data(), good.size());
    EXPECT_EQ(hello.app, "BSXE");
    EXPECT_EQ(hello.protocol, 7);
}
