// The text reader and writer over real files and over input cut into pieces:
// line ends, byte-order marks as read and as written in the eight encodings,
// sequences cut across blocks, and random reads against a plain model.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "files/streamreader.h"
#include "files/streamwriter.h"
#include "text/stringim.h"
#include "testing/filetree.h"
#include "testing/memstream.h"

namespace keel {
namespace {

typedef std::vector<std::string> Lines;

class TextFileTest : public testkit::FileTreeTest {};

// A reader of `bytes` handed out in pieces drawn from `seed` (0: as asked).
StreamReaderC* readerOf(const std::string& bytes, bool detect, const char* encoding,
                        uint32_t seed = 0) {
    return new StreamReaderC(new testkit::PiecewiseInputC(bytes, seed), detect,
                             encoding ? findEncoding(encoding) : nullptr, true);
}

// The lines to the end, through the reader's own readLine or the one of the
// base class, built on read and pushBack; the reader is deleted.
Lines linesOf(TextReaderC* reader, bool base = false) {
    std::unique_ptr<TextReaderC> owned(reader);
    Lines lines;
    StringC line;
    while ((base ? reader->TextReaderC::readLine(line) : reader->readLine(line)) == 0)
        lines.push_back(str(line));
    return lines;
}

// Marks as read; how lines split, over input in pieces of any size, is
// the model test's below and textreader_fuzz's.
TEST(TextReaderTest, Marks) {
    const std::tuple<std::string, bool, const char*, Lines> cases[] = {
        {"", true, nullptr, {}},
        {"\xEF\xBB\xBF", true, nullptr, {}},
        {"\xEF\xBB\xBFx", true, nullptr, {"x"}},
        {std::string("\xFF\xFEh\0i\0\n\0", 8), true, "iso-8859-1", {"hi"}},
        {std::string("\xFE\xFF\0h\0i", 6), true, nullptr, {"hi"}},
        {"\xFF\xFEx", false, "iso-8859-1", {"\xC3\xBF\xC3\xBEx"}},
        {"\xFF\xFEx", false, nullptr, {"\xEF\xBF\xBD\xEF\xBF\xBDx"}},
        // The reader's own mark is skipped without detection.
        {"\xEF\xBB\xBFx", false, "utf8", {"x"}},
        {"\xEF\xBB\xBFx", false, nullptr, {"\xEF\xBB\xBFx"}},
        {"q", true, nullptr, {"q"}},
    };
    for (const auto& [bytes, detect, encoding, lines] : cases)
        EXPECT_EQ(lines, linesOf(readerOf(bytes, detect, encoding)));
    EXPECT_EQ(nullptr, std::unique_ptr<StreamReaderC>(readerOf("", false, nullptr))->readLine());
}

// Two cuts that random text seldom puts just there: a UTF-16 unit cut by
// the end of a block, and a CR LF cut by the end of a block of the line
// reader built on read and pushBack.
TEST(TextReaderTest, CutsAtTheEndOfABlock) {
    std::string utf16(2049, '\0');
    utf16[1023] = 'x';
    EXPECT_EQ(1u, linesOf(readerOf(utf16, false, "utf16be", 5)).size());
    EXPECT_EQ((Lines{std::string(127, 'a'), "b"}),
              linesOf(readerOf(std::string(127, 'a') + "\r\nb", false, "utf8"), true));
}

// Every encoding: what a writer puts out (CR LF and a lone CR as LF), a
// reader of the same encoding gives back, and the mark stands in front as the
// encoding has it. system-8 has no mark of its own: its reader gives the
// UTF-8 mark back as text.
TEST_F(TextFileTest, WriterAndReaderInEveryEncoding) {
    const std::string wide = "\xE2\x82\xAC uro\n\xF0\x9F\x98\x80", bom = "\xEF\xBB\xBF";
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        {"ascii", "", "plain\nlines", ""}, {"iso-8859-1", "", "caf\xC3\xA9\nx", ""},
        {"system-8", bom, wide, bom},      {"utf8", bom, wide, ""},
        {"utf16", "\xFF\xFE", wide, ""},   {"utf16le", "\xFF\xFE", wide, ""},
        {"utf16be", "\xFE\xFF", wide, ""}, {"wchar_t", "", wide, ""},
    };
    for (const auto& [name, mark, text, back] : cases) {
        SCOPED_TRACE(name);
        TextEncodingI* encoding = findEncoding(name);
        std::unique_ptr<StreamWriterC> writer(
            StreamWriterC::open(at(name), false, encoding, true, 1, false));
        ASSERT_NE(nullptr, writer);
        EXPECT_EQ(0u, writer->write(StringC()));
        EXPECT_EQ("", readFile(name));
        EXPECT_EQ((Codes{0, 0, 0}),
                  (Codes{writer->write(StringC(text.c_str(), "utf8")),
                         writer->write(StringC("\r\nend\r\r\n\n\r", "ascii")), writer->close()}));
        EXPECT_EQ(mark, readFile(name).substr(0, mark.size()));
        std::unique_ptr<StreamReaderC> reader(
            StreamReaderC::open(at(name), false, encoding, 1, false));
        EXPECT_EQ(back + text + "\nend\n\n\n\n", str(reader->readAll()));
    }
}

TEST_F(TextFileTest, MarksWhenAppending) {
    for (int round = 0; round < 2; ++round) {
        std::unique_ptr<StreamWriterC> writer(
            StreamWriterC::open(at("f"), true, nullptr, true, 0, false));
        EXPECT_EQ(0u, writer->write(StringC("a\n", "ascii")));
    }
    EXPECT_EQ("\xEF\xBB\xBF" + std::string("a\na\n"), readFile("f"));
    EXPECT_EQ((Lines{"a", "a"}), linesOf(StreamReaderC::open(at("f"), true, nullptr, 1, false)));
    EXPECT_EQ(nullptr, StreamReaderC::open(at("missing"), true, nullptr, 1, false));
    EXPECT_EQ((Codes{0xE0000002u, 0xE0CB0010u}), takeErrorCodes());
}

// Random reads of every kind against the characters (as code points;
// wchar_t is 32 bits here) and a position in them.
TEST(TextReaderTest, RandomReadsAgainstAModel) {
    std::mt19937 random(46);
    const char32_t* pieces[] = {U"a",      U"bc",     U"\n",         U"\r", U"\r\n",
                                U"\u00E9", U"\u20AC", U"\U0001F600", U"  "};
    auto encode = [](const std::u32string& s) {
        return str(
            StringC(reinterpret_cast<const wchar_t*>(s.data()), static_cast<int32_t>(s.size())));
    };
    for (int round = 0; round < 60; ++round) {
        // Every other round without the run-time chosen decoder kernels.
        StringImplC::setVectorPaths(round % 2 == 0);
        std::u32string model;
        for (size_t target = random() % 6000; model.size() < target;) model += pieces[random() % 9];
        std::unique_ptr<StreamReaderC> reader(readerOf(encode(model), false, "utf8", round + 1));
        size_t at = 0;
        // One handle for every line, as a reading loop has it, and copies of
        // some lines that must keep their text when the next line comes in.
        StringC line;
        std::vector<std::pair<StringC, std::string>> kept;
        for (int step = 0; step < 400; ++step) {
            switch (random() % 5) {
            case 0: {
                uint32_t count = random() % 300;
                std::unique_ptr<StringC> got(reader->read(count));
                if (at == model.size() || count == 0) {
                    ASSERT_TRUE(count == 0 && got ? got->length() == 0 : got == nullptr);
                    break;
                }
                // Fewer characters may come when the byte bound stopped reading.
                ASSERT_TRUE(got && got->length() > 0 &&
                            got->length() <= static_cast<int32_t>(count));
                ASSERT_EQ(encode(model.substr(at, got->length())), str(*got));
                at += got->length();
                break;
            }
            case 1: {
                int32_t expected = at < model.size() ? static_cast<int32_t>(model[at++]) : -1;
                ASSERT_EQ(expected, reader->readChar());
                break;
            }
            case 2:
            case 3: {
                uint32_t code =
                    random() % 2 ? reader->readLine(line) : reader->TextReaderC::readLine(line);
                ASSERT_EQ(at == model.size() ? kEndOfText : 0u, code);
                if (code != 0) break;
                size_t end = std::min(model.find_first_of(U"\r\n", at), model.size());
                ASSERT_EQ(encode(model.substr(at, end - at)), str(line));
                ASSERT_EQ(static_cast<int32_t>(end - at), line.length());
                if (end > at) {
                    ASSERT_EQ(model[end - 1], line.charAt(line.length() - 1));
                }
                if (random() % 3 == 0) kept.emplace_back(line, str(line));
                // Past the line's end; CR LF is one end.
                at = end + (end < model.size()) + (model.compare(end, 2, U"\r\n") == 0);
                break;
            }
            default:  // put back what is next anyway, or something new
                if (at > 0 && random() % 2) {
                    --at;
                    reader->pushBack(StringC(encode(model.substr(at, 1)).c_str(), "utf8"));
                } else {
                    model.insert(at, U"pb");
                    reader->pushBack(StringC("pb", "ascii"));
                }
            }
        }
        for (const auto& copy : kept) ASSERT_EQ(copy.second, str(copy.first));
    }
    StringImplC::setVectorPaths(true);
}

}  // namespace
}  // namespace keel
