// What the bridge tests cannot see: the limit's boundary and the memory held.

#include <gtest/gtest.h>

#include <string>

#include "recordingbridge.h"
#include "rfmsg/framereader.h"

using BridgeTestSupport::frame;
using RFMsgExp::Wire::FrameReader;

TEST(FrameReaderLimit, FrameAtTheLimitIsAcceptedAndOneByteMoreIsNot)
{
    for (const std::size_t size : {1000, 1001}) {
        SCOPED_TRACE(size);
        FrameReader reader(1000);
        const std::string bytes = frame(3, std::string(size, 'a'));
        reader.append(bytes.data(), bytes.size());
        EXPECT_EQ(reader.poll(),
                  size == 1000 ? FrameReader::Status::Ready : FrameReader::Status::Failed);
    }
}

TEST(FrameReaderMemory, OnlyWhatArrivedIsHeldAndALargeBufferIsGivenBack)
{
    FrameReader claims(0xffffffffu);
    const std::string claim =
        frame(3, "").substr(0, 4) + "\xff\xff\xff\xf0" + std::string(100, 'x');
    claims.append(claim.data(), claim.size());
    EXPECT_EQ(claims.poll(), FrameReader::Status::NeedMore);
    EXPECT_LE(claims.capacity(), 64u * 1024) << "allocated for what the length only claims";
    const std::string megabyte(1 << 20, 'y');
    claims.append(megabyte.data(), megabyte.size());
    EXPECT_GE(claims.capacity(), megabyte.size());
    EXPECT_LE(claims.capacity(), 2 * megabyte.size() + 64 * 1024);

    FrameReader reader;
    const std::string big = frame(3, std::string(3 << 20, 'z')) + frame(3, "next");
    reader.append(big.data(), big.size());
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    reader.pop();
    EXPECT_LE(reader.capacity(), 64u * 1024) << "kept the large frame's buffer";
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    EXPECT_EQ(std::string(reader.front().payload, reader.front().size), "next");
}
