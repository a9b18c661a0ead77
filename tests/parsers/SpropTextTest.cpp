#include <camclock/ParameterSetParser.h>

#include "support/Base64.h"
#include "support/H264Headers.h"
#include "support/ParserTestAccess.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace camclock {
namespace {

using testing::EncodeBase64;
using testing::FullHdSps;
using testing::PpsFields;
using Access = ParserTestAccess;
using Bytes = std::vector<unsigned char>;

std::string SpsText() {
    return EncodeBase64(FullHdSps().Bytes());
}

std::string PpsText() {
    return EncodeBase64(PpsFields().Bytes());
}

ParameterSetParser Parsed(std::string text) {
    ParameterSetParser parser;
    parser.SetSpropsString(text);
    return parser;
}

TEST(SpropText, TwoEntriesFillBothRecordsInEitherOrder) {
    for (const std::string& text : {SpsText() + "," + PpsText(), PpsText() + "," + SpsText()}) {
        ParameterSetParser parser = Parsed(text);
        EXPECT_TRUE(parser.GetSPS().valid) << text;
        EXPECT_TRUE(parser.GetPPS().valid) << text;
        unsigned int width = 0;
        unsigned int height = 0;
        parser.GetImageSize(width, height);
        EXPECT_EQ(width, 1920U);
        EXPECT_EQ(height, 1080U);
        EXPECT_EQ(Access::SpsText(parser), SpsText());
        EXPECT_EQ(Access::PpsText(parser), PpsText());
        EXPECT_EQ(Access::SpsBytes(parser), FullHdSps().Bytes());
        EXPECT_EQ(Access::PpsBytes(parser), PpsFields().Bytes());
    }
}

TEST(SpropText, SeparatorBehindEachEntryIsOverwritten) {
    std::string text = "AAAA,BBBB";
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, std::string("AAAA\0BBBB", 9));

    text = "AAAA,BBBB,CCCC,DDDD";
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, std::string("AAAA\0BBBB\0CCCC,DDDD", 19));

    text = "AAAA";
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, "AAAA");

    text = "AAAA,";
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, std::string("AAAA\0", 5));

    text = ",,AAAA,,,BBBB,,";
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, std::string(",,AAAA\0,,BBBB\0,", 15));

    text = std::string("AAAA\0,BBBB,CCCC", 15);
    ParameterSetParser().SetSpropsString(text);
    EXPECT_EQ(text, std::string("AAAA\0,BBBB,CCCC", 15));
}

TEST(SpropText, EmptyEntriesArePassedOver) {
    EXPECT_TRUE(Parsed(",," + SpsText() + ",,," + PpsText() + ",").GetPPS().valid);
    EXPECT_TRUE(Parsed(",," + SpsText() + ",,," + PpsText() + ",").GetSPS().valid);
}

TEST(SpropText, EntriesBehindTheSecondAreIgnored) {
    const ParameterSetParser parser = Parsed(SpsText() + "," + SpsText() + "," + PpsText());
    EXPECT_TRUE(parser.GetSPS().valid);
    EXPECT_FALSE(parser.GetPPS().valid);
}

TEST(SpropText, OfTwoEntriesOfOneKindTheSecondCounts) {
    auto second = FullHdSps();
    second.seq_parameter_set_id = 3;
    const ParameterSetParser parser = Parsed(SpsText() + "," + EncodeBase64(second.Bytes()));
    EXPECT_EQ(parser.GetSPS().seq_parameter_set_id, 3U);
    EXPECT_EQ(Access::SpsText(parser), EncodeBase64(second.Bytes()));
}

TEST(SpropText, FewerThanTwoEntriesParseWhatIsThere) {
    for (const std::string& text : {SpsText(), SpsText() + ",", "," + SpsText()}) {
        const ParameterSetParser parser = Parsed(text);
        EXPECT_TRUE(parser.GetSPS().valid) << text;
        EXPECT_FALSE(parser.GetPPS().valid) << text;
    }
    EXPECT_TRUE(Parsed(PpsText()).GetPPS().valid);
    for (const std::string& text :
         {std::string(), std::string(","), std::string(",,,"), std::string(1, '\0'), std::string("="),
          std::string("A"), std::string("=,="), std::string("Zw")}) {
        const ParameterSetParser parser = Parsed(text);
        EXPECT_FALSE(parser.GetSPS().valid);
        EXPECT_FALSE(parser.GetPPS().valid);
    }
}

TEST(SpropText, TextWithoutAParameterSetKeepsThePresentOnes) {
    ParameterSetParser parser = Parsed(SpsText() + "," + PpsText());
    std::string other = "AAAA,ZQ==";  // types 0 and 5
    parser.SetSpropsString(other);
    EXPECT_TRUE(parser.GetSPS().valid);
    EXPECT_TRUE(parser.GetPPS().valid);
    EXPECT_EQ(Access::SpsText(parser), SpsText());
    std::string cutShort = "Z2Q=";
    parser.SetSpropsString(cutShort);
    EXPECT_FALSE(parser.GetSPS().valid);
    EXPECT_EQ(parser.GetSPS().profile_idc, 0x64U);
    EXPECT_TRUE(parser.GetPPS().valid);
}

TEST(SpropText, ZeroByteEndsTheText) {
    const ParameterSetParser parser = Parsed(SpsText() + std::string(1, '\0') + "," + PpsText());
    EXPECT_TRUE(parser.GetSPS().valid);
    EXPECT_FALSE(parser.GetPPS().valid);
}

TEST(SpropText, DecodesTheStandardAlphabet) {
    EXPECT_EQ(Access::DecodeBase64("TWFu"), (Bytes{'M', 'a', 'n'}));
    EXPECT_EQ(Access::DecodeBase64("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"),
              (Bytes{0x00, 0x10, 0x83, 0x10, 0x51, 0x87, 0x20, 0x92, 0x8B, 0x30, 0xD3, 0x8F,
                     0x41, 0x14, 0x93, 0x51, 0x55, 0x97, 0x61, 0x96, 0x9B, 0x71, 0xD7, 0x9F,
                     0x82, 0x18, 0xA3, 0x92, 0x59, 0xA7, 0xA2, 0x9A, 0xAB, 0xB2, 0xDB, 0xAF,
                     0xC3, 0x1C, 0xB3, 0xD3, 0x5D, 0xB7, 0xE3, 0x9E, 0xBB, 0xF3, 0xDF, 0xBF}));
}

TEST(SpropText, PaddedEntryDecodesToItsExactLength) {
    EXPECT_EQ(Access::DecodeBase64("TQ=="), (Bytes{'M'}));
    EXPECT_EQ(Access::DecodeBase64("TWE="), (Bytes{'M', 'a'}));
    EXPECT_EQ(Access::DecodeBase64("TWFuTQ=="), (Bytes{'M', 'a', 'n', 'M'}));
    // Without its padding as well: the missing digits are 0.
    EXPECT_EQ(Access::DecodeBase64("TQ"), (Bytes{'M'}));
    EXPECT_EQ(Access::DecodeBase64("TWE"), (Bytes{'M', 'a'}));
    EXPECT_EQ(Access::DecodeBase64("TWFuT"), (Bytes{'M', 'a', 'n', 0x4C}));
}

TEST(SpropText, LosesAZeroByteAtTheEnd) {
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 2, 0})), (Bytes{1, 2}));
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 2, 3, 0})), (Bytes{1, 2, 3}));
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 0, 0})), (Bytes{1}));
    // Up to three, those of the padding among them.
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 2, 3, 0, 0, 0})), (Bytes{1, 2, 3}));
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 2, 0, 0, 0, 0})), (Bytes{1, 2, 0}));
    EXPECT_EQ(Access::DecodeBase64(EncodeBase64({1, 0, 0, 0, 0})), (Bytes{1, 0, 0}));
    EXPECT_EQ(Access::DecodeBase64("AAAA"), Bytes{});
    EXPECT_EQ(Access::DecodeBase64("A"), Bytes{});
    EXPECT_EQ(Access::DecodeBase64(""), Bytes{});
}

TEST(SpropText, OtherCharactersBetweenPlusAndZAreSkipped) {
    EXPECT_EQ(Access::DecodeBase64("T-W.F:u;<>?@[\\]^_`"), (Bytes{'M', 'a', 'n'}));
    EXPECT_EQ(Access::DecodeBase64("T,WFu"), (Bytes{'M', 'a', 'n'}));
    EXPECT_EQ(Access::DecodeBase64("T=W=F=u="), (Bytes{'M', 'a', 'n'}));
}

// Each counts as the digit 194: T, 194, W, F and u, 0, 0, 0.
TEST(SpropText, ForeignCharactersCorruptTheEntry) {
    for (const char foreign : {' ', '\n', '\r', '\t', '*', '{', '~', '!', '\x7F', '\x80', '\xFF', '\0'}) {
        EXPECT_EQ(Access::DecodeBase64(std::string("T") + foreign + "WFu"),
                  (Bytes{0x4C | 0x0C, 0x20 | 0x05, 0x80 | 0x05, 0xB8}))
            << static_cast<int>(foreign);
    }
    EXPECT_EQ(Access::DecodeBase64("    "), (Bytes{0x0C, 0x30, 0xC2}));
    EXPECT_EQ(Access::DecodeBase64("TWFu\n"), (Bytes{'M', 'a', 'n', 0x08}));

    std::string text = SpsText();
    text.insert(10, " ");
    const ParameterSetParser parser = Parsed(text + "," + PpsText());
    EXPECT_NE(Access::SpsBytes(parser), FullHdSps().Bytes());
    // In front of an entry it spoils the type, so that nothing is kept.
    EXPECT_FALSE(Parsed(" " + SpsText() + "," + PpsText()).GetSPS().valid);
}

TEST(SpropText, DecodesAtMost2046Bytes) {
    EXPECT_EQ(Access::DecodeBase64(std::string(2728, '/')).size(), 2046U);  // 682 groups
    EXPECT_EQ(Access::DecodeBase64(std::string(2729, '/')).size(), 2046U);
    EXPECT_EQ(Access::DecodeBase64(std::string(100'000, '/')).size(), 2046U);
    EXPECT_EQ(Access::DecodeBase64(std::string(2727, '/')).size(), 2046U);
    EXPECT_EQ(Access::DecodeBase64(std::string(2724, '/')).size(), 2043U);
    EXPECT_EQ(Access::DecodeBase64(std::string(2725, '/')).size(), 2044U);
    // Trimming applies here too.
    EXPECT_EQ(Access::DecodeBase64(std::string(2724, '/') + "AAAA////").size(), 2043U);

    const ParameterSetParser parser = Parsed("Z" + std::string(100'000, '/') + "," + PpsText());
    EXPECT_EQ(Access::SpsBytes(parser).size(), 2046U);
    EXPECT_TRUE(parser.GetPPS().valid);
}

TEST(SpropText, SmallBufferIsNeverOverrun) {
    EXPECT_EQ(Access::DecodeBase64("TWFuTWFu", 5), (Bytes{'M', 'a', 'n'}));
    EXPECT_EQ(Access::DecodeBase64("TWFuTWFu", 6), (Bytes{'M', 'a', 'n', 'M', 'a', 'n'}));
    EXPECT_EQ(Access::DecodeBase64("TWFuTQ", 5), (Bytes{'M', 'a', 'n'}));
    for (const int capacity : {0, 1, 2}) {
        EXPECT_EQ(Access::DecodeBase64("TWFu", capacity), Bytes{});
    }
}

}  // namespace
}  // namespace camclock
