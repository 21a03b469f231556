#include "sigweave/persistence/ArchiveTree.h"

#include <bit>
#include <utility>

#include "sigweave/persistence/ArchiveXml.h"

namespace tc {

using Type = ArchiveItem::Type;

ArchiveTree::ArchiveTree() {
    Begin(true);
}

ArchiveTree::~ArchiveTree() = default;

void ArchiveTree::BeginStoring() {
    Begin(true);
}

void ArchiveTree::BeginLoading() {
    Begin(false);
}

void ArchiveTree::Begin(bool store) {
    storing = store;
    levels.clear();
    levels.push_back({&root});
}

void ArchiveTree::SetItems(std::vector<ArchiveItem> items) {
    root.items = std::move(items);
    Begin(false);
}

ArchiveItem* ArchiveTree::Find(int number) {
    Level& level = levels.back();
    std::vector<ArchiveItem>& items = level.section->items;
    if (level.next < items.size() && items[level.next].number == number) return &items[level.next++];
    for (; level.indexed < items.size(); ++level.indexed)
        level.indexes.emplace(items[level.indexed].number, level.indexed);
    const auto found = level.indexes.find(number);
    if (found == level.indexes.end()) return nullptr;
    level.next = found->second + 1;
    return &items[found->second];
}

ArchiveItem* ArchiveTree::Open(int number, const char* label, Type type) {
    ArchiveItem* item = Find(number);
    if (!storing) return item != nullptr && item->type == type ? item : nullptr;
    if (item == nullptr) {
        Level& level = levels.back();
        item = &level.section->items.emplace_back();
        level.next = level.section->items.size();
        item->number = number;
    } else if (item->type != type) {
        *item = ArchiveItem();
        item->number = number;
    }
    item->type = type;
    item->label = label != nullptr ? label : "";
    return item;
}

bool ArchiveTree::Bits(int number, const char* label, Type type, std::uint64_t& bits) {
    ArchiveItem* const item = Open(number, label, type);
    if (item == nullptr) return false;
    (storing ? item->bits : bits) = storing ? bits : item->bits;
    return true;
}

bool ArchiveTree::Integer(int number, const char* label, std::int64_t& value) {
    auto bits = static_cast<std::uint64_t>(value);
    const bool done = Bits(number, label, Type::Integer, bits);
    value = static_cast<std::int64_t>(bits);
    return done;
}

bool ArchiveTree::Double(int number, const char* label, double& value) {
    auto bits = std::bit_cast<std::uint64_t>(value);
    const bool done = Bits(number, label, Type::Double, bits);
    value = std::bit_cast<double>(bits);
    return done;
}

bool ArchiveTree::Text(int number, const char* label, Type type, TCString& value) {
    ArchiveItem* const item = Open(number, label, type);
    if (item == nullptr) return false;
    if (storing)
        item->text.assign(value, static_cast<std::size_t>(value.GetLength()));
    else
        value = TCString(item->text.data(), static_cast<int>(item->text.size()));
    return true;
}

bool ArchiveTree::String(int number, const char* label, TCString& value) {
    return Text(number, label, Type::String, value);
}

bool ArchiveTree::Binary(int number, const char* label, TCString& bytes) {
    return Text(number, label, Type::Binary, bytes);
}

bool ArchiveTree::StringUnquotedXML(int number, const char* label, TCString& xml) {
    if (storing && !IsXmlFragment({xml, static_cast<std::size_t>(xml.GetLength())})) return false;
    return Text(number, label, Type::StringUnquotedXML, xml);
}

bool ArchiveTree::BeginSubsection(int number, const char* label) {
    if (storing && static_cast<int>(levels.size()) > MOST_ARCHIVE_LEVELS) return false;
    ArchiveItem* const item = Open(number, label, Type::Subsection);
    if (item != nullptr) levels.push_back({item});
    return item != nullptr;
}

void ArchiveTree::EndSubsection() {
    if (levels.size() > 1) levels.pop_back();
}

}  // namespace tc
