#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlNodeText.h"
#include "sigweave/services/StringResources.h"
#include "tests/support/OwnFolder.h"

namespace {

using namespace std::string_literals;

constexpr const char* PATH = "document.xml";

void WriteFile(const std::string& content) {
    std::ofstream(PATH, std::ios::binary) << content;
}

std::string ReadFile() {
    std::ostringstream content;
    content << std::ifstream(PATH, std::ios::binary).rdbuf();
    return content.str();
}

std::string XmlOf(TCXML& xml, const TCXMLNode& node) {
    TCString text;
    EXPECT_TRUE(xml.GetNodeXML(node, text)) << xml.GetError();
    return std::string(text);
}

std::string TextAt(TCXML& xml, const char* path) {
    TCString text("none");
    EXPECT_TRUE(xml.GetNodeText(xml.SelectSingleNode(path), text)) << path;
    return {text, static_cast<std::size_t>(text.GetLength())};
}

int CountNodes(TCXML& xml, const std::string& xpath) {
    return xml.SelectNodes(xpath.c_str()).GetCount();
}

// As if the disk were full after that many bytes of a file.
class FileSizeLimit {
 public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &old);
        const rlimit lower = {bytes, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, oldHandler);
    }

 private:
    rlimit old;
    void (*oldHandler)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

class XmlDocument : public testing::Test {
 protected:
    void Parse(const char* text) { ASSERT_TRUE(xml.LoadXML(text)) << xml.GetError(); }
    void TearDown() override { TCSetLoadStrResLanguage(0); }

    TCXML xml;
};

// --- Messages

struct Failure {
    const char* name;
    std::function<void(TCXML&)> cause;  // in a document with <r>text</r>
    const char* english;
    const char* german;
};

const Failure FAILURES[] = {
    {"save elsewhere", [](TCXML& x) { x.Save("\\no\\such\\x.xml"); },
     "Cannot open file \\no\\such\\x.xml for writing: No such file or directory",
     "Die Datei '\\no\\such\\x.xml' kann nicht zum Schreiben geöffnet werden: No such file or directory"},
    {"parse", [](TCXML& x) { x.LoadXML("<a>\n  <b x=1/>\n</a>"); },
     "The XML source could not be parsed: 39, 'AttValue: \" or ' expected' at line 2/8 (file position 11, "
     "source "
     "'  <b x=1/>')",
     "Die XML-Quelle konnte nicht interpretiert werden: 39, 'AttValue: \" or ' expected' bei Zeile 2/8 "
     "(Datei "
     "Position 11, Quelle '  <b x=1/>')"},
    {"load nothing", [](TCXML& x) { x.Load(nullptr); },
     "The XML source could not be loaded: 'No such file or directory'",
     "Der XML-Quelle konnte nicht geladen werden: 'No such file or directory'"},
    {"select", [](TCXML& x) { x.SelectSingleNode("r["); }, "Cannot select single node 'r['",
     "Selektieren des Einzeleintrags 'r[' fehlgeschlagen"},
    {"select what is required", [](TCXML& x) { x.SelectSingleNode("b", {}, true); },
     "Cannot select single node 'b'", "Selektieren des Einzeleintrags 'b' fehlgeschlagen"},
    {"select a number", [](TCXML& x) { x.SelectNodes("count(r)"); }, "Cannot select nodes 'count(r)'",
     "Selektieren der Mehrfacheinträge 'count(r)' fehlgeschlagen"},
    {"select nothing", [](TCXML& x) { x.SelectNodes(nullptr); }, "Cannot select nodes ''",
     "Selektieren der Mehrfacheinträge '' fehlgeschlagen"},
    {"open literal", [](TCXML& x) { x.SelectNodes("r[.=\"a\\\"]"); }, "Cannot select nodes 'r[.=\"a\\\"]'",
     "Selektieren der Mehrfacheinträge 'r[.=\"a\\\"]' fehlgeschlagen"},
    {"next of none",
     [](TCXML& x) {
         TCXMLNodeList none;
         x.NextNode(none);
     },
     "Cannot select next node: 'There is no list of nodes'",
     "Selektieren des nächsten Eintrags fehlgeschlagen: 'There is no list of nodes'"},
    {"type",
     [](TCXML& x) {
         TCString s;
         x.GetNodeType({}, s);
     },
     "Cannot read node type", "Typ den Eintrags kann nicht gelesen werden"},
    {"name",
     [](TCXML& x) {
         TCString s;
         x.GetNodeName({}, s);
     },
     "Cannot read node name", "Name den Eintrags kann nicht gelesen werden"},
    {"value",
     [](TCXML& x) {
         TCString s;
         x.GetNodeValue({}, s);
     },
     "Cannot read node value", "Wert den Eintrags kann nicht gelesen werden"},
    {"text",
     [](TCXML& x) {
         TCString s;
         x.GetNodeText({}, s);
     },
     "Cannot read node text", "Text den Eintrags kann nicht gelesen werden"},
    {"xml",
     [](TCXML& x) {
         TCString s;
         x.GetNodeXML({}, s);
     },
     "Cannot read node XML", "XML den Eintrags kann nicht gelesen werden"},
    {"bad name", [](TCXML& x) { x.CreateElement("a b", x.SelectSingleNode("r")); },
     "Cannot create element 'a b'", "Erzeugen des Elements 'a b' fehlgeschlagen"},
    {"no name", [](TCXML& x) { x.CreateElement(nullptr, x.SelectSingleNode("r")); },
     "Cannot create element ''", "Erzeugen des Elements '' fehlgeschlagen"},
    {"unknown prefix", [](TCXML& x) { x.CreateElement("p:a", x.SelectSingleNode("r")); },
     "Cannot create element 'p:a'", "Erzeugen des Elements 'p:a' fehlgeschlagen"},
    {"second root", [](TCXML& x) { x.CreateElement("s", x.GetDocument()); },
     "Cannot append created node 's' as child", "Anfügen des Eintrags 's' als Child fehlgeschlagen"},
    {"child of a text", [](TCXML& x) { x.CreateElement("s", x.SelectSingleNode("r/text()")); },
     "Cannot append created node 's' as child", "Anfügen des Eintrags 's' als Child fehlgeschlagen"},
    {"null text", [](TCXML& x) { x.SetNodeText(x.SelectSingleNode("r"), nullptr); }, "Cannot set node text",
     "Text den Eintrags kann nicht gesetzt werden"},
    {"save nothing",
     [](TCXML& x) {
         x.Create();
         x.Save(PATH);
     },
     "The XML document could not be saved", "Das XML Dokument konnte nicht gespeichert werden"},
    {"attribute", [](TCXML& x) { x.SetAttribute(x.SelectSingleNode("r"), "1", "v"); },
     "Cannot set attribute '1' with value 'v'", "Setzen des Attributs '1' mit dem Wert 'v' fehlgeschlagen"},
};

TEST_F(XmlDocument, TellsWhatFailedInBothLanguages) {
    for (const Failure& failure : FAILURES) {
        for (const int language : {0, 1}) {
            Parse("<r>text</r>");
            EXPECT_FALSE(xml.IsError());
            TCSetLoadStrResLanguage(language);
            failure.cause(xml);
            EXPECT_STREQ(xml.GetError(), language == 0 ? failure.english : failure.german) << failure.name;
        }
    }
}

TEST_F(XmlDocument, RefusesWithoutADocument) {
    EXPECT_FALSE(xml.GetDocument());
    EXPECT_FALSE(xml.SelectNodes("a"));
    EXPECT_TRUE(xml.IsError());
    xml.SetUserError("mine");
    EXPECT_STREQ(xml.GetError(), "mine");
    xml.SetUserError(nullptr);
    EXPECT_FALSE(xml.IsError());
    WriteFile("kept");
    EXPECT_FALSE(xml.Save(PATH));
    EXPECT_EQ(ReadFile(), "kept");
}

// --- Loading

TEST_F(XmlDocument, LoadsTheEncodingsOfFiles) {
    const auto utf16 = [](std::u16string_view text, bool bigEndian) {
        std::string bytes;
        for (const char16_t unit : text)
            for (const int shift : {bigEndian ? 8 : 0, bigEndian ? 0 : 8})
                bytes += static_cast<char>(unit >> shift);
        return bytes;
    };
    constexpr std::u16string_view MARKED =
        u"\xFEFF<?xml version='1.0' encoding='UTF-16'?><a>h\u00E4\u20AC</a>";
    for (const std::string& content :
         {utf16(MARKED, false), utf16(MARKED, true), "\xEF\xBB\xBF<a>hä€</a>"s, "<a>hä€</a>"s,
          "<?xml version='1.0' encoding='windows-1252'?><a>h\xE4\x80</a>"s}) {
        WriteFile(content);
        ASSERT_TRUE(xml.Load(PATH)) << xml.GetError();
        EXPECT_EQ(TextAt(xml, "a"), "hä€");
    }
}

TEST_F(XmlDocument, LoadsTextsAsTheyDeclareThemselves) {
    for (const char* text : {"<a>hä</a>", "\xEF\xBB\xBF<a>hä</a>", "<?xml version='1.0'?><a>hä</a>",
                             "<?xml version='1.0' encoding='ISO-8859-1'?><a>h\xE4</a>"}) {
        Parse(text);
        EXPECT_EQ(TextAt(xml, "a"), "hä");
    }
}

TEST_F(XmlDocument, KnowsTheLinesOfNodesAndMistakes) {
    Parse("<r>\n<a\n b='1'>t</a>\n<c/></r>");
    EXPECT_EQ(TCXML::GetNodeLine(xml.SelectSingleNode("r")), 1);
    EXPECT_EQ(TCXML::GetNodeLine(xml.SelectSingleNode("r/a")), 3);
    EXPECT_EQ(TCXML::GetNodeLine(xml.SelectSingleNode("r/a/@b")), 3);
    EXPECT_EQ(TCXML::GetNodeLine(xml.SelectSingleNode("r/c")), 4);
    EXPECT_EQ(TCXML::GetNodeLine(xml.CreateElement("d", xml.SelectSingleNode("r"))), 0);
    EXPECT_EQ(TCXML::GetNodeLine({}), 0);
    EXPECT_EQ(xml.GetErrorLine(), 0);
    EXPECT_FALSE(xml.LoadXML("<r>\n<a>\n</r>"));
    EXPECT_EQ(xml.GetErrorLine(), 3);
}

TEST_F(XmlDocument, RefusesDamagedAndHostileDocuments) {
    const std::string bomb = "<!DOCTYPE l [<!ENTITY a \"" + std::string(50'000, 'x') + "\">]><l>";
    std::string references, attributes;
    for (int i = 0; i < 20'000; ++i) references += "&a;";
    for (int i = 0; i < 50'000; ++i) attributes += " a" + std::to_string(i) + "=''";
    std::string deep, deepest;
    for (int i = 0; i < 100'000; ++i) deep += "<a>";
    WriteFile("<secret/>");
    const struct {
        std::string text, reason;
    } rows[] = {
        {"", "There is no element"},
        {" \n", "There is no element"},
        {"<a>\n", "ends inside the element 'a'"},
        {"<a><b>text", "ends inside the element 'b'"},
        {"<a/><b/>", "Extra content"},
        {"<a b='1' b='2'/>", "redefined"},
        {"<p:a/>", "prefix p"},
        {"<a>\x01</a>", "invalid Char"},
        {"<a>\n<b>\xFF</b></a>", "UTF-8"},
        {"<?xml version='1.0' encoding='none'?><a/>", "encoding none"},
        {"<?xml version='1.0' encoding='ASCII'?><a>\xE4</a>", ""},
        {"<a>&nope;</a>", "'nope'"},
        {deep, "1024 levels"},
        {bomb + references + "</l>", "Entities of the document"},
        {"<!DOCTYPE l [<!ENTITY s SYSTEM \"document.xml\">]><l>&s;</l>", "Entities of the document"},
        {"<!DOCTYPE l [<!ENTITY s \"s\">]><l a='&s;'/>", "Entities of the document"},
        {"<!DOCTYPE l [<!ENTITY s \"s\"><!ATTLIST l a CDATA '&s;'>]><l/>", "Entities of the document"},
        {"<!DOCTYPE l [<!ENTITY % s SYSTEM \"document.xml\">%s;]><l/>", "Entities of the document"},
        {"<!DOCTYPE l [<!ATTLIST a xmlns:p CDATA 'u'>]><l/>", "no default values"},
        {"<!DOCTYPE l [<!ATTLIST l a (" + attributes + ")>]><l/>", "longer than 64 KB"},
        {"<l" + attributes + "/>", "more than 10000 attributes"},
        {"<l" + attributes.substr(0, attributes.find(" a10001=")) + "/>", "more than 10000 attributes"},
        {"<l a='<'/>", "Unescaped"},
        {"<!DOCTYPE l SYSTEM \"document.xml\"><l>&s;</l>", "'s'"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(xml.LoadXML(row.text.c_str())) << row.reason;
        EXPECT_NE(std::string(xml.GetError()).find(row.reason), std::string::npos) << xml.GetError();
        EXPECT_FALSE(xml.GetDocument());
    }
    const std::string whole = "<?xml version=\"1.0\"?><!--c--><a b='1'>t<c/><![CDATA[x]]></a>";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        WriteFile(whole.substr(0, size));
        EXPECT_FALSE(xml.Load(PATH) || !xml.IsError()) << size;
    }
}

TEST_F(XmlDocument, LoadsLargeTextsWhole) {
    const std::string half(11'000'000, 'x');
    WriteFile("<a><b>" + half + "&amp;" + half + "</b><![CDATA[" + half + "]]></a>");
    ASSERT_TRUE(xml.Load(PATH)) << xml.GetError();
    EXPECT_EQ(TextAt(xml, "a/b"), half + "&" + half);
    EXPECT_EQ(TextAt(xml, "a/text()"), half);
}

// --- Saving

constexpr const char* SAVED =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<!DOCTYPE r [\n<!ELEMENT r ANY>\n<!ATTLIST r v CDATA \"d\">\n<!ENTITY e \"x\">\n<!-- s -->]>\n"
    "<!-- head -->\n"
    "<r xmlns:p=\"u\">\n"
    "\t<p:a k=\"1&#9;&quot;'&lt;\">\n\t\t<b>t&lt;&gt;&amp;&#13;\n</b>\n\t\t<!-- in -->\n\t</p:a>\n"
    "\t<?pi data?>\n"
    "\t<c><![CDATA[x < y]]></c>\n"
    "\t<m>mixed <i/> text</m>\n"
    "\t<w> </w>\n"
    "\t<s xml:space=\"preserve\"> <x/></s>\n"
    "\t<e/>\n"
    "</r>\n"
    "<!-- tail -->\n";

TEST_F(XmlDocument, SavesTheSameLayoutAgain) {
    WriteFile(SAVED);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(xml.Load(PATH) && xml.Save(PATH)) << xml.GetError();
        EXPECT_EQ(ReadFile(), SAVED);
    }
}

TEST_F(XmlDocument, KeepsWhiteSpaceAsItIsTold) {
    const std::string text = "<a>\n<b> </b> <c xml:space=\"preserve\"> <d/></c><e><![CDATA[ ]]></e></a>";
    const auto loaded = [&] {
        Parse(text.c_str());
        return XmlOf(xml, xml.GetDocument());
    };
    const std::string kept = "<c xml:space=\"preserve\"> <d/></c><e><![CDATA[ ]]></e></a>";
    EXPECT_EQ(loaded(), "<a><b> </b>" + kept) << "at first";
    EXPECT_TRUE(xml.PreserveWhiteSpace(true));
    EXPECT_EQ(loaded(), text);
    EXPECT_TRUE(xml.PreserveWhiteSpace(false));
    EXPECT_EQ(loaded(), "<a><b/>" + kept);
    WriteFile(text);
    EXPECT_TRUE(xml.Load(PATH));
    EXPECT_EQ(XmlOf(xml, xml.GetDocument()), "<a><b/>" + kept);
}

TEST_F(XmlDocument, ReplacesTheFileAsAWhole) {
    namespace fs = std::filesystem;
    const std::unique_ptr<tc::OwnedFolder> own = MakeOwnFolder();
    const fs::path& folder = own->Path();
    const fs::path file = folder / "file.xml", link = folder / "link.xml", other = folder / "other.xml";
    fs::create_symlink("file.xml", link);
    constexpr auto MODE = fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read;
    Parse("<r/>");
    EXPECT_TRUE(xml.Save(link.c_str())) << xml.GetError();
    fs::permissions(file, MODE);
    Parse("<new/>");
    EXPECT_TRUE(xml.Save(link.c_str())) << xml.GetError();
    EXPECT_TRUE(fs::is_symlink(link) && fs::status(file).permissions() == MODE);
    fs::create_hard_link(file, other);
    Parse("<newer/>");
    EXPECT_TRUE(xml.Save(file.c_str()) && xml.Load(other.c_str())) << xml.GetError();
    EXPECT_TRUE(xml.SelectSingleNode("newer")) << "further names keep naming the file";
    fs::remove(other);

    Parse(("<r>" + std::string(1'000'000, 'x') + "</r>").c_str());
    FileSizeLimit limit(500'000);
    EXPECT_FALSE(xml.Save(file.c_str()));
    EXPECT_STREQ(xml.GetError(), "The XML document could not be saved");
    EXPECT_TRUE(xml.Load(file.c_str()) && xml.SelectSingleNode("newer")) << "the old document stays";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);
    EXPECT_FALSE(xml.Save(folder.c_str()));
    EXPECT_FALSE(xml.Save(""));
    EXPECT_STREQ(xml.GetError(), "Cannot open file  for writing: No such file or directory");
}

TEST_F(XmlDocument, KeepsAllBytesOfTextsAndAttributes) {
    std::string bytes;
    for (int i = 1; i < 256; ++i) bytes += static_cast<char>(i);
    for (const std::string& text : {bytes, ""s, " "s, " a\t\r\n "s, "]]>"s, "ä€\xF0\x9F\x98\x80"s,
                                    "\xC3\xE4\x80"s, "\xED\xA0\x80\xEF\xBF\xBF"s, "\xF4\x8F\xB8\x81"s}) {
        ASSERT_TRUE(xml.Create());
        const TCXMLNode root = xml.CreateElement("r", xml.GetDocument());
        const TCXMLNode child = xml.CreateElement("c", root);
        EXPECT_TRUE(xml.SetNodeText(child, text.c_str()) && xml.SetAttribute(child, "a", "first") &&
                    xml.SetAttribute(child, "a", text.c_str()));
        ASSERT_TRUE(xml.Save(PATH) && xml.Load(PATH)) << xml.GetError();
        EXPECT_EQ(TextAt(xml, "r/c"), text);
        EXPECT_EQ(TextAt(xml, "r/c/@a"), text);
    }
    const TCString all(("\0" + bytes).c_str(), 256);
    TCString quoted = TCXML::QuoteNodeTextString(all);
    EXPECT_EQ(quoted.Find('\0'), -1);
    EXPECT_TRUE(TCXML::UnquoteNodeTextString(quoted));
    EXPECT_EQ(quoted.CompareBin(all), 0);
}

// --- Nodes

TEST_F(XmlDocument, ReadsEveryKindOfNode) {
    Parse("<!DOCTYPE d><p:r xmlns:p='u' p:a='v'>t<![CDATA[c]]><!--m--><?i d?><e>e</e></p:r>");
    const struct {
        const char *path, *type, *name, *value, *text, *xml;
    } rows[] = {
        {"@p:a", "attribute", "p:a", "v", "v", "p:a=\"v\""},
        {"text()", "text", "#text", "t", "t", "t"},
        {"text()[2]", "cdatasection", "#cdata-section", "c", "c", "<![CDATA[c]]>"},
        {"comment()", "comment", "#comment", "m", "m", "<!--m-->"},
        {"processing-instruction()", "processinginstruction", "i", "d", "d", "<?i d?>"},
        {"e", "element", "e", "", "e", "<e>e</e>"},
        {"/", "document", "#document", "", "tce",
         "<!DOCTYPE d><p:r xmlns:p=\"u\" p:a=\"v\">t<![CDATA[c]]><!--m--><?i d?><e>e</e></p:r>"},
    };
    const TCXMLNode root = xml.SelectSingleNode("*");
    for (const auto& row : rows) {
        const TCXMLNode found = xml.SelectSingleNode(row.path, root);
        TCString type, name, value, text;
        EXPECT_TRUE(xml.GetNodeType(found, type) && xml.GetNodeName(found, name) &&
                    xml.GetNodeValue(found, value) && xml.GetNodeText(found, text));
        EXPECT_STREQ(type, row.type);
        EXPECT_STREQ(name, row.name);
        EXPECT_STREQ(value, row.value);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(XmlOf(xml, found), row.xml);
    }
}

TEST_F(XmlDocument, KeepsHeldNodes) {
    Parse("<r><a>old<b/></a></r>");
    const TCXMLNode a = xml.SelectSingleNode("r/a"), b = xml.SelectSingleNode("r/a/b");
    EXPECT_TRUE(xml.SetNodeText(a, "new"));
    EXPECT_EQ(XmlOf(xml, a), "<a>new</a>");
    EXPECT_EQ(XmlOf(xml, b), "<b/>");
    EXPECT_TRUE(xml.CreateElement("c", b));
    EXPECT_TRUE(xml.SetNodeText(a, "newer"));
    EXPECT_TRUE(xml.SetNodeText(a, ""));
    EXPECT_EQ(XmlOf(xml, xml.GetDocument()), "<r><a/></r>");
    xml.Release();
    EXPECT_FALSE(xml.GetDocument());
    EXPECT_EQ(XmlOf(xml, b), "<b><c/></b>");
    EXPECT_EQ(XmlOf(xml, a), "<a/>");
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool HOLDS_FREED_MEMORY = true;
#else
constexpr bool HOLDS_FREED_MEMORY = false;
#endif

TEST_F(XmlDocument, DoesNotGrowWhileItsTextsComeAndGo) {
    if (HOLDS_FREED_MEMORY) GTEST_SKIP() << "the sanitizer keeps what is released";
    Parse("<r><held/><a>x<b/></a></r>");
    const TCXMLNode a = xml.SelectSingleNode("r/a");
    TCXMLNode held = xml.SelectSingleNode("r/a/b");
    const auto resident = [] {
        long pages = 0, used = 0;
        std::ifstream("/proc/self/statm") >> pages >> used;
        return used * 4096;
    };
    const long before = resident();
    for (int i = 0; i < 200'000; ++i) {
        ASSERT_TRUE(xml.SetNodeText(a, "") &&
                    xml.SetNodeText(a, "a text of some length, which needs memory"));
        if (i % 50 == 0) held = xml.CreateElement("c", a);
        EXPECT_TRUE(held);
    }
    EXPECT_LT(resident() - before, 4'000'000);
    EXPECT_EQ(XmlOf(xml, held), "<c/>") << "what somebody holds stays";
}

TEST_F(XmlDocument, WritesNamesThatCanBeReadAgain) {
    Parse("<r xmlns='d'/>");
    const TCXMLNode root = xml.SelectSingleNode("*");
    EXPECT_TRUE(xml.SetAttribute(root, "xmlns:p", "u"));
    EXPECT_FALSE(xml.SetAttribute(root, "xmlns:p", "v"));
    EXPECT_FALSE(xml.SetAttribute(root, "xmlns", "v"));
    EXPECT_FALSE(xml.SetAttribute(root, "xmlns:xml", "v"));
    EXPECT_FALSE(xml.SetAttribute(root, "xmlns:xmlns", "v"));
    EXPECT_FALSE(xml.SetAttribute(root, "xmlns:q", "http://www.w3.org/2000/xmlns/"));
    EXPECT_FALSE(xml.SetAttribute(root, "q:a", "v"));
    EXPECT_TRUE(xml.SetAttribute(xml.CreateElement("p:c", root), "xml:space", "preserve"));
    EXPECT_FALSE(xml.SetAttribute(xml.CreateElement("c", root), "xmlns:p", "v")) << "it means u there";
    EXPECT_TRUE(xml.SetAttribute(root, "xmlns:q", "?a&b&#38;"));
    const std::string text = XmlOf(xml, root);
    EXPECT_EQ(text,
              "<r xmlns=\"d\" xmlns:p=\"u\" xmlns:q=\"?a&amp;b&amp;#38;\">"
              "<p:c xml:space=\"preserve\"/><c/></r>");
    Parse(text.c_str());
    EXPECT_EQ(XmlOf(xml, xml.SelectSingleNode("*")), text);
    EXPECT_FALSE(xml.CreateComment("a\rb", root) || xml.CreateComment("--", root));
}

TEST_F(XmlDocument, SetsTextsThatCanBeReadAgain) {
    Parse("<r a='v'>t<!--m--><?i d?><![CDATA[c]]></r>");
    const struct {
        const char* path;
        std::vector<const char*> refused;
        const char* text;
    } rows[] = {
        {"r/processing-instruction()", {"a?>b", " a", "\na", "a\rb"}, "a ?b> "},
        {"r/comment()", {"a--b", "a-", "a\rb"}, "-a-b>"},
        {"r/@a", {}, "<&\"'\t\n\r "},
        {"r/text()[1]", {}, " ]]>&<\r"},
        {"r/text()[2]", {}, "a]]]>&<"},
    };
    for (const auto& row : rows) {
        for (const char* text : row.refused) {
            EXPECT_FALSE(xml.SetNodeText(xml.SelectSingleNode(row.path), text)) << row.path << text;
        }
        EXPECT_TRUE(xml.SetNodeText(xml.SelectSingleNode(row.path), row.text)) << row.path;
    }
    EXPECT_FALSE(xml.SetNodeText(xml.GetDocument(), "t"));
    TCXML section;
    EXPECT_TRUE(section.LoadXML("<a><![CDATA[x]]></a>") &&
                section.SetNodeText(section.SelectSingleNode("a"), "<"));
    EXPECT_EQ(XmlOf(section, section.GetDocument()), "<a>&lt;</a>");
    xml.PreserveWhiteSpace(true);
    Parse(XmlOf(xml, xml.GetDocument()).c_str());
    for (const auto& row : rows) EXPECT_EQ(TextAt(xml, row.path), row.text);
}

TEST_F(XmlDocument, SavesOnlyWhatCanBeLoaded) {
    xml.Create();
    TCXMLNode node = xml.GetDocument();
    for (int level = 1; level <= 1024; ++level) node = xml.CreateElement("a", node);
    EXPECT_TRUE(xml.Save(PATH) && xml.Load(PATH)) << xml.GetError();
    EXPECT_EQ(XmlOf(xml, xml.GetDocument()).size(), 1023 * 7 + 4);
    node = xml.CreateElement("b", xml.SelectSingleNode("//a[not(a)]"));
    WriteFile("kept");
    EXPECT_FALSE(xml.Save(PATH));
    EXPECT_EQ(ReadFile(), "kept");
}

// --- Searching

TEST_F(XmlDocument, FollowsPathsOfNamesAsTheEngineDoes) {
    Parse("<r a='1' xmlns:p='u'><b><c d='1'/><p:c/><c>2</c></b><b><c/></b><p:b><c/></p:b>t</r>");
    for (const char* path : {"r", "r/b", "r/b/c", "r/b/c/@d", "r/@a", "r/@a/c", "r/x", "b", "@a"}) {
        TCXMLNodeList direct = xml.SelectNodes(path), engine = xml.SelectNodes(("./"s + path).c_str());
        EXPECT_EQ(xml.SelectSingleNode(path), xml.SelectSingleNode(("./"s + path).c_str())) << path;
        ASSERT_EQ(direct.GetCount(), engine.GetCount()) << path;
        while (const TCXMLNode node = xml.NextNode(direct)) EXPECT_EQ(node, xml.NextNode(engine)) << path;
    }
    EXPECT_EQ(CountNodes(xml, "r/b/c"), 3);
    EXPECT_EQ(CountNodes(xml, "r/p:b/c"), 0) << "prefixes of the document are not known outside its root";
    EXPECT_EQ(xml.SelectNodes("p:b/c", xml.SelectSingleNode("r")).GetCount(), 1);
    EXPECT_FALSE(xml.SelectNodes("r/namespace::*"));
    EXPECT_FALSE(xml.SelectSingleNode("r|r/namespace::*")) << "after another node, too";
}

TEST_F(XmlDocument, PreparesSearchTexts) {
    const struct {
        const char* text;
        bool quote, bound;
        const char* literal;
    } rows[] = {
        {"a\"b", false, false, R"("a\"b")"}, {" a'\\ ", false, true, R"("a\'\\")"},
        {" a\t", true, false, R"("a\\t")"},  {" a ", true, true, R"("\\x20a\\x20")"},
        {" ", true, true, R"("\\x20")"},     {"", true, true, R"("")"},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(TCXML::PrepareXPathSearchString(row.text, row.quote, row.bound), row.literal);
}

// Every text of up to three of these pieces, each stored quoted and found alone among all others.
TEST_F(XmlDocument, FindsExactlyThePreparedText) {
    const std::vector<std::string> pieces = {" ", "\"", "'", "\\", "x20", "\x01"};
    std::vector<std::string> texts = {""};
    for (std::size_t begin = 0, length = 1; length <= 3; ++length)
        for (const std::size_t end = texts.size(); begin < end; ++begin)
            for (const std::string& piece : pieces) texts.push_back(texts[begin] + piece);
    xml.Create();
    const TCXMLNode root = xml.CreateElement("r", xml.GetDocument());
    for (const std::string& text : texts) {
        const TCXMLNode item = xml.CreateElement("i", root);
        const TCString quoted = TCXML::QuoteNodeTextString(text.c_str());
        EXPECT_TRUE(xml.SetNodeText(item, quoted) && xml.SetAttribute(item, "a", quoted));
    }
    ASSERT_TRUE(xml.Save(PATH) && xml.Load(PATH)) << xml.GetError();
    for (const std::string& text : texts) {
        const std::string literal(TCXML::PrepareXPathSearchString(text.c_str(), true, true));
        for (const std::string& path : {"r/i[.=" + literal + "]", "r/i[@a=" + literal + "]"}) {
            ASSERT_EQ(CountNodes(xml, path), 1) << path;
            TCString found(TextAt(xml, path.c_str()).c_str());
            EXPECT_TRUE(TCXML::UnquoteNodeTextString(found));
            EXPECT_STREQ(found, text.c_str());
        }
    }
}

TEST_F(XmlDocument, FindsBlanksAtTheEndsOfLiteralsInEveryExpression) {
    Parse("<r><i> a b</i><i>\\x20a b</i><i>c </i><i b=' '>d</i><i>' \"</i></r>");
    const struct {
        const char* path;
        const char* texts;
    } rows[] = {
        {R"(r/i[.="\x20a b"])", " a b|\\x20a b|"},
        {R"(r/i["\x20a b"=.])", " a b|\\x20a b|"},
        {R"(r/i[.="\x20a b"or.='d'])", " a b|\\x20a b|d|"},
        {R"(r/i[.="\x20a b" or .="c\x20"])", " a b|\\x20a b|c |"},
        {R"(r/i[not(.="\x20a b")])", "c |d|' \"|"},
        {R"(r/i[. != "\x20a b"])", "\\x20a b|c |d|' \"|"},
        {R"(r/i["c\x20" != .])", " a b|\\x20a b|d|' \"|"},
        {R"(r/i[starts-with(., "\x20a")])", " a b|"},
        {R"(r/i[contains(., "\x20b")])", " a b|\\x20a b|"},
        {R"(r/i[starts-with(., "\x20a") or .='d'])", " a b|d|"},
        {R"(r/i[@b="\x20"])", "d|"},
        {R"(r/i[.="' \""])", "' \"|"},
        {R"(r/i[.='\x20a b'])", "\\x20a b|"},
    };
    for (const auto& row : rows) {
        TCXMLNodeList found = xml.SelectNodes(row.path);
        std::string texts;
        while (const TCXMLNode node = xml.NextNode(found)) {
            TCString text;
            EXPECT_TRUE(xml.GetNodeText(node, text));
            texts += std::string(text) + "|";
        }
        EXPECT_EQ(texts.empty() ? "|" : texts, row.texts) << row.path;
    }
    for (const char* none : {R"("\x20")", R"("\x20"|r)", "'a'"}) EXPECT_FALSE(xml.SelectNodes(none)) << none;
    Parse("<r><?pi x?><?other y?></r>");
    EXPECT_EQ(TextAt(xml, "r/processing-instruction('pi')"), "x");
    EXPECT_EQ(TextAt(xml, "r/processing-instruction( \"other\")"), "y");
}

TEST_F(XmlDocument, ReadsLiteralsOfBothKinds) {
    Parse("<r><i>C:\\dir</i><i>it's \"so\"</i></r>");
    EXPECT_EQ(CountNodes(xml, "r/i[.='C:\\dir']"), 1);
    EXPECT_EQ(CountNodes(xml, "r/i[.=\"C:\\dir\"]"), 1);
    EXPECT_EQ(CountNodes(xml, "r/i[.=\"it's \\\"so\\\"\" or contains(., 'C')]"), 2);
}

TEST_F(XmlDocument, HandsOutLongTextsWithoutACopy) {
    Parse("<r><a>plain</a><b>tw<!---->o</b><c>\xF4\x8F\xBB\xBF</c><d/></r>");
    std::string buffer;
    std::string_view text;
    ASSERT_TRUE(tc::XmlNodeText(xml.SelectSingleNode("r/a"), buffer, text));
    EXPECT_EQ(text, "plain");
    EXPECT_NE(text.data(), buffer.data());
    EXPECT_TRUE(tc::XmlNodeText(xml.SelectSingleNode("r/b"), buffer, text) && text == "two");
    EXPECT_TRUE(tc::XmlNodeText(xml.SelectSingleNode("r/c"), buffer, text) && text == "\xFF");
    EXPECT_TRUE(tc::XmlNodeText(xml.SelectSingleNode("r/d"), buffer, text) && text.empty());
    EXPECT_FALSE(tc::XmlNodeText({}, buffer, text));
    EXPECT_TRUE(tc::SetXmlNodeText(xml.SelectSingleNode("r/d"), "a\0b"s));
    EXPECT_EQ(TextAt(xml, "r/d"), "a\0b"s);
}

}  // namespace
