#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

#include "sigweave/persistence/ArchiveBinary.h"
#include "sigweave/persistence/ArchiveValues.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/persistence/TCXML.h"

namespace {

using namespace std::string_literals;
using tc::ArchiveItem;
using tc::ArchiveTree;
using testing::HasSubstr;
using Items = std::vector<ArchiveItem>;
using Type = ArchiveItem::Type;

bool AreEqual(const Items& a, const Items& b) {
    return std::ranges::equal(a, b, [](const ArchiveItem& x, const ArchiveItem& y) {
        return x.number == y.number && x.type == y.type && x.label == y.label && x.bits == y.bits &&
               x.text == y.text && AreEqual(x.items, y.items);
    });
}

// Through a form and back; by way of the text that the XML form has in a file.
Items ThroughBinary(const ArchiveTree& archive) {
    ArchiveTree read;
    CString error;
    EXPECT_TRUE(tc::ReadBinaryArchive(tc::WriteBinaryArchive(archive), read, error)) << error;
    return read.Items();
}

Items ThroughXml(const ArchiveTree& archive) {
    TCXML written;
    EXPECT_TRUE(tc::WriteXmlArchive(archive, written)) << written.GetError();
    TCString text;
    EXPECT_TRUE(written.GetNodeXML(written.GetDocument(), text));
    TCXML document;
    ArchiveTree read;
    EXPECT_TRUE(document.LoadXML(text) && tc::ReadXmlArchive(document, read)) << document.GetError() << text;
    return read.Items();
}

class RandomTree {
 public:
    explicit RandomTree(unsigned seed) : random(seed) {}

    Items Make(int level) {
        Items items(random() % 5);
        for (int number = -1; ArchiveItem & item : items) {
            item.number = number += 1 + static_cast<int>(random() % 3);
            item.type = static_cast<Type>(1 + random() % 6);
            item.label = Text(8, false);
            Fill(item, level);
        }
        return items;
    }

 private:
    void Fill(ArchiveItem& item, int level) {
        constexpr const char* FRAGMENTS[] = {"",
                                             " ",
                                             "<a/>",
                                             "<a></a>",
                                             "x &amp; y",
                                             "<a> </a>",
                                             "<!-- c -->x",
                                             "<a b='1'>\n</a>",
                                             "<p:q xmlns:p=\"u\"/> "};
        switch (item.type) {
            case Type::Subsection:
                if (level < 4) item.items = Make(level + 1);
                break;
            case Type::Integer:
            case Type::Double:
                item.bits = static_cast<std::uint64_t>(random()) << 32 | random();
                break;
            case Type::StringUnquotedXML:
                item.text = FRAGMENTS[random() % std::size(FRAGMENTS)];
                break;
            default:
                item.text = Text(20, true);
        }
    }
    std::string Text(unsigned most, bool anyByte) {
        std::string text(random() % most, ' ');
        for (char& c : text)
            c = static_cast<char>(anyByte && random() % 2 == 0 ? random() : ' ' + random() % 95);
        return text;
    }

    std::mt19937 random;
};

// SIGWEAVE_RANDOM_TREES is how many trees instead.
TEST(Archive, EveryTreeComesBackInBothForms) {
    const char* const wanted = std::getenv("SIGWEAVE_RANDOM_TREES");
    const unsigned long count = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 20000;
    for (unsigned seed = 0; seed < count && !testing::Test::HasFailure(); ++seed) {
        ArchiveTree archive;
        archive.SetItems(RandomTree(seed).Make(0));
        EXPECT_TRUE(AreEqual(ThroughBinary(archive), archive.Items())) << seed;
        const Items xml = ThroughXml(archive);
        EXPECT_TRUE(AreEqual(xml, archive.Items())) << seed;
        ArchiveTree across;
        across.SetItems(xml);
        EXPECT_TRUE(AreEqual(ThroughBinary(across), archive.Items())) << seed;
    }
}

struct Settings {
    std::int64_t count = 3;
    double gain = std::bit_cast<double>(0x7ff8000000001234);
    TCString title = "volt\0age"s.c_str();
    TCString blob = TCString("\0\xff", 2);
    TCString note = "<b>bold</b> text";
    TCLogFont font;
    tc::Colour colour{255, 128, 1};
    tc::WindowPlacement window{{10, -20, 300, 400}, tc::WindowPlacement::MAXIMISED};

    // How many of the items were there.
    int Serialize(ArchiveParser& archive) {
        int done = archive.Integer(1, "count", count) + archive.Double(2, "gain", gain) +
                   archive.String(3, "title", title) + archive.Binary(4, "blob", blob);
        if (archive.BeginSubsection(5, "look")) {
            done += 1 + archive.StringUnquotedXML(1, "note", note) + tc::Serialize(archive, 2, "font", font) +
                    tc::Serialize(archive, 3, "colour", colour) + tc::Serialize(archive, 4, "window", window);
            archive.EndSubsection();
        }
        return done;
    }
};

TEST(Archive, OneDescriptionStoresAndLoads) {
    Settings stored;
    stored.font.SetFontHeight(14);
    std::strcpy(stored.font.lfFaceName, "Times");
    ArchiveTree archive;
    EXPECT_EQ(stored.Serialize(archive), 9);
    ArchiveTree read;
    read.SetItems(ThroughXml(archive));
    Settings loaded{
        .count = 0, .gain = 0, .title = "", .blob = "", .note = "", .font = {}, .colour = {}, .window = {}};
    EXPECT_EQ(loaded.Serialize(read), 9);
    EXPECT_EQ(loaded.count, 3);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(loaded.gain), 0x7ff8000000001234u);
    EXPECT_EQ(loaded.title, stored.title);
    EXPECT_EQ(loaded.blob, stored.blob);
    EXPECT_EQ(loaded.note, stored.note);
    EXPECT_TRUE(IsEqual(loaded.font, stored.font));
    EXPECT_EQ(loaded.colour, stored.colour);
    EXPECT_EQ(loaded.window.normal.top, -20);
    EXPECT_EQ(loaded.window.state, tc::WindowPlacement::MAXIMISED);
}

TEST(Archive, LoadsInAnyOrderAndKeepsWhatNobodyAsksFor) {
    ArchiveTree archive;
    for (std::int64_t i = 1; i <= 100; ++i) EXPECT_TRUE(archive.Integer(static_cast<int>(i), "i", i));
    archive.BeginLoading();
    std::int64_t value = 7;
    double number = 1.5;
    for (int i = 100; i >= 1; --i) {
        EXPECT_TRUE(archive.Integer(i, "", value));
        EXPECT_EQ(value, i);
    }
    EXPECT_FALSE(archive.Integer(101, "", value));  // not there
    EXPECT_FALSE(archive.Double(5, "", number));    // of another type
    EXPECT_FALSE(archive.BeginSubsection(5, ""));
    EXPECT_EQ(value, 1);
    EXPECT_EQ(number, 1.5);
    archive.BeginStoring();
    EXPECT_TRUE(archive.Integer(50, "new", value = -50));
    EXPECT_TRUE(archive.Double(51, "other type", number));
    ASSERT_EQ(archive.Items().size(), 100u);
    EXPECT_EQ(archive.Items()[49].label, "new");
    archive.BeginLoading();
    EXPECT_TRUE(archive.Integer(50, "", value) && value == -50);
    EXPECT_TRUE(archive.Integer(99, "", value) && value == 99);
}

TEST(Archive, RefusesWhatItCouldNotReadAgain) {
    ArchiveTree archive;
    for (const char* fragment : {"<a>", "</x><x>", "a & b", "<x/></x>", "<!DOCTYPE a>", "\1"}) {
        TCString xml = fragment;
        EXPECT_FALSE(archive.StringUnquotedXML(1, "xml", xml)) << fragment;
    }
    int levels = 0;
    while (levels < 1000 && archive.BeginSubsection(1, "deep")) ++levels;
    EXPECT_EQ(levels, tc::MOST_ARCHIVE_LEVELS);
    EXPECT_FALSE(ThroughBinary(archive).empty());
    EXPECT_FALSE(ThroughXml(archive).empty());
}

// Cut at every length, each byte changed.
TEST(Archive, ADamagedBinaryArchiveIsRefusedWithThePlace) {
    Settings settings;
    ArchiveTree archive;
    settings.Serialize(archive);
    const std::string whole = tc::WriteBinaryArchive(archive);
    const auto refuses = [](const std::string& bytes) {
        ArchiveTree read;
        std::int64_t kept = 42;
        read.Integer(1, "kept", kept);
        CString error;
        EXPECT_FALSE(tc::ReadBinaryArchive(bytes, read, error));
        EXPECT_EQ(read.Items().size(), 1u);
        return error;
    };
    for (std::size_t length = 1; length < whole.size(); ++length)
        EXPECT_THAT(refuses(whole.substr(0, length)), HasSubstr("byte " + std::to_string(length))) << length;
    for (std::size_t at = 0; at < whole.size(); ++at)
        for (const int mask : {1, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ mask);
            EXPECT_FALSE(refuses(changed).empty()) << at;
        }
    EXPECT_THAT(refuses(whole + "x"), HasSubstr("byte " + std::to_string(whole.size())));
    EXPECT_EQ(refuses(""), "this is no binary archive");
}

TEST(Archive, AnXmlArchiveIsRefusedWithTheLine) {
    const struct {
        const char* items;
        const char* error;
    } ROWS[] = {
        {"<integer number='1'>x</integer>", "line 2: the value of item 1 cannot be read"},
        {"<integer number='1'>9223372036854775808</integer>", "line 2: the value of item 1 cannot be read"},
        {"<double number='2'>1,5</double>", "line 2: the value of item 2 cannot be read"},
        {"<binary number='3'>abc</binary>", "line 2: the value of item 3 cannot be read"},
        {"<string number='4'>a<b/></string>", "line 2: the value of item 4 cannot be read"},
        {"<date number='5'/>", "line 2: 'date' is no item of an archive"},
        {"<string>no number</string>", "line 2: <string> has no number"},
        {"<integer number='1'>1</integer><double number='1'>1</double>", "line 2: item 1 is there twice"},
        {"<binary number='2'/><binary number='1'/><binary number='2'/>", "line 2: item 2 is there twice"},
        {"<binary number='2'/><binary number='1'/><binary number='1'/>", "line 2: item 1 is there twice"},
        {"text", "line 1: 'text' is no item of an archive"},
    };
    for (const auto& row : ROWS) {
        TCXML document;
        ArchiveTree archive;
        ASSERT_TRUE(document.LoadXML(("<archive version='1'>\n"s + row.items + "</archive>").c_str()));
        EXPECT_FALSE(tc::ReadXmlArchive(document, archive));
        EXPECT_THAT(std::string(document.GetError()), HasSubstr(row.error)) << row.items;
    }
    for (const char* text : {"<other/>", "<archive/>", "<archive version='2'/>"}) {
        TCXML document;
        ArchiveTree archive;
        ASSERT_TRUE(document.LoadXML(text));
        EXPECT_FALSE(tc::ReadXmlArchive(document, archive)) << text;
        EXPECT_TRUE(document.IsError());
    }
}

}  // namespace
