#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "recordingbridge.h"
#include "rfmsg/framereader.h"

using BridgeTestSupport::frame;
using RFMsgExp::Wire::FrameReader;
using RFMsgExp::Wire::FrameType;

namespace {

struct Cut
{
    FrameType type;
    std::string payload;
};

// Every frame the reader finds in what it has been given so far.
std::vector<Cut> drain(FrameReader& reader)
{
    std::vector<Cut> cuts;
    while (reader.poll() == FrameReader::Status::Ready) {
        const FrameReader::Frame front = reader.front();
        cuts.push_back({front.type, std::string(front.payload, front.size)});
        reader.pop();
    }
    return cuts;
}

std::string header(unsigned char type, std::uint32_t length)
{
    return frame(type, std::string()).substr(0, 4) +
           std::string{char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
}

} // namespace

TEST(FrameReaderCutting, FramesArrivingByteByByteComeOutWhole)
{
    const std::string stream = frame(1, "hello") + frame(3, std::string(70000, 'x')) + frame(4, "");
    FrameReader reader;
    std::vector<Cut> cuts;
    for (char byte : stream) {
        reader.append(&byte, 1);
        for (Cut& cut : drain(reader))
            cuts.push_back(std::move(cut));
    }
    ASSERT_EQ(cuts.size(), 3u);
    EXPECT_EQ(cuts[0].type, FrameType::Hello);
    EXPECT_EQ(cuts[0].payload, "hello");
    EXPECT_EQ(cuts[1].type, FrameType::Message);
    EXPECT_EQ(cuts[1].payload, std::string(70000, 'x'));
    EXPECT_EQ(cuts[2].type, FrameType::Close);
    EXPECT_EQ(cuts[2].payload, "");
    EXPECT_FALSE(reader.midFrame());
}

TEST(FrameReaderCutting, ManyFramesInOneChunkAllComeOut)
{
    std::string stream;
    for (int i = 0; i < 1000; ++i)
        stream += frame(3, std::to_string(i));
    stream += frame(3, "tail").substr(0, 10);
    FrameReader reader;
    reader.append(stream.data(), stream.size());
    const std::vector<Cut> cuts = drain(reader);
    ASSERT_EQ(cuts.size(), 1000u);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(cuts[static_cast<std::size_t>(i)].payload, std::to_string(i));
    EXPECT_TRUE(reader.midFrame());
    EXPECT_EQ(reader.midFrameDescription(), "10 of 12 bytes of a MESSAGE frame");
}

TEST(FrameReaderCutting, BadHeadersAreRejectedWithTheReason)
{
    struct Row
    {
        const char* name;
        std::string bytes;
        std::uint32_t limit;
        const char* error;
    };
    const std::vector<Row> rows = {
        {"foreign bytes, seen at the first byte", "G", 1000,
         "data that is not a frame of this protocol (it starts with the bytes 47)"},
        {"an HTTP request", "GET / HTTP/1.1\r\n", 1000,
         "data that is not a frame of this protocol (it starts with the bytes 47 45 54 20 2f 20 48 "
         "54)"},
        {"a later frame format", std::string("RF\x02\x03", 4), 1000,
         "a frame of format version 2, which is not supported (this side speaks version 1)"},
        {"frame type 0", std::string("RF\x01\x00", 4), 1000, "a frame of unknown type 0"},
        {"frame type 9", std::string("RF\x01\x09", 4), 1000, "a frame of unknown type 9"},
        {"one byte over the limit", header(3, 1001), 1000,
         "a MESSAGE frame of 1001 bytes, over the limit of 1000 bytes"},
        {"a length prefix of 4 GiB", header(1, 0xffffffffu), 1u << 30,
         "a HELLO frame of 4294967295 bytes, over the limit of 1073741824 bytes"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FrameReader reader(row.limit);
        reader.append(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(reader.poll(), FrameReader::Status::Failed);
        EXPECT_EQ(reader.error(), row.error);
        // Failing is final.
        const std::string more = frame(1, "x");
        reader.append(more.data(), more.size());
        EXPECT_EQ(reader.poll(), FrameReader::Status::Failed);
    }
}

TEST(FrameReaderCutting, FrameAtTheLimitIsAccepted)
{
    FrameReader reader(1000);
    const std::string bytes = frame(3, std::string(1000, 'a'));
    reader.append(bytes.data(), bytes.size());
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    EXPECT_EQ(reader.front().size, 1000u);
}

TEST(FrameReaderMemory, ClaimedLengthAllocatesOnlyWhatArrived)
{
    FrameReader reader(0xffffffffu);
    const std::string claim = header(3, 0xfffffff0u) + std::string(100, 'x');
    reader.append(claim.data(), claim.size());
    EXPECT_EQ(reader.poll(), FrameReader::Status::NeedMore);
    EXPECT_LE(reader.capacity(), 64u * 1024);

    const std::string megabyte(1 << 20, 'y');
    reader.append(megabyte.data(), megabyte.size());
    EXPECT_EQ(reader.poll(), FrameReader::Status::NeedMore);
    EXPECT_GE(reader.capacity(), megabyte.size());
    EXPECT_LE(reader.capacity(), 2 * megabyte.size() + 64 * 1024);
}

TEST(FrameReaderMemory, LargeFrameBufferIsGivenBackOnceConsumed)
{
    FrameReader reader;
    const std::string big = frame(3, std::string(3 << 20, 'z')) + frame(3, "next");
    reader.append(big.data(), big.size());
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    EXPECT_GE(reader.capacity(), 3u << 20);
    reader.pop();
    EXPECT_LE(reader.capacity(), 64u * 1024);
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    EXPECT_EQ(std::string(reader.front().payload, reader.front().size), "next");
}

TEST(FrameReaderCutting, UnfinishedFrameIsDescribed)
{
    struct Row
    {
        std::string bytes;
        const char* description;
    };
    const std::vector<Row> rows = {
        {"RF\x01", "3 of the 8 header bytes of a frame"},
        {header(3, 100) + std::string(10, 'q'), "18 of 108 bytes of a MESSAGE frame"},
        {header(1, 5), "8 of 13 bytes of a HELLO frame"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.description);
        FrameReader reader;
        reader.append(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(reader.poll(), FrameReader::Status::NeedMore);
        EXPECT_TRUE(reader.midFrame());
        EXPECT_EQ(reader.midFrameDescription(), row.description);
    }
}
