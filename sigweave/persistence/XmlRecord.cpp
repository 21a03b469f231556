#include "sigweave/persistence/XmlRecord.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <system_error>

#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlBuilder.h"
#include "sigweave/persistence/XmlFile.h"
#include "sigweave/persistence/XmlMessages.h"
#include "sigweave/persistence/XmlTree.h"
#include "sigweave/persistence/XmlWriter.h"
#include "sigweave/platform/SystemError.h"

namespace tc {
namespace {

std::string Reason() {
    return SystemErrorText(GetLastError());
}

bool WriteAt(std::FILE& file, long position, std::string_view text) {
    return std::fseek(&file, position, SEEK_SET) == 0 &&
           std::fwrite(text.data(), 1, text.size(), &file) == text.size();
}

// The root element, or null when some of it would be lost: its texts and the prefixes that it declares.
const xmlNode* RootToAppend(TCXML& part) {
    const xmlNode* const document = XmlAccess::Node(part.GetDocument());
    const xmlNode* const root = document != nullptr ? xmlDocGetRootElement(document->doc) : nullptr;
    if (root == nullptr || root->nsDef != nullptr || IsBeyondLimits(root, 1)) return nullptr;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next)
        if (HoldsText(node)) return nullptr;
    return root;
}

}  // namespace

// --- Writing

struct XmlRecordWriter::Impl {
    XmlFile file;
    std::string path, root;
    // Where the next part begins, and what stands there as long as none follows.
    long end = 0;
    std::string closing;
};

XmlRecordWriter::XmlRecordWriter() = default;
XmlRecordWriter::~XmlRecordWriter() = default;

bool XmlRecordWriter::Open(const char* path, const char* root) {
    impl = nullptr;
    error.clear();
    PrepareXmlEngine();
    if (root == nullptr || xmlValidateNCName(XmlChars(root), 0) != 0) {
        error = FormatXmlMessage(NO_ELEMENT, root != nullptr ? root : "");
        return false;
    }
    XmlFile file = OpenXmlFile(path, "wb");
    if (file == nullptr) {
        error = FormatXmlMessage(NOT_OPENED, path != nullptr ? path : "", Reason().c_str());
        return false;
    }
    const std::string declaration(XmlWriter::DECLARATION);
    auto opened =
        std::make_unique<Impl>(std::move(file), NativePath(path), root, static_cast<long>(declaration.size()),
                               '<' + std::string(root) + "/>\n");
    if (!WriteAt(*opened->file, 0, declaration + opened->closing)) {
        error = Reason();
        return false;
    }
    impl = std::move(opened);
    return true;
}

bool XmlRecordWriter::Append(TCXML& part) {
    error.clear();
    const xmlNode* const root = impl != nullptr ? RootToAppend(part) : nullptr;
    if (root == nullptr) {
        error = FormatXmlMessage(NOT_SAVED);
        return false;
    }
    if (root->children == nullptr) return true;
    XmlWriter writer;
    const std::string opening = '<' + impl->root + '>', closing = "\n</" + impl->root + ">\n";
    if (impl->closing != closing) writer.Raw(opening);
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        writer.NewLine(1);
        writer.Node(node, 1);
    }
    const auto size = static_cast<long>(writer.Text().size());
    writer.Raw(closing);
    if (!WriteAt(*impl->file, impl->end, writer.Text())) {
        error = Reason();
        // The parts before this one stay a whole document.
        std::error_code ignored;
        std::filesystem::resize_file(impl->path, static_cast<std::uintmax_t>(impl->end), ignored);
        WriteAt(*impl->file, impl->end, impl->closing);
        return false;
    }
    impl->end += size;
    impl->closing = closing;
    return true;
}

bool XmlRecordWriter::Close() {
    error.clear();
    if (impl == nullptr) return true;
    const bool closed = std::fclose(impl->file.release()) == 0;
    if (!closed) error = Reason();
    impl = nullptr;
    return closed;
}

// --- Reading

struct XmlRecordReader::Impl {
    void Take(xmlNode* child);

    XmlFile file;
    XmlBuilder builder{false};
    std::deque<std::shared_ptr<XmlDocument>> parts;
    // What `Next` answers once the parts are used up; 1 as long as more may come.
    int end = 1;
};

// The child becomes a document of its own, and whatever else stands below the root is dropped, so that the
// tree does not grow.
void XmlRecordReader::Impl::Take(xmlNode* child) {
    xmlNode* const root = child->parent;
    xmlUnlinkNode(child);
    xmlDoc* const tree = xmlNewDoc(XmlChars("1.0"));
    if (tree == nullptr) throw std::bad_alloc();
    tree->dict = root->doc->dict;
    xmlDictReference(tree->dict);
    xmlNode* const newRoot = xmlDocCopyNode(root, tree, 2);
    if (newRoot == nullptr) throw std::bad_alloc();
    xmlDocSetRootElement(tree, newRoot);
    xmlAddChild(newRoot, child);
    if (root->nsDef != nullptr) xmlReconciliateNs(tree, child);
    parts.push_back(std::make_shared<XmlDocument>(tree));
    while (root->children != nullptr) {
        xmlNode* const dropped = root->children;
        xmlUnlinkNode(dropped);
        xmlFreeNode(dropped);
    }
}

XmlRecordReader::XmlRecordReader() = default;
XmlRecordReader::~XmlRecordReader() = default;

bool XmlRecordReader::Open(const char* path, const char* root) {
    impl = nullptr;
    error.clear();
    XmlFile file = OpenXmlFile(path, "rb");
    if (file == nullptr) {
        error = FormatXmlMessage(NOT_LOADED, Reason().c_str());
        return false;
    }
    auto opened = std::make_unique<Impl>();
    opened->file = std::move(file);
    opened->builder.onChild = [&state = *opened](xmlNode* child) { state.Take(child); };
    while (opened->builder.RootName().empty() && opened->builder.FeedFrom(*opened->file)) {
    }
    const std::string_view name = opened->builder.RootName();
    if (name.empty()) {
        opened->builder.Finish();
        error = FormatXmlMessage(opened->builder.GetError());
        return false;
    }
    if (root == nullptr || name != root) {
        error = FormatXmlMessage(NOT_LOADED, ("The root element is '" + std::string(name) + "'").c_str());
        return false;
    }
    impl = std::move(opened);
    return true;
}

int XmlRecordReader::Next(TCXML& part) {
    if (impl == nullptr) return -1;
    while (impl->parts.empty() && impl->end == 1) {
        if (impl->builder.FeedFrom(*impl->file)) continue;
        const bool readAll = std::ferror(impl->file.get()) == 0;
        if (!readAll) error = FormatXmlMessage(NOT_LOADED, Reason().c_str());
        xmlDoc* const rest = readAll ? impl->builder.Finish() : nullptr;
        if (readAll && rest == nullptr) error = FormatXmlMessage(impl->builder.GetError());
        impl->end = rest != nullptr ? 0 : -1;
        xmlFreeDoc(rest);
    }
    if (impl->parts.empty()) return impl->end;
    XmlAccess::Reset(part, std::move(impl->parts.front()));
    impl->parts.pop_front();
    return 1;
}

}  // namespace tc
