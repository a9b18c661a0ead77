#include <camclock/BinaryStreamParser.h>

#include "support/BitWriter.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace camclock {
namespace {

using testing::BitWriter;

constexpr unsigned int kAllOnes = 0xFFFFFFFF;

struct Reader : BinaryStreamParser {
    Reader() = default;
    explicit Reader(std::vector<unsigned char> data)
        : bytes(std::move(data)) {
        InitParser(bytes.data(), static_cast<unsigned int>(bytes.size()));
    }

    using BinaryStreamParser::_BitsLeftInBuffer;
    using BinaryStreamParser::_ByteAligned;
    using BinaryStreamParser::_NextBit;
    using BinaryStreamParser::_NextBits;
    using BinaryStreamParser::_NextBitsAre;
    using BinaryStreamParser::_ReadBit;
    using BinaryStreamParser::_ReadBits;
    using BinaryStreamParser::_ReadExponentialGolombCode;
    using BinaryStreamParser::_ReadSE;

    std::uint64_t Position() const { return bitPosition_; }
    std::uint64_t BitLength() const { return bitLength_; }
    unsigned int ByteLength() const { return byteLength_; }
    const unsigned char* Buffer() const { return buffer_; }
    bool EndOfData() const { return endOfData_; }

    std::vector<unsigned char> bytes;
};

static_assert(std::has_virtual_destructor_v<BinaryStreamParser>);

TEST(BinaryStreamParser, HasNoDataAtFirst) {
    Reader reader;
    EXPECT_EQ(reader.Buffer(), nullptr);
    EXPECT_EQ(reader.ByteLength(), 0U);
    EXPECT_EQ(reader.BitLength(), 0U);
    EXPECT_EQ(reader.Position(), 0U);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._ReadBit(), kAllOnes);
    EXPECT_TRUE(reader.EndOfData());
}

TEST(BinaryStreamParser, ComparingAPeekAnswersAsThePeekItself) {
    const std::vector<unsigned char> bytes = {0x00, 0x00, 0x01, 0xB6, 0xFF, 0xFF, 0xFF, 0xFF};
    for (int start = 0; start <= 64; ++start) {
        for (int n = -1; n <= 32; ++n) {
            Reader peeking(bytes);
            peeking._ReadBits(start);
            Reader comparing(bytes);
            comparing._ReadBits(start);
            const unsigned int next = peeking._NextBits(n);
            EXPECT_TRUE(comparing._NextBitsAre(n, next)) << n << " bits at " << start;
            EXPECT_EQ(comparing.EndOfData(), peeking.EndOfData()) << n << " bits at " << start;
            EXPECT_EQ(comparing.Position(), peeking.Position());
            if (n > 0) {
                EXPECT_FALSE(comparing._NextBitsAre(n, next ^ 1U)) << n << " bits at " << start;
            }
        }
    }
}

TEST(BinaryStreamParser, ReadingFewerThanOneBitTouchesNothing) {
    Reader reader({0xFF});
    EXPECT_EQ(reader._ReadBits(0), 0U);
    EXPECT_EQ(reader._ReadBits(-1), 0U);
    EXPECT_EQ(reader._ReadBits(INT_MIN), 0U);
    EXPECT_EQ(reader._NextBits(0), 0U);
    EXPECT_EQ(reader._NextBits(-1), 0U);
    EXPECT_EQ(reader.Position(), 0U);
    EXPECT_FALSE(reader.EndOfData());

    Reader empty;
    EXPECT_EQ(empty._ReadBits(0), 0U);
    EXPECT_EQ(empty._NextBits(-1), 0U);
    EXPECT_FALSE(empty.EndOfData());
}

TEST(BinaryStreamParser, ReadsTheMostSignificantBitFirst) {
    Reader reader({0xA5});
    EXPECT_EQ(reader._ReadBits(4), 0xAU);
    EXPECT_EQ(reader._ReadBits(4), 0x5U);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._ReadBit(), kAllOnes);
    EXPECT_TRUE(reader.EndOfData());
    EXPECT_EQ(reader.Position(), 8U);
}

TEST(BinaryStreamParser, ReadThatRunsOutIsAllOnesAsAWhole) {
    Reader reader({0xE0});
    EXPECT_EQ(reader._ReadBits(5), 0x1CU);
    EXPECT_EQ(reader.Position(), 5U);
    EXPECT_EQ(reader._ReadBits(8), kAllOnes);
    EXPECT_EQ(reader.Position(), 8U);
    EXPECT_TRUE(reader.EndOfData());
}

TEST(BinaryStreamParser, PeekPastTheEndRaisesTheFlagAndConsumesNothing) {
    Reader reader({1, 2, 3});
    EXPECT_EQ(reader._NextBits(24), 0x010203U);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._NextBits(32), kAllOnes);
    EXPECT_TRUE(reader.EndOfData());
    EXPECT_EQ(reader.Position(), 0U);
    EXPECT_EQ(reader._ReadBits(8), 1U);
    EXPECT_TRUE(reader.EndOfData());
}

TEST(BinaryStreamParser, PeekReadsTheSameAsTheReadThatFollows) {
    Reader reader({0x12, 0x34, 0x56, 0x78, 0x9A});
    reader._ReadBits(3);
    EXPECT_EQ(reader._NextBits(32), 0x91A2B3C4U);
    EXPECT_EQ(reader.Position(), 3U);
    EXPECT_EQ(reader._ReadBits(32), 0x91A2B3C4U);
    EXPECT_EQ(reader.Position(), 35U);
}

TEST(BinaryStreamParser, OwnPositionOfTheCallerMovesAlone) {
    Reader reader({0x40});
    int pos = 0;
    EXPECT_EQ(reader._NextBit(pos), 0U);
    EXPECT_EQ(reader._NextBit(pos), 1U);
    EXPECT_EQ(pos, 2);
    EXPECT_EQ(reader.Position(), 0U);
    pos = 8;
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._NextBit(pos), kAllOnes);
    EXPECT_EQ(pos, 8);
    EXPECT_TRUE(reader.EndOfData());
}

TEST(BinaryStreamParser, NegativePositionOfTheCallerIsBeyondTheEnd) {
    Reader reader({0x40});
    for (int pos : {-1, INT_MIN}) {
        reader.InitParser(reader.bytes.data(), 1);
        const int before = pos;
        EXPECT_EQ(reader._NextBit(pos), kAllOnes);
        EXPECT_EQ(pos, before);
        EXPECT_TRUE(reader.EndOfData());
    }
}

// Not a use that any parser makes: bit k from the end is ORed in at k mod 32.
TEST(BinaryStreamParser, WidthsAbove32AreOredTogetherModulo32) {
    Reader reader({0x80, 0x00, 0x00, 0x00, 0x01, 0xFF});
    EXPECT_EQ(reader._ReadBits(40), 0x00000081U);
    EXPECT_EQ(reader.Position(), 40U);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._ReadBits(INT_MAX), kAllOnes);
    EXPECT_EQ(reader.Position(), 48U);
    EXPECT_TRUE(reader.EndOfData());
}

TEST(BinaryStreamParser, UnsignedCodes) {
    const auto code = [](const char* bits) {
        Reader reader(BitWriter().Bits(bits).Bytes());
        const unsigned int value = reader._ReadExponentialGolombCode();
        EXPECT_EQ(reader.Position(), std::string_view(bits).size());
        EXPECT_FALSE(reader.EndOfData());
        return value;
    };
    EXPECT_EQ(code("1"), 0U);
    EXPECT_EQ(code("010"), 1U);
    EXPECT_EQ(code("011"), 2U);
    EXPECT_EQ(code("00100"), 3U);
    EXPECT_EQ(code("00111"), 6U);
    EXPECT_EQ(code("0001000"), 7U);
}

TEST(BinaryStreamParser, SignedCodes) {
    const auto code = [](const char* bits) {
        return static_cast<std::int32_t>(Reader(BitWriter().Bits(bits).Bytes())._ReadSE());
    };
    EXPECT_EQ(code("1"), 0);
    EXPECT_EQ(code("010"), 1);
    EXPECT_EQ(code("011"), -1);
    EXPECT_EQ(code("00100"), 2);
    EXPECT_EQ(code("00101"), -2);
    EXPECT_EQ(Reader(BitWriter().Bits("011").Bytes())._ReadSE(), 0xFFFFFFFFU);
}

TEST(BinaryStreamParser, LongestCodes) {
    struct Case {
        int zeros;
        std::uint64_t suffix;
        unsigned int expected;
    };
    for (const Case& c : {Case{31, 0, 0x7FFFFFFF}, Case{31, 0x7FFFFFFF, 0xFFFFFFFE}, Case{32, 0, 0},
                          Case{32, 5, 5}, Case{32, 0xFFFFFFFF, 0xFFFFFFFF}}) {
        Reader reader(BitWriter().U(c.zeros, 0).U(1, 1).U(c.zeros, c.suffix).Bytes());
        EXPECT_EQ(reader._ReadExponentialGolombCode(), c.expected) << c.zeros << ' ' << c.suffix;
        EXPECT_EQ(reader.Position(), static_cast<unsigned int>(2 * c.zeros + 1));
    }
}

TEST(BinaryStreamParser, PrefixEndsAfter33BitsWhateverTheLastOneIs) {
    Reader reader(BitWriter().U(33, 0).U(32, 0x12345678).Bytes());
    EXPECT_EQ(reader._ReadExponentialGolombCode(), 0x12345678U);
    EXPECT_EQ(reader.Position(), 65U);
    EXPECT_FALSE(reader.EndOfData());
}

TEST(BinaryStreamParser, SignedCodesAbove31Bits) {
    const auto code = [](int zeros, std::uint64_t suffix) {
        return static_cast<std::int32_t>(
            Reader(BitWriter().U(zeros, 0).U(1, 1).U(zeros, suffix).Bytes())._ReadSE());
    };
    EXPECT_EQ(code(30, 0x3FFFFFFE), 0x3FFFFFFF);   // code number 0x7FFFFFFD
    EXPECT_EQ(code(31, 0), -0x40000000);           // 0x7FFFFFFF: the standard says 0x40000000
    EXPECT_EQ(code(31, 1), -0x40000000);           // 0x80000000
    EXPECT_EQ(code(31, 2), -0x3FFFFFFF);           // 0x80000001: the standard says 0x40000001
    EXPECT_EQ(code(31, 0x7FFFFFFF), -0x7FFFFFFF);  // 0xFFFFFFFE
    EXPECT_EQ(code(32, 0xFFFFFFFF), 0);            // 0xFFFFFFFF
}

TEST(BinaryStreamParser, CodeAtTheEndOfTheData) {
    Reader reader({0xFF});
    reader._ReadBits(8);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._ReadExponentialGolombCode(), 0U);
    EXPECT_TRUE(reader.EndOfData());
    EXPECT_EQ(reader._ReadSE(), 0U);
    EXPECT_EQ(reader.Position(), 8U);
}

TEST(BinaryStreamParser, CodeThatTheDataCutsShort) {
    for (unsigned int zeros : {8U, 16U, 24U, 32U}) {
        Reader reader(std::vector<unsigned char>(zeros / 8, 0));
        const unsigned int expected = (1U << (zeros % 32)) - 2U;
        EXPECT_EQ(reader._ReadExponentialGolombCode(), expected) << zeros;
        EXPECT_TRUE(reader.EndOfData());
        EXPECT_EQ(reader.Position(), zeros);
    }
    Reader three({0xF8});
    three._ReadBits(5);
    EXPECT_EQ(three._ReadExponentialGolombCode(), 6U);  // 2^3 - 2
}

TEST(BinaryStreamParser, ByteAlignedAtEveryEighthBit) {
    Reader reader({0, 0, 0});
    for (unsigned int position = 0; position <= 16; ++position) {
        EXPECT_EQ(reader._ByteAligned(), position == 0 || position == 8 || position == 16) << position;
        reader._ReadBit();
    }
}

TEST(BinaryStreamParser, BitsLeft) {
    Reader reader({0, 0});
    EXPECT_EQ(reader._BitsLeftInBuffer(), 16U);
    reader._ReadBits(5);
    EXPECT_EQ(reader._BitsLeftInBuffer(), 11U);
    reader._ReadBits(12);
    EXPECT_EQ(reader._BitsLeftInBuffer(), 0U);
}

TEST(BinaryStreamParser, CopyGoesOnFromTheSameBitOfTheSameBuffer) {
    Reader original({0xA5, 0x3C});
    original._ReadBits(4);
    Reader copy(original);
    EXPECT_EQ(copy.Buffer(), original.Buffer());
    EXPECT_EQ(copy.Position(), 4U);
    EXPECT_EQ(copy._ReadBits(8), 0x53U);
    EXPECT_EQ(original.Position(), 4U);

    original._ReadBits(13);
    Reader assigned;
    assigned = original;
    EXPECT_EQ(assigned.Buffer(), original.Buffer());
    EXPECT_EQ(assigned.Position(), 16U);
    EXPECT_TRUE(assigned.EndOfData());
}

TEST(BinaryStreamParser, InitParserStartsOverAndClearsTheFlag) {
    Reader reader({0xA5});
    reader._ReadBits(9);
    EXPECT_TRUE(reader.EndOfData());
    reader.InitParser(reader.bytes.data(), 1);
    EXPECT_FALSE(reader.EndOfData());
    EXPECT_EQ(reader._ReadBits(8), 0xA5U);
}

TEST(BinaryStreamParser, NullCountsAsNoData) {
    for (unsigned int size : {0U, 1U, 1000U, 0xFFFFFFFFU}) {
        Reader reader;
        reader.InitParser(nullptr, size);
        EXPECT_EQ(reader._BitsLeftInBuffer(), 0U);
        EXPECT_EQ(reader._ReadBits(8), kAllOnes);
        EXPECT_EQ(reader._NextBits(8), kAllOnes);
        EXPECT_EQ(reader._ReadExponentialGolombCode(), 0U);
        int pos = 0;
        EXPECT_EQ(reader._NextBit(pos), kAllOnes);
        EXPECT_TRUE(reader.EndOfData());
    }
}

// The length in bits has 32 bits itself; only the sizes matter here, the bytes
// behind the first are never touched.
TEST(BinaryStreamParser, LengthInBitsWrapsAt512MiB) {
    unsigned char bytes[] = {0xA5};
    Reader reader;
    reader.InitParser(bytes, 0x20000000);
    EXPECT_EQ(reader.ByteLength(), 0x20000000U);
    EXPECT_EQ(reader.BitLength(), 0U);
    EXPECT_EQ(reader._ReadBit(), kAllOnes);
    reader.InitParser(bytes, 0x20000001);
    EXPECT_EQ(reader.BitLength(), 8U);
    EXPECT_EQ(reader._ReadBits(8), 0xA5U);
    EXPECT_EQ(reader._ReadBit(), kAllOnes);
}

TEST(BinaryStreamParser, EmulationPreventionBytesAreReadAsTheyAre) {
    Reader reader({0x00, 0x00, 0x03, 0x01});
    EXPECT_EQ(reader._ReadBits(32), 0x00000301U);
}

}  // namespace
}  // namespace camclock
