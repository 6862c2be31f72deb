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
        FrameReader reader(1000);
        const std::string bytes = frame(3, std::string(size, 'a'));
        reader.append(bytes.data(), bytes.size());
        EXPECT_EQ(reader.poll(),
                  size == 1000 ? FrameReader::Status::Ready : FrameReader::Status::Failed)
            << size;
    }
}

TEST(FrameReaderMemory, AFrameTakesItsDeclaredSizeOnlyOnceStartedAndGivesItBack)
{
    // The bridge's reader: nothing is allocated for a claim until the frame is started.
    FrameReader claims(0xffffffffu, true);
    const std::string claim = "RF\x01\x03\xff\xff\xff\xf0" + std::string(100, 'x');
    claims.append(claim.data(), claim.size());
    EXPECT_EQ(claims.poll(), FrameReader::Status::NeedMore);
    ASSERT_TRUE(claims.awaitingStart());
    EXPECT_EQ(claims.announced().size, 0xfffffff0u);
    EXPECT_LE(claims.capacity(), 64u * 1024) << "allocated for what the length only claims";

    const std::string payload(3 << 20, 'z');
    const std::string big = frame(3, payload) + frame(3, "next");
    FrameReader reader(1u << 30, true);
    reader.append(big.data(), 1000);
    ASSERT_EQ(reader.poll(), FrameReader::Status::NeedMore);
    reader.start();
    EXPECT_GE(reader.capacity(), payload.size()) << "not received into a buffer of its size";
    EXPECT_LE(reader.capacity(), payload.size() + 128 * 1024);
    reader.append(big.data() + 1000, big.size() - 1000);
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    ASSERT_TRUE(reader.ownsPayload());
    EXPECT_TRUE(reader.takePayload() == payload);
    reader.pop();
    EXPECT_LE(reader.capacity(), 64u * 1024) << "kept the large frame's buffer";
    ASSERT_EQ(reader.poll(), FrameReader::Status::NeedMore);
    reader.start();
    ASSERT_EQ(reader.poll(), FrameReader::Status::Ready);
    EXPECT_FALSE(reader.ownsPayload());
    EXPECT_EQ(std::string(reader.front().payload, reader.front().size), "next");
}
