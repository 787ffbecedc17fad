#include "text/utf8.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

uint32_t decodeAt(const uint8_t* bytes, size_t* moved) {
    const uint8_t* p = bytes;
    uint32_t value = utf8Next(p);
    *moved = static_cast<size_t>(p - bytes);
    return value;
}

TEST(Utf8Test, SequenceLengthByLeadingBits) {
    const struct {
        uint8_t first;
        uint32_t length;
    } cases[] = {{0x00, 1}, {0x41, 1}, {0x7F, 1}, {0x80, 1}, {0xBF, 1}, {0xC0, 2}, {0xDF, 2},
                 {0xE0, 3}, {0xEF, 3}, {0xF0, 4}, {0xF7, 4}, {0xF8, 5}, {0xFB, 5}, {0xFC, 6},
                 {0xFD, 6}, {0xFE, 1}, {0xFF, 1}};
    for (const auto& c : cases) EXPECT_EQ(c.length, utf8SequenceLength(&c.first)) << int(c.first);
}

TEST(Utf8Test, EncodedLengthAtEveryBoundary) {
    EXPECT_EQ(1u, utf8EncodedLength(0));
    EXPECT_EQ(1u, utf8EncodedLength(0x7F));
    EXPECT_EQ(2u, utf8EncodedLength(0x80));
    EXPECT_EQ(2u, utf8EncodedLength(0x7FF));
    EXPECT_EQ(3u, utf8EncodedLength(0x800));
    EXPECT_EQ(3u, utf8EncodedLength(0xFFFF));
    EXPECT_EQ(4u, utf8EncodedLength(0x10000));
    EXPECT_EQ(4u, utf8EncodedLength(0x1FFFFF));
    EXPECT_EQ(5u, utf8EncodedLength(0x200000));
    EXPECT_EQ(5u, utf8EncodedLength(0x3FFFFFF));
    EXPECT_EQ(6u, utf8EncodedLength(0x4000000));
    EXPECT_EQ(6u, utf8EncodedLength(0x7FFFFFFF));
    EXPECT_EQ(0u, utf8EncodedLength(0x80000000u));
    EXPECT_EQ(0u, utf8EncodedLength(0xFFFFFFFFu));
}

TEST(Utf8Test, PutAndNextRoundTripUpTo31Bits) {
    const uint32_t values[] = {0,       0x41,     0x7F,     0x80,      0xE9,      0x7FF,
                               0x800,   0x20AC,   0xD800,   0xFFFD,    0xFFFF,    0x10000,
                               0x1F600, 0x10FFFF, 0x110000, 0x1FFFFF,  0x200000,  0x3FFFFFF,
                               0x4000000, 0x40000000, 0x7FFFFFFF};
    for (uint32_t value : values) {
        uint8_t buffer[8] = {0};
        uint8_t* end = buffer;
        utf8Put(end, value);
        ASSERT_EQ(utf8EncodedLength(value), static_cast<uint32_t>(end - buffer)) << value;
        EXPECT_EQ(utf8EncodedLength(value), utf8SequenceLength(buffer)) << value;
        size_t moved = 0;
        EXPECT_EQ(value, decodeAt(buffer, &moved)) << value;
        EXPECT_EQ(static_cast<size_t>(end - buffer), moved) << value;
    }
}

TEST(Utf8Test, SixByteLeadCarriesBit30) {
    uint8_t buffer[8] = {0};
    uint8_t* end = buffer;
    utf8Put(end, 0x40000000);
    EXPECT_EQ(0xFD, buffer[0]);
    end = buffer;
    utf8Put(end, 0x3FFFFFFF);
    EXPECT_EQ(0xFC, buffer[0]);
}

TEST(Utf8Test, PutWritesNothingForValuesWithoutAForm) {
    uint8_t buffer[4] = {0xAA, 0xAA, 0xAA, 0xAA};
    uint8_t* end = buffer;
    utf8Put(end, 0x80000000u);
    EXPECT_EQ(buffer, end);
    EXPECT_EQ(0xAA, buffer[0]);
    // Zero is one NUL byte.
    utf8Put(end, 0);
    EXPECT_EQ(buffer + 1, end);
    EXPECT_EQ(0, buffer[0]);
}

TEST(Utf8Test, SequenceCutByTheTerminatorStopsInFrontOfIt) {
    const uint8_t bytes[] = {0xE4, 0xB8, 0x00};
    size_t moved = 0;
    EXPECT_EQ(0xFFFDu, decodeAt(bytes, &moved));
    EXPECT_EQ(2u, moved);
}

TEST(Utf8Test, BrokenSequenceMovesOneByteWhenNoContinuationFollows) {
    const uint8_t bytes[] = {0xF0, 0x41, 0x00};
    const uint8_t* p = bytes;
    EXPECT_EQ(0xFFFDu, utf8Next(p));
    EXPECT_EQ(bytes + 1, p);
    EXPECT_EQ(0x41u, utf8Next(p));
}

TEST(Utf8Test, BrokenSequenceSkipsItsContinuationsAtMostItsLength) {
    // A four-byte lead with two continuations and then an ASCII byte: one
    // replacement for the first three bytes.
    const uint8_t bytes[] = {0xF0, 0x9F, 0x98, 0x41, 0x00};
    const uint8_t* p = bytes;
    EXPECT_EQ(0xFFFDu, utf8Next(p));
    EXPECT_EQ(bytes + 3, p);
    EXPECT_EQ(0x41u, utf8Next(p));
}

TEST(Utf8Test, StrayAndInvalidBytesAreOneReplacementEach) {
    const uint8_t bytes[] = {0x80, 0xFF, 0xFE, 0xBF, 0x00};
    const uint8_t* p = bytes;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(0xFFFDu, utf8Next(p));
        EXPECT_EQ(bytes + i + 1, p);
    }
}

TEST(Utf8Test, OverlongFormsAndSurrogatesPassUnchecked) {
    size_t moved = 0;
    const uint8_t overlongZero[] = {0xC0, 0x80, 0x00};
    EXPECT_EQ(0u, decodeAt(overlongZero, &moved));
    EXPECT_EQ(2u, moved);
    const uint8_t overlongThree[] = {0xE0, 0x80, 0x80, 0x00};
    EXPECT_EQ(0u, decodeAt(overlongThree, &moved));
    EXPECT_EQ(3u, moved);
    const uint8_t surrogate[] = {0xED, 0xA0, 0x80, 0x00};
    EXPECT_EQ(0xD800u, decodeAt(surrogate, &moved));
}

}  // namespace
}  // namespace keel
