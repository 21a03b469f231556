#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "sigweave/persistence/ArchiveParser.h"
#include "sigweave/platform/Export.h"

namespace tc {

// One item of an archive.
struct ArchiveItem {
    // Stored in archives: never change, only append.
    enum class Type : std::uint8_t {
        Subsection = 1,
        Integer = 2,
        Double = 3,
        String = 4,
        Binary = 5,
        StringUnquotedXML = 6
    };

    int number = 0;
    Type type = Type::Subsection;
    std::string label;
    std::uint64_t bits = 0;          // of an Integer, as two's complement, and of a Double
    std::string text;                // of String, Binary and StringUnquotedXML
    std::vector<ArchiveItem> items;  // of a Subsection, in the order in which they were stored
};

// How deep subsections may be nested, in what is read as in what is written.
inline constexpr int MOST_ARCHIVE_LEVELS = 200;

// An archive in memory. Objects store their items in it or load them from it through ArchiveParser; its forms
// outside are ArchiveXml.h and ArchiveBinary.h.
//
// An archive that was loaded and is then stored to keeps the items that nobody stored anew: what a newer
// version of an object wrote survives an older one.
class TC_API ArchiveTree final : public ArchiveParser {
 public:
    ArchiveTree();
    ~ArchiveTree() override;
    ArchiveTree(const ArchiveTree&) = delete;
    ArchiveTree& operator=(const ArchiveTree&) = delete;

    // Which way the operations go from now on, at the top level. An archive begins empty and storing.
    void BeginStoring();
    void BeginLoading();

    const std::vector<ArchiveItem>& Items() const { return root.items; }
    // Takes these items in place of its own, and loads. Of equal numbers in a subsection the first counts.
    void SetItems(std::vector<ArchiveItem> items);

    bool IsStoring() const override { return storing; }
    bool Integer(int number, const char* label, std::int64_t& value) override;
    bool String(int number, const char* label, TCString& value) override;
    bool Double(int number, const char* label, double& value) override;
    bool Binary(int number, const char* label, TCString& bytes) override;
    // Storing refuses what is no well-formed fragment.
    bool StringUnquotedXML(int number, const char* label, TCString& xml) override;
    // Storing refuses levels beyond MOST_ARCHIVE_LEVELS.
    bool BeginSubsection(int number, const char* label) override;
    void EndSubsection() override;

 private:
    // A subsection that is open, or the archive itself.
    struct Level {
        ArchiveItem* section;
        std::size_t next = 0;  // items mostly come in their order
        std::unordered_map<int, std::size_t>
            indexes{};  // made when they do not: of the first `indexed` items
        std::size_t indexed = 0;
    };

    TC_LOCAL void Begin(bool store);
    TC_LOCAL ArchiveItem* Find(int number);
    TC_LOCAL ArchiveItem* Open(int number, const char* label, ArchiveItem::Type type);
    TC_LOCAL bool Text(int number, const char* label, ArchiveItem::Type type, TCString& value);
    TC_LOCAL bool Bits(int number, const char* label, ArchiveItem::Type type, std::uint64_t& bits);

    ArchiveItem root;
    std::vector<Level> levels;
    bool storing = true;
};

}  // namespace tc
